#!/usr/bin/env python3
"""tovik-lsp and what comes on its standard input: hostile messages, noise; and its formatting, which changes no program."""

import json
import os
import pathlib
import random
import re
import subprocess
import tempfile
import time
import unittest

BIN = pathlib.Path(os.environ["TOVIK_BIN"])
EXAMPLES = pathlib.Path(os.environ["TOVIK_EXAMPLES"])
SEED = int(os.environ.get("TOVIK_SEED", time.time()))
URI = "file:///nowhere/a.k"


def framed(body):
    return b"Content-Length: %d\r\n\r\n%s" % (len(body), body)


def message(method, params=None, number=None):
    body = {"jsonrpc": "2.0", "method": method, "params": params or {}}
    return framed(json.dumps(body if number is None else body | {"id": number}).encode())


def at(line, character):
    return {"textDocument": {"uri": URI}, "position": {"line": line, "character": character}}


def opened(text):
    return message("textDocument/didOpen", {"textDocument": {"uri": URI, "version": 1, "text": text}})


START = message("initialize", {"capabilities": {}}, 0) + message("initialized")
END = message("shutdown", number=99) + message("exit")


def talk(data):
    """What the server says to all of this, and its exit status."""
    done = subprocess.run([BIN / "tovik-lsp"], input=data, capture_output=True, timeout=100)
    assert done.stderr == b"", done.stderr
    answers, rest = [], done.stdout
    while rest:
        header, rest = rest.split(b"\r\n\r\n", 1)
        length = int(header.removeprefix(b"Content-Length: "))
        answers.append(json.loads(rest[:length]))
        rest = rest[length:]
    return answers, done.returncode


def said(answers):
    """Number and error code of each response; what was published."""
    return [(one.get("id"), one["error"]["code"] if "error" in one else None) for one in answers if "method" not in one]


HOVER = message("textDocument/hover", at(0, 0), 1)
OK, PARSE, INVALID, METHOD, PARAMS, EARLY = None, -32700, -32600, -32601, -32602, -32002
BIG = "x" * 10_000_000
HOSTILE = {
    # What is sent between the beginning and the end, and what is answered to it.
    "bad JSON": (framed(b"{"), [(None, PARSE)]),
    "broken UTF-8": (framed(b'"\xff"'), [(None, PARSE)]),
    "a list, a number, no method": (framed(b"[]") + framed(b"1") + framed(b'{"id":3}'),
                                   [(None, INVALID), (None, INVALID), (3, INVALID)]),
    "an answer that was not asked for": (framed(b'{"id":3,"result":1}'), []),
    "an odd id": (framed(b'{"id":[],"method":"shutdown"}'), [(None, INVALID)]),
    "deep JSON": (framed(b"[" * 1_000_000) + framed(b'{"id":1,"method":' + b"[" * 100_000 + b"]" * 100_000 + b"}"),
                  [(None, PARSE), (None, PARSE)]),
    "a length that is none": (b"Content-Length: -1\r\n\r\n" + HOVER, [(1, PARAMS)]),
    "a length too short": (b"Content-Length: 3\r\n\r\n{}}}}" + HOVER, [(None, PARSE), (1, PARAMS)]),
    "a length too long": (b"Content-Length: 30\r\n\r\n{}" + HOVER + HOVER, [(None, PARSE), (1, PARAMS)]),
    "a length beyond all bounds": (b"Content-Length: 999999999\r\n\r\n", [(None, PARSE)]),
    "other headers": (HOVER.replace(b"Content-Length", b"A: b\r\ncontent-length"), [(1, PARAMS)]),
    "unknown methods": (message("what/ever", number=1) + message("what/ever") + message("$/cancelRequest", {"id": 1}),
                        [(1, METHOD)]),
    "a second beginning": (message("initialize", number=1), [(1, INVALID)]),
    "requests after the end": (message("shutdown", number=1) + HOVER, [(1, OK), (1, INVALID)]),
    "changes of what is not open": (message("textDocument/didChange", at(0, 0) | {"contentChanges": [{"text": ""}]}), []),
    "positions outside": (opened("  halt\n") + message("textDocument/hover", at(9, 9), 1) +
                          message("textDocument/hover", at(0, 2**40), 2), [(1, OK), (2, OK)]),
    "positions that are none": (opened("") + b"".join(message("textDocument/hover", at(*place), i)
                                                      for i, place in enumerate([(-1, 0), (0, 1.5), (0, "a")])),
                                [(0, PARAMS), (1, PARAMS), (2, PARAMS)]),
    "a version of 64 bits": (message("textDocument/didOpen", {"textDocument": {
        "uri": URI, "version": 2**63 - 1, "text": ""}}) + message("textDocument/didChange", {
            "textDocument": {"uri": URI}, "contentChanges": []}) + HOVER, [(1, OK)]),
    "10 MB in one line": (opened(BIG) + HOVER, [(1, OK)]),
    "10 MB of lines": (opened("  x\n" * 2_500_000) + HOVER, [(1, OK)]),
    "a file that includes itself": (opened("#include a.k\n") + HOVER, [(1, OK)]),
}


