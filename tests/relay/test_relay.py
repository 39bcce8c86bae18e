"""The relay of the virtual serial cable, with real sockets. Each test has a relay on a loopback address of its own."""

import array
import asyncio
import contextlib
import fcntl
import itertools
import os
import pathlib
import random
import re
import resource
import signal
import socket
import struct
import subprocess
import termios
import threading
import time
import unittest

TOVIK_RELAY = pathlib.Path(os.environ["TOVIK_BIN"]) / "tovik-relay"
ADDRESSES = (f"127.0.0.{i}" for i in itertools.count(2))
TCP_FIN_WAIT1 = 4  # the end of the transmission has not arrived yet
PAIRS = int(os.environ.get("TOVIK_RELAY_PAIRS", "2000"))


def response_to(challenge):
    (number,) = struct.unpack("<I", challenge)
    return struct.pack("<I", (number * number + 10714194) % 2**32)


def introduction(challenge, name):
    return response_to(challenge) + struct.pack("<I", len(name) + 1) + name + b"\0"


def take(connection, count):
    """Exactly so many bytes, or fewer at the end of the transmission."""
    data = b""
    while len(data) < count and (more := connection.recv(count - len(data))):
        data += more
    return data


def is_closed(connection):
    try:
        return connection.recv(1) == b""
    except ConnectionResetError:
        return True


def reset(connection):
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    connection.close()


WAYS_TO_LEAVE = {"close": socket.socket.close, "half": lambda c: c.shutdown(socket.SHUT_WR), "reset": reset}


class Peer:
    """A client that keeps to nothing. Its bytes tell whose they are."""

    def __init__(self, number, name, connection):
        self.number, self.name, self.connection = number, name, connection
        self.out, self.sent, self.got = b"", 0, b""
        self.end = None  # how it left
        self.over = False  # it has read the end
        connection.setblocking(False)

    def bytes(self):
        return array.array("I", range(self.number, self.number + (50_000 << 12), 1 << 12)).tobytes()

    def read(self, most):
        try:
            data = self.connection.recv(most)
            self.got += data
            self.over = self.over or not data
        except BlockingIOError:
            pass
        except OSError:
            self.over = True
        if not self.out and len(self.got) >= 4:
            self.out = introduction(self.got[:4], self.name) + self.bytes()

    def send(self, most):
        with contextlib.suppress(OSError):
            self.sent += self.connection.send(self.out[self.sent:self.sent + most])

    def leave(self, how):
        if self.end is None or not self.over:
            self.end = "after" if self.over else how
        with contextlib.suppress(OSError):
            WAYS_TO_LEAVE[how](self.connection)

    def step(self, rng):
        if self.end in (None, "half") and rng.random() < 0.5:
            self.read(rng.choice((4, 8, 1000, 100_000)))
        elif self.end is None:
            self.send(rng.choice((1, 3, 8, 20, 8192, 200_000)))
            if rng.random() < 0.03:
                self.leave(rng.choice(("half", "half", "half", "close", "reset")))
        elif self.over or rng.random() < 0.01:
            self.leave("close")


