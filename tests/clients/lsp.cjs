// tovik-lsp from the side of the protocol's own client library: a workspace, and a table of what is asked.
'use strict';
const assert = require('node:assert');
const child = require('node:child_process');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { pathToFileURL } = require('node:url');
const rpc = require('vscode-languageserver-protocol/node');

const FILES = {
    'main.k': `// caf\u00e9 \u{1f600}
        cp      vga_color ten   // \u{1f600} behind
loop    add     sum sum one
        be      loop zero sum
        call    fill fill_ret
        cp      0x80000001 one
        cpdata  letter 65
        halt
sum     .data   0
letter  .data   0
one     .data   1
zero    .data   0
ten     .data   10
#include lib/my%20vga.k
`,
    'other.k': '        cp      fill_ret fill_ret\n        halt\n#include lib/../lib/my%20vga.k\n',
    'lib/my%20vga.k': 'fill    cp      0x80000067 vga_color // tovik: allow command-not-set\n        cp      vga_z zero\n        ret     fill_ret\nfill_ret .data  0\nvga_color .data 0\nvga_z .data 0\n',
    // Its own subroutine makes no part of a program of it. The table may go on beyond its end.
    'deep/forever.k': `start   call    sub back
        be      start typo typo
sub     cpta    back table three
        ret     back
back    .data   0
// from here on
table   .data   0
#include ../three.k
`,
    'three.k': 'three   .data   3\n',
    'alone.k': 'share   cp      shared one\n        ret     sub_ret\nsub_ret .data   0\n',
};
const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'lsp '));
const uriOf = (name) => pathToFileURL(path.join(folder, name)).href;
const nameOf = (uri) => path.relative(folder, require('node:url').fileURLToPath(uri));
for (const [name, text] of Object.entries(FILES)) {
    fs.mkdirSync(path.dirname(path.join(folder, name)), { recursive: true });
    fs.writeFileSync(path.join(folder, name), text);
}

const server = child.spawn(path.join(process.env.TOVIK_BIN, 'tovik-lsp'), ['--stdio'], { stdio: ['pipe', 'pipe', 'inherit'] });
const ended = new Promise((resolve) => server.on('exit', resolve));
const connection = rpc.createProtocolConnection(
    new rpc.StreamMessageReader(server.stdout), new rpc.StreamMessageWriter(server.stdin));
const published = {};
const problems = [];
connection.onNotification(rpc.PublishDiagnosticsNotification.type, ({ uri, diagnostics }) => {
    published[nameOf(uri)] = diagnostics;
});
connection.onNotification(rpc.LogMessageNotification.type, ({ message }) => problems.push(message));
let registered;
connection.onRequest(rpc.RegistrationRequest.type, ({ registrations }) => { registered = registrations; });
connection.listen();

const texts = { ...FILES };
// The place of a word's nth occurrence, and so many characters further.
function at(name, word, nth = 1, further = 0) {
    let offset = -1;
    for (let i = 0; i < nth; ++i) offset = texts[name].indexOf(word, offset + 1);
    assert(offset >= 0, word);
    const lines = texts[name].slice(0, offset).split('\n');
    return { line: lines.length - 1, character: lines.at(-1).length + further };
}
const here = (name, ...place) => ({ textDocument: { uri: uriOf(name) }, position: at(name, ...place) });
const words = (edits, name) => edits.map(({ range, newText }) => [range.start.line, texts[name].split('\n')[range.start.line]
    .slice(range.start.character, range.end.character), newText]);
const open = (name) => connection.sendNotification(rpc.DidOpenTextDocumentNotification.type,
    { textDocument: { uri: uriOf(name), languageId: 'k24', version: 1, text: texts[name] } });
let version = 1;
// Replaces a word, incrementally.
function change(name, word, text) {
    const start = at(name, word);
    texts[name] = texts[name].replace(word, text);
    return connection.sendNotification(rpc.DidChangeTextDocumentNotification.type, {
        textDocument: { uri: uriOf(name), version: ++version },
        contentChanges: [{ range: { start, end: { line: start.line, character: start.character + word.length } }, text }],
    });
}
const codes = (name) => published[name].map(({ code, severity }) => `${code} ${severity}`).join();
// What is published before a request is answered has come.
const settle = () => connection.sendRequest('textDocument/foldingRange', here('main.k', 'loop')).catch(() => {});