class Stream(unittest.TestCase):
    def test_hostile_messages_are_answered_and_the_server_goes_on(self):
        for name, (sent, expected) in HOSTILE.items():
            with self.subTest(name):
                last = [(99, INVALID if "after the end" in name else OK)] if "bounds" not in name else []
                answers, status = talk(START + sent + END)
                self.assertEqual(said(answers), [(0, OK)] + expected + last)
                self.assertEqual(status, 0 if last else 1)

    def test_before_the_beginning_and_without_an_end(self):
        answers, status = talk(HOVER + opened("x") + message("exit"))
        self.assertEqual((said(answers), len(answers), status), ([(1, EARLY)], 1, 1))

    def test_a_program_that_is_gone_lets_its_files_go(self):
        with tempfile.TemporaryDirectory() as folder:
            main, part = (pathlib.Path(folder, name) for name in ["main.k", "part.k"])
            main.write_text("  halt\nx .data 42\n#include part.k\n")
            self.assertEqual(self.hover_in(part, main), "x: address 4 = 0x4\n\nHolds 42 = 0x2a = '*' when the program starts"
                             "\n\nDefined in line 2 of main.k, used once")
            self.assertEqual(self.hover_in(part, main, delete=True), "x: no line begins with this label.")

    def hover_in(self, part, main, delete=False):
        """What is said of x in a part of a program, whose main file may go when it has been found."""
        place = {"textDocument": {"uri": part.as_uri(), "version": 1, "text": "y .data x\n#include ./part.k\n"}, "position": {"line": 0, "character": 8}}
        with subprocess.Popen([BIN / "tovik-lsp"], stdin=subprocess.PIPE, stdout=subprocess.PIPE) as server:
            server.stdin.write(message("initialize", {"capabilities": {}, "rootUri": part.parent.as_uri()}, 0))
            server.stdin.flush()
            server.stdout.read1()
            if delete:
                main.unlink()
            output, _ = server.communicate(message("textDocument/didOpen", place) +
                                           message("textDocument/hover", place, 1) + END, timeout=100)
        return json.loads(re.search(rb'\{"id":1.*?(?=Content-Length)', output, re.S)[0])["result"]["contents"]["value"]

    def test_noise(self):
        noise = random.Random(SEED)
        print(f"TOVIK_SEED={SEED}")
        text = (EXAMPLES / "pong.k").read_text()
        # Whatever is done to the bytes, and whatever is asked about the text that they make.
        asked = ["hover", "completion", "signatureHelp", "definition", "references", "prepareRename", "rename",
                 "documentSymbol", "foldingRange", "semanticTokens/full", "codeAction", "formatting", "rangeFormatting"]
        data = START + opened(text)
        for number in range(300):
            places = [{"line": noise.randrange(300), "character": noise.randrange(60)} for _ in range(2)]
            data += message("textDocument/didChange", {"textDocument": {"uri": URI, "version": number}, "contentChanges": [
                {"range": {"start": places[0], "end": noise.choice(places)}, "text": noise.choice(
                    ["", "\r", "\r\n", "\n", "//", "\u00e9", "\U0001f600", "#include ", " 0x", "\tbe", "\0"])}]})
            one = message("textDocument/" + noise.choice(asked), at(places[0]["line"], places[0]["character"]) |
                          {"range": {"start": places[0], "end": places[1]}, "newName": "n" + str(number),
                           "context": {"diagnostics": [], "includeDeclaration": True}, "options": {}}, number)
            if noise.random() < 0.2:
                broken = bytearray(one)
                broken[noise.randrange(len(one))] = noise.randrange(256)
                one = bytes(broken)
            data += one
        # A length that has become longer swallows what follows.
        answers, status = talk(data + b" " * 100_000 + b"\r\n\r\n" + END)
        self.assertEqual(status, 0)
        self.assertEqual([code for _, code in said(answers) if code == -32603], [])