class Relay(unittest.TestCase):
    def start(self, *options):
        self.address = next(ADDRESSES)
        self.process = subprocess.Popen(
            ["setpriv", "--pdeathsig=TERM", TOVIK_RELAY, "--address", self.address, "--port", "0", *map(str, options)],
            stderr=subprocess.PIPE, text=True)
        self.log = [self.process.stderr.readline()]
        self.port = int(re.search(r"listening on [\d.]+:(\d+)", self.log[0]).group(1))
        self.reader = threading.Thread(target=lambda: self.log.extend(self.process.stderr))
        self.reader.start()
        self.addCleanup(self.stop)

    def stop(self, number=signal.SIGTERM):
        if self.process.stderr.closed:
            return
        self.process.send_signal(number)
        self.assertEqual(0, self.process.wait(timeout=20), "".join(self.log))
        self.reader.join()
        self.process.stderr.close()

    def memory(self):
        status = pathlib.Path(f"/proc/{self.process.pid}/status").read_text()
        return int(re.search(r"VmRSS:\s+(\d+) kB", status).group(1)) * 1024

    def processor_time(self):
        fields = pathlib.Path(f"/proc/{self.process.pid}/stat").read_text().split()
        return sum(map(int, fields[13:15])) / os.sysconf("SC_CLK_TCK")

    @contextlib.contextmanager
    def stopped(self):
        """What happens inside, the relay sees all at once."""
        self.process.send_signal(signal.SIGSTOP)
        os.waitid(os.P_PID, self.process.pid, os.WSTOPPED | os.WEXITED | os.WNOWAIT)
        yield
        self.process.send_signal(signal.SIGCONT)

    def connect(self, source="127.0.0.1", buffers=None):
        connection = socket.socket()
        self.addCleanup(connection.close)
        connection.settimeout(20)
        connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        for name in (socket.SO_RCVBUF, socket.SO_SNDBUF) if buffers else ():
            connection.setsockopt(socket.SOL_SOCKET, name, buffers)
        connection.bind((source, 0))
        connection.connect((self.address, self.port))
        return connection

    def join(self, name, *where):
        """A client after its handshake, and the status that it was given."""
        connection = self.connect(*where)
        connection.sendall(introduction(take(connection, 4), name))
        return connection, take(connection, 4)

    def pair(self, name=b"ada", buffers=None):
        """With small buffers for the first one if so many bytes are given."""
        return self.join(name, "127.0.0.1", buffers)[0], self.join(name)[0]

    def fill(self, connection, most=8 << 20):
        """Sends until nothing more is taken for a while; returns what was sent."""
        sent = bytearray()
        connection.settimeout(1)
        try:
            while len(sent) < most:
                piece = random.randbytes(4096)
                sent += piece[:connection.send(piece)]
        except TimeoutError:
            pass
        connection.settimeout(20)
        return bytes(sent)

    def test_pairs_and_status(self):
        self.start()
        first, status = self.join(b"ada", "127.0.1.5")
        self.assertEqual(bytes(4), status)
        other, status = self.join(b"bob")
        self.assertEqual(bytes(4), status)
        second, status = self.join(b"ada")
        self.assertEqual(bytes([127, 0, 1, 5]), status)
        everything = bytes(range(256))
        for sender, receiver in ((first, second), (second, first)):
            sender.sendall(everything)
            self.assertEqual(everything, take(receiver, 256))
        third, status = self.join(b"ada")
        self.assertEqual(b"", status)
        self.assertTrue(is_closed(third))
        first.sendall(b"x")
        self.assertEqual(b"x", take(second, 1))
        other.sendall(b"y")
        bobs, _ = self.join(b"bob")
        self.assertEqual(b"y", take(bobs, 1))

    def test_what_the_first_sends_waits(self):
        self.start()
        for count in (3, 8192):
            with self.subTest(count):
                first = self.connect()
                early = random.randbytes(count)
                first.sendall(introduction(take(first, 4), b"ada") + early)
                self.assertEqual(bytes(4), take(first, 4))
                second, _ = self.join(b"ada")
                first.sendall(b"later")
                self.assertEqual(early + b"later", take(second, count + 5))
                first.close()
                self.assertEqual(b"", take(second, 1))

    def test_a_bad_handshake_is_closed(self):
        self.start("--max-name", 6)
        for what, data in {"wrong response": lambda c: bytes(4),
                           "wrong by one": lambda c: bytes([response_to(c)[0] ^ 1]) + response_to(c)[1:],
                           "no name": lambda c: introduction(c, b""),
                           "length 0": lambda c: response_to(c) + bytes(4),
                           "long name": lambda c: introduction(c, b"seven77"),
                           "negative length": lambda c: response_to(c) + b"\xff\xff\xff\xff",
                           "zero byte inside": lambda c: introduction(c, b"a\0b"),
                           "no zero byte": lambda c: introduction(c, b"ab")[:-1] + b"c",
                           "garbage": lambda c: random.randbytes(100_000)}.items():
            with self.subTest(what):
                connection = self.connect()
                connection.sendall(data(take(connection, 4)))
                self.assertTrue(is_closed(connection))
        self.assertEqual(bytes(4), self.join(b"six666")[1])
        self.assertEqual(bytes(4), self.join(b"\xff\n")[1], "any other byte may be in a name")

    def test_a_stall_in_the_handshake_is_closed(self):
        self.start("--handshake-timeout", 1)
        patient, _ = self.join(b"ada")
        stalled = [self.connect() for _ in range(6)]
        for count, connection in zip((0, 3, 4, 7, 8, 10), stalled):
            connection.sendall(introduction(take(connection, 4), b"abc")[:count])
        for connection in stalled:
            self.assertTrue(is_closed(connection))
        second, _ = self.join(b"ada")
        second.sendall(b"x")
        self.assertEqual(b"x", take(patient, 1), "only the handshake has a time limit")

    def test_one_of_a_pair_leaves(self):
        self.start()
        for how, leave in WAYS_TO_LEAVE.items():
            for index in (0, 1):
                with self.subTest(how, index=index):
                    pair = self.pair()
                    leaver, stayer = pair[index], pair[1 - index]
                    leaver.sendall(b"bye")
                    self.assertEqual(b"bye", take(stayer, 3))
                    leave(leaver)
                    self.assertEqual(b"", take(stayer, 1))
                    first, status = self.join(b"ada")
                    self.assertEqual(bytes(4), status, "the name is free")
                    for _ in range(5):
                        stayer.sendall(bytes(100_000))  # more than waits anywhere, and no broken pipe
                    second, _ = self.join(b"ada")
                    first.sendall(b"new")
                    self.assertEqual(b"new", take(second, 3), "nothing of the old pair")
                    stayer.close()
                    second.sendall(b"back")
                    self.assertEqual(b"back", take(first, 4))
                    first.close()
                    self.assertEqual(b"", take(second, 1))

    def test_one_leaves_while_bytes_are_sent_to_it(self):
        """In one look of the relay at its connections a write finds room for a part of its bytes, the partner has left,
        and somebody comes. Of so many sizes, some leave such a room."""
        self.start("--max-per-address", 10_000)
        one, other = self.pair()
        for turn in range(16):
            pairs = [(*self.pair(b"%d" % size, 4096), size) for size in range(32_000, 92_000, 500)]
            for _, sender, size in pairs:
                sender.sendall(b"\xff" * size)
            for _ in range(100):  # more looks than all of that needs
                one.sendall(b"x")
                take(other, 1)
            strangers = []
            with self.stopped():
                for leaver, sender, _ in pairs:
                    sender.sendall(b"\xff" * 8192)
                    leaver.shutdown(socket.SHUT_WR)
                    strangers.append(self.connect())
            for number, stranger in enumerate(strangers):
                stranger.sendall(introduction(take(stranger, 4), b"%d/%d" % (turn, number)))
                self.assertEqual(bytes(4), take(stranger, 4), "nothing that was for another")

    def test_whatever_peers_do_nobody_gets_what_is_not_for_him(self):
        """They leave and stall at every point, and the relay sees many of these things at once."""
        seed = random.randrange(2**32)
        print(f"peers, seed {seed}")
        rng = random.Random(seed)
        self.start()
        descriptors = len(os.listdir(f"/proc/{self.process.pid}/fd"))
        names, peers, active = (b"ada", b"bob", b"eve"), [], []
        while len(peers) < 400:
            with self.stopped() if rng.random() < 0.7 else contextlib.nullcontext():
                for _ in range(rng.choice((5, 50, 300))):
                    if len(active) < 12:
                        peers.append(Peer(len(peers), rng.choice(names), self.connect(buffers=4096)))
                        active.append(peers[-1])
                    rng.choice(active).step(rng)
                    active = [peer for peer in active if peer.connection.fileno() >= 0]
            time.sleep(0.001)
        for peer in active:
            peer.leave("half")
            for other in active * 30:
                other.read(100_000)
                time.sleep(0.0001)
        for peer in active:
            peer.leave("close")
        self.check(peers)
        for name in names:
            # Whoever left behind more than fits anywhere has not left before a partner reads it.
            partner, status = self.join(name)
            with contextlib.suppress(ConnectionResetError):
                while status != bytes(4) and partner.recv(1 << 20):
                    pass
            partner.close()
        one, other = self.pair(b"new")
        one.sendall(b"x")
        self.assertEqual(b"x", take(other, 1))
        one.close()
        other.close()
        end = time.monotonic() + 20
        while len(os.listdir(f"/proc/{self.process.pid}/fd")) > descriptors and time.monotonic() < end:
            time.sleep(0.01)
        self.assertEqual(descriptors, len(os.listdir(f"/proc/{self.process.pid}/fd")))
        self.stop()
        self.assertIn("ends with 0 clients", self.log[-1])

    def check(self, peers):
        partners = {}
        for peer in peers:
            data = peer.got[8:]
            if len(data) < 4:
                continue
            partner = peers[int.from_bytes(data[:4], "little") % 4096]
            self.assertEqual(peer.name, partner.name)
            self.assertTrue(partner.bytes().startswith(data), "only a partner's, each once and in order")
            self.assertIs(partner, partners.setdefault(peer, partner))
            self.assertIs(peer, partners.setdefault(partner, peer), "partners are two")
        whole = 0
        for peer, partner in partners.items():
            if partner.end == "half" and peer.over and peer.end in (None, "after"):
                whole += 1
                sent = partner.sent - len(introduction(bytes(4), partner.name))
                self.assertEqual(sent, len(peer.got) - 8, "all that was sent before the end")
        self.assertGreater(whole, 0)

    def test_the_farewell_has_a_time_limit(self):
        self.start("--farewell-timeout", 1)
        leaver, stayer = self.pair()
        leaver.close()
        self.assertEqual(b"", take(stayer, 1))
        begin = time.monotonic()
        with self.assertRaises((BrokenPipeError, ConnectionResetError)):
            while time.monotonic() < begin + 10:
                stayer.sendall(b"x")
                time.sleep(0.01)
        self.assertTrue(0.9 < time.monotonic() - begin < 5)

    def test_a_name_is_free_when_its_client_leaves(self):
        self.start()
        for early in (b"", b"abc", bytes(20_000)):
            waiting, status = self.join(b"ada")
            self.assertEqual(bytes(4), status, "nobody waits there")
            waiting.sendall(early)
            time.sleep(0.05)
            waiting.close()
            time.sleep(0.05)
        with self.subTest("behind a partner that does not read"):
            first, second = self.pair()
            sent, arrived = self.fill(first), b""
            # Until all of it is on its way, for the end of a transmission travels behind its bytes.
            while struct.unpack("i", fcntl.ioctl(first, termios.TIOCOUTQ, bytes(4)))[0] > 0:
                arrived += take(second, min(4096, len(sent) - len(arrived)))
            first.shutdown(socket.SHUT_WR)
            # And where the last byte has closed the window, not before it opens again.
            while first.getsockopt(socket.IPPROTO_TCP, socket.TCP_INFO, 1)[0] == TCP_FIN_WAIT1:
                arrived += take(second, min(4096, len(sent) - len(arrived)))
                time.sleep(0.05)
            first.close()
            time.sleep(0.05)
            third, fourth = self.join(b"ada"), self.join(b"ada")
            self.assertEqual((bytes(4), bytes([127, 0, 0, 1])), (third[1], fourth[1]))
            self.assertEqual(sent, arrived + take(second, len(sent)), "and yet gets all that was sent")
            second.close()
            time.sleep(0.05)
            third[0].sendall(b"x")
            self.assertEqual(b"x", take(fourth[0], 1))

    def test_a_slow_reader_slows_its_partner(self):
        self.start()
        first, second = self.pair()
        other, another = self.pair(b"bob")
        before = self.memory()
        sent = [self.fill(first), self.fill(second)]
        waiting, _ = self.join(b"eve")
        early = self.fill(waiting)
        for data in (*sent, early):
            self.assertLess(len(data), 6 << 20, "the kernel's buffers on both sides and no more")
        self.assertLess(self.memory() - before, 1 << 20)
        other.sendall(b"x")
        self.assertEqual(b"x", take(another, 1), "nobody else is slowed")
        self.assertEqual(sent[0], take(second, len(sent[0])))
        self.assertEqual(sent[1], take(first, len(sent[1])))
        partner, _ = self.join(b"eve")
        self.assertEqual(early, take(partner, len(early)))

    def test_limits_of_connections(self):
        self.start("--max-clients", 4, "--max-per-address", 3)
        joined = [self.join(b"%d" % i) for i in range(3)]
        self.assertEqual([bytes(4)] * 3, [status for _, status in joined])
        self.assertTrue(is_closed(self.connect()), "three from this address")
        self.assertEqual(bytes(4), self.join(b"x", "127.0.1.1")[1])
        self.assertTrue(is_closed(self.connect("127.0.1.2")), "four in all")
        joined[0][0].close()
        time.sleep(0.05)
        self.assertEqual(bytes(4), self.join(b"y")[1])

    @unittest.skipIf(os.environ.get("TOVIK_SANITIZE") == "ON", "the sanitizers themselves need descriptors")
    def test_no_descriptors_left(self):
        self.start()
        count = len(os.listdir(f"/proc/{self.process.pid}/fd"))
        subprocess.run(["prlimit", "--pid", str(self.process.pid), f"--nofile={count + 2}"], check=True)
        inside = [self.join(b"a")[0], self.join(b"b")[0]]
        outside = self.connect()
        before = self.processor_time()
        time.sleep(1)
        self.assertLess(self.processor_time() - before, 0.2, "it does not spin")
        inside[0].close()
        outside.sendall(introduction(take(outside, 4), b"b"))
        self.assertEqual(bytes([127, 0, 0, 1]), take(outside, 4), "whoever waited gets its turn")

    def test_start_and_end(self):
        self.start()
        for options, status, error in (
                (("--port", str(self.port), "--address", self.address), 1,
                 f"tovik-relay: cannot listen on {self.address}:{self.port}: Address already in use\n"),
                (("--port", "x"), 2, "tovik-relay: --port: "), (("--port", "65536"), 2, "tovik-relay: --port: "),
                (("--address", "nowhere"), 2, "tovik-relay: --address: "), (("--log-level", "loud"), 2, "--log-level: "),
                (("extra",), 2, "tovik-relay: "), (("--max-clients", "0"), 2, "tovik-relay: --max-clients: ")):
            with self.subTest(options):
                done = subprocess.run([TOVIK_RELAY, *options], capture_output=True, text=True, timeout=20)
                self.assertEqual(status, done.returncode)
                self.assertIn(error, done.stderr)
        waiting, _ = self.join(b"eve")
        pair = self.pair()
        self.fill(pair[0])
        self.stop(signal.SIGINT)
        self.assertTrue(is_closed(waiting))

    def test_the_log_keeps_names_to_itself(self):
        for level, is_named in (("info", False), ("debug", True)):
            self.start("--log-level", level)
            self.join(b"se\ncret")[0].close()
            self.join(b"secret")
            self.stop()
            text = "".join(self.log)
            self.assertEqual([is_named] * 3, ["'se\\x0acret'" in text, "'secret'" in text, "cret" in text], text)

    def test_load(self):
        """All pairs at a time; some talk both ways, in some one sends and closes at once. No byte is lost."""
        seed = random.randrange(2**32)
        print(f"{PAIRS} pairs, seed {seed}")
        rng = random.Random(seed)
        resource.setrlimit(resource.RLIMIT_NOFILE, (resource.getrlimit(resource.RLIMIT_NOFILE)[1],) * 2)
        if resource.getrlimit(resource.RLIMIT_NOFILE)[0] < 2 * PAIRS + 50:
            self.skipTest("the limit of open files is too low")
        self.start("--max-clients", 2 * PAIRS, "--max-per-address", 2 * PAIRS)
        gate = asyncio.Semaphore(500)

        async def join(name):
            async with gate:
                reader, writer = await asyncio.open_connection(self.address, self.port)
                writer.write(introduction(await reader.readexactly(4), name))
                return reader, writer, await reader.readexactly(4)

        async def talk(one, other):
            (reader1, writer1, _), (reader2, writer2, _) = one, other
            there = rng.randbytes(int(2 ** rng.uniform(0, 16)))
            back = rng.choice((b"", rng.randbytes(int(2 ** rng.uniform(0, 16)))))
            writer1.write(there)
            writer2.write(back)
            self.assertTrue(await reader1.readexactly(len(back)) == back)
            writer1.close()
            self.assertTrue(await reader2.read(-1) == there)
            writer2.close()

        async def everything():
            before = self.memory()
            names = [b"%d" % i for i in range(PAIRS)]
            firsts = await asyncio.gather(*map(join, names))
            seconds = await asyncio.gather(*map(join, names))
            self.assertEqual({bytes(4)}, {status for *_, status in firsts})
            self.assertEqual({bytes([127, 0, 0, 1])}, {status for *_, status in seconds})
            pairs = [pair if rng.random() < 0.5 else pair[::-1] for pair in zip(firsts, seconds)]
            await asyncio.gather(*(talk(*pair) for pair in pairs))
            self.assertLess(self.memory() - before, PAIRS * 40_000 + (8 << 20))

        asyncio.run(everything())


if __name__ == "__main__":
    unittest.main()