const hovers = [
    [['main.k', 'add'], /`add a b c`\n\nPuts b \+ c into a\.\n\n- `a`: .*written\n- `b`: .*read/],
    [['main.k', 'one', 2], /`one`: address `\d+` = `0x.*\n\nHolds `1` = `0x1` when .*\n\nDefined in line 11 of main\.k, used 2 times/],
    [['lib/my%20vga.k', '0x80000067', 1, 10], /screen.*color to write, written: red.*\. Bits 14-0\.\n\nWrite the parameters.*\./],
    [['main.k', '0x80000001'], /\n\n\*\*red LEDs\*\*, written: .*\. Bits 17-0\.$/],
    [['main.k', '65'], /`65` = `0x41` = `'A'`/],
    [['main.k', 'fill'], /Defined in line 1 of my%20vga\.k/],
    [['main.k', 'lib/'], /lib\/my%20vga\.k/],
];
const completions = [
    [['main.k', 'add', 1, 2], 'cpdata', { detail: 'cpdata a N', textEdit: { newText: 'cpdata' } }],
    [['main.k', 'halt'], 'add', { insertTextFormat: 2, textEdit: { newText: 'add     ${1:a} ${2:b} ${3:c}' } }],
    [['main.k', 'sum', 2, 2], 'vga_color', { textEdit: { newText: 'vga_color' } }],
    [['main.k', 'one', 2], 'LCD: character', { textEdit: { newText: '0x80000014' } }],
    [['main.k', 'lib/', 1, 3], 'lib/my%20vga.k', { kind: 17 }],
    [['deep/forever.k', '../', 1, 2], '../three.k', { kind: 17 }],
];

async function walk() {
    const initialized = await connection.sendRequest(rpc.InitializeRequest.type, {
        processId: process.pid, rootUri: null, workspaceFolders: [{ uri: pathToFileURL(folder).href, name: 'work' }],
        capabilities: {
            workspace: { didChangeWatchedFiles: { dynamicRegistration: true } },
            textDocument: {
                hover: { contentFormat: ['markdown'] }, completion: { completionItem: { snippetSupport: true } },
                documentSymbol: { hierarchicalDocumentSymbolSupport: true },
            },
        },
    });
    const legend = initialized.capabilities.semanticTokensProvider.legend;
    await connection.sendNotification(rpc.InitializedNotification.type, {});

    // A file's program is the one that includes it; without one, what it does not define is a hint.
    await open('lib/my%20vga.k');
    await open('alone.k');
    await open('deep/forever.k');
    await open('main.k');
    await settle();
    assert.equal(registered[0].method, 'workspace/didChangeWatchedFiles');
    assert.equal(codes('main.k') + codes('lib/my%20vga.k'), '');
    assert.match(codes('alone.k'), /^undefined-label 4,undefined-label 4$/);
    assert.equal(codes('deep/forever.k'), 'undefined-label 1');

    for (const [place, expected] of hovers) {
        const { contents } = await connection.sendRequest(rpc.HoverRequest.type, here(...place));
        assert.match(contents.value, expected);
    }
    for (const [place, label, expected] of completions) {
        const { items } = await connection.sendRequest(rpc.CompletionRequest.type, here(...place));
        const item = items.find((one) => one.label === label);
        assert(item, `${label} in ${items.map((one) => one.label)}`);
        for (const [key, value] of Object.entries(expected)) {
            assert.deepEqual(key === 'textEdit' ? { newText: item.textEdit.newText } : item[key], value);
        }
    }
    const signature = await connection.sendRequest(rpc.SignatureHelpRequest.type, here('main.k', 'zero', 1));
    assert.deepEqual([signature.signatures[0].label, signature.activeParameter], ['be a b c', 1]);
    assert.equal(await connection.sendRequest(rpc.SignatureHelpRequest.type, here('main.k', '// \u{1f600} behind')), null);

    // Of two programs that have a file the one that was opened last counts.
    const uses = async () => (await connection.sendRequest(rpc.HoverRequest.type, here('lib/my%20vga.k', 'fill_ret')))
        .contents.value.match(/used (.*)/)[1];
    assert.equal(await uses(), '2 times');
    await open('other.k');
    assert.equal(await uses(), '3 times');
    assert.equal(codes('lib/my%20vga.k'), 'undefined-label 1');
    await connection.sendNotification(rpc.DidCloseTextDocumentNotification.type, { textDocument: { uri: uriOf('other.k') } });
    await settle();
    assert.equal(codes('lib/my%20vga.k'), '');

    // Behind what takes two units of UTF-16, and over the include.
    const definition = await connection.sendRequest(rpc.DefinitionRequest.type, here('main.k', 'vga_color'));
    assert.deepEqual([nameOf(definition.uri), definition.range.start.line], ['lib/my%20vga.k', 4]);
    const references = await connection.sendRequest(rpc.ReferencesRequest.type,
        { ...here('main.k', 'vga_color'), context: { includeDeclaration: true } });
    assert.deepEqual(references.map(({ uri }) => nameOf(uri)), ['main.k', 'lib/my%20vga.k', 'lib/my%20vga.k']);
    const symbols = await connection.sendRequest(rpc.DocumentSymbolRequest.type, here('main.k', 'loop'));
    assert.deepEqual(symbols.map(({ name, kind }) => `${name} ${kind}`),
        ['loop 20', 'sum 13', 'letter 13', 'one 14', 'zero 14', 'ten 14', 'lib/my%20vga.k 1']);
    const folds = await connection.sendRequest(rpc.FoldingRangeRequest.type, here('main.k', 'loop'));
    assert.deepEqual(folds, [{ startLine: 2, endLine: 12 }]);
    const { data } = await connection.sendRequest(rpc.SemanticTokensRequest.type, here('main.k', 'loop'));
    const [, , , , , line, column, length, type] = data; // the second one: cp
    assert.deepEqual([line, column, length, legend.tokenTypes[type]], [1, 8, 2, 'keyword']);
    assert.deepEqual(data.slice(20, 24), [0, 6, '// \u{1f600} behind'.length, legend.tokenTypes.indexOf('comment')]);

    // Another program that has the file is renamed in too.
    const rename = (name, ...place) => connection.sendRequest(rpc.RenameRequest.type, { ...here(...place), newName: name });
    const { changes } = await rename('done', 'main.k', 'fill_ret');
    assert.deepEqual(Object.keys(changes).map(nameOf).sort(), ['lib/my%20vga.k', 'main.k', 'other.k']);
    assert.deepEqual(words(changes[uriOf('other.k')], 'other.k'), [[0, 'fill_ret', 'done'], [0, 'fill_ret', 'done']]);
    for (const bad of ['1st', 'a b', '', 'a//b', 'a/', '#include', '-x', 'sum']) {
        await assert.rejects(rename(bad, 'main.k', 'fill_ret'), { code: -32803 }, bad);
    }

    // Spelling, a number, a constant that is missing; the place of a fault in a comment's line.
    await change('main.k', 'vga_color ten', 'vga_colour eleven');
    await change('main.k', '0x80000001', '80000001h');
    await change('main.k', 'sum sum one', 'sum sum 7');
    await settle();
    assert.deepEqual(published['main.k'].map(({ code, range }) => [code, range.start]), [
        ['undefined-label', at('main.k', 'vga_colour')], ['undefined-label', at('main.k', 'eleven')],
        ['malformed-number', at('main.k', '80000001h')], ['bare-number', at('main.k', '7')]]);
    const { uri } = here('main.k', 'loop').textDocument;
    const actions = await connection.sendRequest(rpc.CodeActionRequest.type, {
        textDocument: { uri }, context: { diagnostics: [] },
        range: { start: { line: 0, character: 0 }, end: { line: 99, character: 0 } },
    });
    const made = actions.flatMap(({ edit }) => words(edit.changes[uri], 'main.k'));
    for (const expected of [[1, 'vga_colour', 'vga_color'], [5, '80000001h', '0x80000001'],
        [13, '', 'eleven          .data   11\n'], [13, '', 'seven           .data   7\n'], [2, '7', 'seven']]) {
        assert(made.some((one) => JSON.stringify(one) === JSON.stringify(expected)), JSON.stringify(made));
    }

    // Also where the name stands again, and never behind an array that may go on.
    const second = at('deep/forever.k', 'typo', 2, 1);
    const [add] = await connection.sendRequest(rpc.CodeActionRequest.type, {
        ...here('deep/forever.k', 'start'), context: { diagnostics: [] }, range: { start: second, end: second },
    });
    assert.deepEqual(words(add.edit.changes[uriOf('deep/forever.k')], 'deep/forever.k'), [[5, '', 'typo            .data   0\n']]);

    // A library's change, and its return to what the disk has, show in the programs above it.
    await change('lib/my%20vga.k', 'vga_color', 'colour');
    await settle();
    assert.match(codes('lib/my%20vga.k'), /^undefined-label 1$|^$/);
    await change('main.k', 'vga_colour eleven', 'vga_color ten');
    await change('main.k', '80000001h', '0x80000001');
    await change('main.k', 'sum sum 7', 'sum sum one');
    await connection.sendNotification(rpc.DidCloseTextDocumentNotification.type,
        { textDocument: { uri: uriOf('lib/my%20vga.k') } });
    await settle();
    assert.equal(codes('main.k'), '');
    fs.writeFileSync(path.join(folder, 'lib/my%20vga.k'), 'fil\n');
    await connection.sendNotification(rpc.DidChangeWatchedFilesNotification.type,
        { changes: [{ uri: uriOf('lib/my%20vga.k'), type: 2 }] });
    await settle();
    assert.match(codes('main.k'), /^(undefined-label 1,?){3}$/);

    // Nothing that was not understood.
    assert.deepEqual(problems, []);
    await connection.sendRequest(rpc.ShutdownRequest.type);
    await connection.sendNotification(rpc.ExitNotification.type);
    assert.equal(await ended, 0);
}

process.on("exit", () => fs.rmSync(folder, { recursive: true }));
walk().then(() => process.exit(0), (error) => {
    console.error(error);
    server.kill();
    process.exit(1);
});