def formatted(text):
    """What formatting makes of a text of one-byte characters."""
    answers, _ = talk(START + opened(text) + message("textDocument/formatting", at(0, 0) | {"options": {}}, 1) + END)
    lines = text.split("\n")
    for edit in next(one for one in answers if one.get("id") == 1)["result"]:
        start, end = edit["range"]["start"], edit["range"]["end"]
        assert start["line"] == end["line"]
        line = lines[start["line"]]
        lines[start["line"]] = line[:start["character"]] + edit["newText"] + line[end["character"]:]
    return "\n".join(lines)


class Formatting(unittest.TestCase):
    def image_of(self, text):
        with tempfile.TemporaryDirectory() as folder:
            os.symlink(EXAMPLES / "lib", pathlib.Path(folder, "lib"))
            program = pathlib.Path(folder, "a.k")
            program.write_bytes(text.encode("latin-1"))
            done = subprocess.run([BIN / "tovik-run", "--limit", "1", "--report", "none", program], capture_output=True)
            return program.with_suffix(".mif").read_bytes(), done.stdout

    def test_the_examples_are_as_they_should_be_and_come_back(self):
        noise = random.Random(SEED)
        print(f"TOVIK_SEED={SEED}")
        for path in sorted(EXAMPLES.glob("**/*.k")):
            text = path.read_text()
            self.assertEqual(formatted(text), text, path)
        for name in ["calc.k", "hello_lcd.k"]:
            text = (EXAMPLES / name).read_text() + "99 \t// behind\nend\tbe x\r\n"
            wild = re.sub(r"(?<=\S)[ \t]+(?=[^/\n]*\n)", lambda _: noise.choice([" ", "\t", "   \t "]), text)
            tidy = formatted(wild)
            self.assertNotEqual(wild, tidy)
            self.assertEqual(formatted(tidy), tidy)
            self.assertEqual(self.image_of(tidy), self.image_of(wild))

    def test_comments_and_odd_lines_stay(self):
        for before, after in [
                ("a  add b c\td // x  y \r\n", "a               add     b c d   // x  y\r\n"),
                ("long_label_that_is_long  .data 1", "long_label_that_is_long .data 1"),
                (" \t// only a comment\n", " \t// only a comment\n"),
                ("a cp x y//1\nb\tcp x yyyy     //2\n",
                 "a               cp      x y     //1\nb               cp      x yyyy  //2\n"),
                ("#include   x.k   more  of it //c", "#include x.k   more  of it   //c"),
                ("; what is  not understood stays, to the last word\n", "; what is  not understood stays, to the last word\n"),
                ("  add  a b c ; so many", "  add  a b c ; so many"),
                ("\u00e9\u00e9 halt //\nee\thalt //", "\u00e9\u00e9              halt    //\nee              halt    //"),
                ("a\vb\n\n   \n", "a\vb\n\n\n")]:
            self.assertEqual(formatted(before), after)


if __name__ == "__main__":
    unittest.main()
