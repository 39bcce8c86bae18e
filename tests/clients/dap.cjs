// tovik-dap from the side of the protocol's own client library for tests: an example forwards and backwards, a program
// with a fault, and a table of what must be refused.
'use strict';
const assert = require('node:assert');
const fs = require('node:fs');
const net = require('node:net');
const os = require('node:os');
const path = require('node:path');
const { DebugClient } = require('@vscode/debugadapter-testsupport');

const BROKEN = `// Says "OK" on the serial console and the LCD, and divides by 0.
start   be      start switches one // until switch 0 is off
        cp      letter letter_o
        call    send send_ret
        cp      letter letter_k
        call    send send_ret
        cp      0x80000014 letter
        cp      0x80000010 one
        div     letter letter zero
        halt
send    cp      0x800000a2 letter
        cp      0x800000a0 one
wait    cp      done 0x800000a1
        be      wait done zero
        cp      0x800000a0 zero
        cp      switches 0x80000000
        ret     send_ret
send_ret .data  0
letter  .data   0
letter_o .data  79
letter_k .data  75
done    .data   0
switches .data  1
one     .data   1
zero    .data   0
spin    cp      switches 0x80000000
        be      spin one one
`;
const PARROT = `next    cp      0x80000090 one
wait    cp      got 0x80000091
        be      wait got zero
        cp      0x800000a2 0x80000092
        cp      0x80000090 zero
        cp      0x800000a0 one
busy    cp      got 0x800000a1
        be      busy got zero
        cp      0x800000a0 zero
        be      next zero zero
got     .data   0
one     .data   1
zero    .data   0
`;
// Plays what the microphone hears.
const LOOP = `next    cp      0x80000050 one
wait    cp      got 0x80000051
        be      wait got zero
        cp      0x80000042 0x80000052
        cp      0x80000040 one
        cp      0x80000050 zero
        cp      0x80000040 zero
        be      next zero zero
got     .data   0
one     .data   1
zero    .data   0
`;
// Writes the first word of four blocks; the last one stays in the buffer.
const NOTES = `next    cp      0x80000083 place
        cp      0x80000084 word
        cp      0x80000082 one
        cp      0x80000080 one
wait    cp      got 0x80000081
        be      wait got zero
        cp      0x80000080 zero
        add     place place block
        bne     next place end
        halt
place   .data   0
word    .data   5
block   .data   128
end     .data   512
got     .data   0
one     .data   1
zero    .data   0
`;
const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'dap '));
fs.cpSync(process.env.TOVIK_EXAMPLES, folder, { recursive: true });
const pathOf = (name) => path.join(folder, name);
fs.writeFileSync(pathOf('broken.k'), BROKEN);
fs.writeFileSync(pathOf('parrot.k'), PARROT);
fs.writeFileSync(pathOf('notes.k'), NOTES);
fs.writeFileSync(pathOf('loop.k'), LOOP);
// From 1.
function lineOf(name, text) {
    const line = fs.readFileSync(pathOf(name), 'utf8').split('\n').findIndex((one) => one.includes(text)) + 1;
    assert(line > 0, text);
    return line;
}

let client;
let output;
const events = [];
async function begin(name, options) {
    client = new DebugClient('env', path.join(process.env.TOVIK_BIN, 'tovik-dap'), 'k24', undefined, true);
    client.defaultTimeout = 20000;
    output = { console: '', stdout: '', stderr: '', important: '' };
    await client.start();
    client.on('output', ({ body }) => { output[body.category] += body.output; });
    for (const event of ['breakpoint', 'invalidated', 'tovik/board']) {
        client.on(event, ({ body }) => events.push([event, body]));
    }
    const { body } = await client.initializeRequest({ adapterID: 'k24', pathFormat: 'path', supportsInvalidatedEvent: true });
    await Promise.all([client.waitForEvent('initialized'), client.launchRequest({ program: pathOf(name), ...options })]);
    return body;
}
const end = () => client.stop();

// Does what goes on, and returns where and why it has stopped: "REASON FILE:TEXT OF THE LINE".
async function to(doing) {
    const [{ body: stop }] = await Promise.all([client.waitForEvent('stopped'), doing]);
    const frame = (await client.stackTraceRequest({ threadId: 1 })).body.stackFrames[0];
    const text = fs.readFileSync(frame.source.path, 'utf8').split('\n')[frame.line - 1];
    return `${stop.reason} ${path.basename(frame.source.path)}: ${text.split('//')[0].trim().replace(/\s+/g, ' ')}`;
}
const go = (command, args = {}) => to(client.customRequest(command, { threadId: 1, ...args }));
const ask = async (command, args) => (await client.customRequest(command, args)).body;
const value = async (expression, context = 'watch') => (await ask('evaluate', { expression, context })).result;
const setLines = async (name, ...breakpoints) =>
    (await ask('setBreakpoints', { source: { path: pathOf(name) }, breakpoints })).breakpoints;
const call = 'call divide divide_return';

async function forwardsAndBackwards() {
    const capabilities = await begin('sort.k', { stopOnEntry: true });
    assert(capabilities.supportsStepBack && capabilities.supportsDataBreakpoints);
    const [moved, kept, wrong, nowhere] = await setLines('sort.k', { line: lineOf('sort.k', '// Compare each') },
        { line: lineOf('sort.k', 'call    divide') }, { line: 10, condition: 'index +' }, { line: 99999 });
    assert.deepEqual([moved.verified, moved.line, kept.verified, wrong.verified, nowhere.verified],
        [true, lineOf('sort.k', '// Compare each') + 1, true, false, false]);
    assert.match(wrong.message, /column 8/);
    assert.equal(await to(client.configurationDoneRequest()), 'entry sort.k: cpdata index 0');
    const { first, now } = await ask('tovik/history');
    assert.deepEqual([first, now], [0, 0]);

    assert.equal(await go('continue'), `breakpoint sort.k: ${call}`);
    assert.equal(await go('stepIn'), 'step muldiv.k: divide div divide_quotient divide_dividend divide_divisor');
    const { stackFrames } = await ask('stackTrace', { threadId: 1 });
    assert.deepEqual(stackFrames.map(({ name, line }) => [name, line]),
        [['divide', lineOf('lib/muldiv.k', 'divide          div')], ['main', kept.line]]);
    const behind = 'cpta divide_remainder numbers index';
    assert.equal(await go('stepOut'), `step sort.k: ${behind}`);
    assert.equal(await go('stepBack'), `step sort.k: ${call}`);
    assert(events.some(([event]) => event === 'invalidated'));
    assert.equal(await go('next'), `step sort.k: ${behind}`);
    assert.equal(await go('stepBack', { granularity: 'instruction' }), 'step muldiv.k: ret divide_return');
    assert.equal(await go('reverseContinue'), `breakpoint sort.k: ${call}`);
    assert.equal(await go('reverseContinue'), 'entry sort.k: cpdata index 0');
    assert.equal(await go('continue'), `breakpoint sort.k: ${call}`);
    assert.equal(await go('next'), `step sort.k: ${behind}`);

    // What the words hold, and which have changed.
    const { scopes } = await ask('scopes', { frameId: 1 });
    assert.deepEqual(scopes.slice(0, 4).map(({ name }) => name), ['Labels', 'Memory', 'switches, LEDs, displays, timer', 'LCD']);
    const [{ variablesReference: labels }, { variablesReference: memory }, , { variablesReference: lcd }] = scopes;
    const variable = async (reference, wanted) =>
        (await ask('variables', { variablesReference: reference })).variables.find(({ name }) => name === wanted);
    assert.equal((await variable(labels, 'count')).value, '1000 (0x3e8)');
    assert.equal((await variable(labels, 'count')).presentationHint, undefined);
    assert.deepEqual((await variable(labels, 'divide_remainder')).presentationHint, { attributes: ['changed'] });
    assert.equal((await variable(labels, 'loop')), undefined);
    assert.deepEqual((await variable(lcd, 'response')).presentationHint, { attributes: ['readOnly'] });
    const hex = await ask('variables', { variablesReference: (await variable(memory, '0-255')).variablesReference, start: 4, count: 2, format: { hex: true } });
    assert.deepEqual(hex.variables.map(({ name, value: shown }) => [name, shown.slice(0, 2)]), [['4', '0x'], ['5', '0x']]);

    // What changes them. Five numbers are enough.
    assert.equal((await ask('setVariable', { variablesReference: labels, name: 'count', value: '2 + 3' })).value, '5 (0x5)');
    assert.equal((await ask('setExpression', { expression: 'range', value: '0x64' })).value, "100 (0x64, 'd')");
    assert.equal(await value('count * 2 + &index - &index'), '10 (0xa)');
    assert.equal(await value('sixteen = 16 + 0', 'repl'), '16 (0x10)');
    assert.match(await value('last write count', 'repl'), /the user/);
    const { targets } = await ask('completions', { text: 'x + divide_qu', column: 14 });
    assert.deepEqual(targets, [{ label: 'divide_quotient', type: 'variable', start: 5, length: 9 }]);

    // A write of a word; conditions, hits and logs.
    await setLines('sort.k', { line: lineOf('sort.k', 'blt     fill'), hitCondition: '3' },
        { line: lineOf('sort.k', 'cpfa    lower'), condition: 'index == 2' },
        { line: lineOf('sort.k', 'cpfa    higher'), logMessage: 'next {index}' });
    const { dataId } = await ask('dataBreakpointInfo', { variablesReference: labels, name: 'increment' });
    const info = await ask('dataBreakpointInfo', { name: 'index' });
    assert.deepEqual([info.accessTypes, (await ask('dataBreakpointInfo', { name: '3 + 4' })).dataId], [['read', 'write', 'readWrite'], null]);
    const watch = async (...breakpoints) => (await ask('setDataBreakpoints', { breakpoints })).breakpoints;
    const [watched] = await watch({ dataId: info.dataId, accessType: 'write' }, { dataId, accessType: 'read', condition: 'index == 1' });
    assert.equal(await go('continue'), 'data breakpoint sort.k: blt fill index count');
    assert.equal(await go('reverseContinue'), 'data breakpoint sort.k: fill mult random random multiplier');
    await watch({ dataId, accessType: 'read', condition: 'index == 1' });
    assert.equal(await go('continue'), 'data breakpoint sort.k: sr divide_dividend random sixteen');
    await watch();
    assert.equal(await go('continue'), 'breakpoint sort.k: blt fill index count');
    assert.equal(await value('index'), '3 (0x3)');
    assert.equal(await go('continue'), 'breakpoint sort.k: check cpfa lower numbers index');
    assert.equal(await value('index'), '2 (0x2)');
    assert.equal(output.console, 'next 1\nnext 2\n');
    const written = await ask('tovik/lastWrite', { expression: 'index' });
    assert.match(written.place, /sort\.k:\d+: add\s+index index one$/);
    assert.equal(await go('continue'), 'halt sort.k: halt');
    assert.equal(await go('tovik/goTo', { moment: written.moment }), 'goto sort.k: cpfa higher numbers index');
    assert.equal(await value('index'), '2 (0x2)');

    // Bytes and instructions.
    const reference = (await ask('evaluate', { expression: 'count', context: 'hover' })).memoryReference;
    const bytes = async () => [...Buffer.from((await ask('readMemory', { memoryReference: reference, count: 5 })).data, 'base64')];
    assert.deepEqual(await bytes(), [5, 0, 0, 0, 100]);
    await ask('writeMemory', { memoryReference: reference, offset: 1, data: Buffer.from([1, 0, 0, 7]).toString('base64') });
    assert.deepEqual(await bytes(), [5, 1, 0, 0, 7]);
    const pc = (await ask('stackTrace', { threadId: 1 })).stackFrames[0].instructionPointerReference;
    const { instructions } = await ask('disassemble', { memoryReference: pc, instructionOffset: -1, instructionCount: 3 });
    assert.deepEqual(instructions.map(({ instruction }) => instruction.replace(/^\d+: /, '')),
        ['add index index one', 'cpfa higher numbers index', 'blt show higher lower']);
    const far = await ask('disassemble', { memoryReference: '0x0', instructionOffset: -2, instructionCount: 3 });
    assert.deepEqual(far.instructions.map(({ presentationHint }) => presentationHint), ['invalid', 'invalid', undefined]);
    await setLines('sort.k');
    await ask('setInstructionBreakpoints', { breakpoints: [{ instructionReference: instructions[1].address, offset: 16 }] });
    assert.equal(await go('continue'), 'breakpoint sort.k: blt show higher lower');
    const [show] = (await ask('gotoTargets', { source: { path: pathOf('sort.k') }, line: lineOf('sort.k', 'show   ') })).targets;
    assert.equal(await go('goto', { targetId: show.id }), 'goto sort.k: show cpdata index 0');
    const { sources } = await ask('loadedSources');
    assert.deepEqual(sources.map(({ name }) => name), ['sort.k', 'muldiv.k', 'decimal.k', 'sort.k']);

    // Anew, with what has changed in the source; breakpoints keep their numbers.
    const [before] = await setLines('sort.k', { line: lineOf('sort.k', 'call    divide') });
    fs.writeFileSync(pathOf('sort.k'), fs.readFileSync(pathOf('sort.k'), 'utf8').replace('fill  ', ' cp index index\nfill  '));
    events.length = 0;
    assert.equal(await go('restart'), 'entry sort.k: cpdata index 0');
    const [[, { breakpoint }]] = events.filter(([event]) => event === 'breakpoint');
    assert.deepEqual([breakpoint.id, breakpoint.line], [before.id, before.line]);
    assert(watched.id !== before.id);
    assert.equal(await go('continue'), 'breakpoint sort.k: cp divide_divisor range');
    await end();
}

async function faultAndBoard() {
    await begin('broken.k', { switches: 1, board: true });
    await client.configurationDoneRequest();
    await assert.rejects(ask('stackTrace', { threadId: 1 }), /the program runs/);
    assert.equal(await go('pause'), 'pause broken.k: start be start switches one');
    await Promise.all([ask('tovik/switch', { number: 0, on: false }), ask('setExpression', { expression: 'switches', value: '0' })]);
    assert.equal(await go('continue'), 'exception broken.k: div letter letter zero');
    assert.equal(output.stdout, 'OK');
    assert.match(output.console, /^LCD: K +\| +\n$/);
    assert.match(output.stderr, /^error at PC \d+\ndivision by zero/);
    const { exceptionId, description } = await ask('exceptionInfo', { threadId: 1 });
    assert.match(exceptionId, /^error at PC/);
    assert.match(description, /^division by zero\n[^]*broken\.k:9: div/);
    const board = () => Object.assign({}, ...events.filter(([event]) => event === 'tovik/board').map(([, body]) => body));
    while (board().lcd[0].trim() !== 'K') await client.waitForEvent('tovik/board');
    assert.deepEqual([board().switches, board().screen[0].width], [0, 640]);

    // Back before the fault it is another program; what is sent again is not told again.
    output.console = '';
    assert.equal(await go('reverseContinue'), 'entry broken.k: start be start switches one');
    assert.equal(await go('continue'), 'exception broken.k: div letter letter zero');
    assert.equal(output.console, '');
    assert.equal(await go('stepBack'), 'step broken.k: div letter letter zero');
    await ask('setExpression', { expression: 'zero', value: '3' });
    assert.equal(await go('continue'), 'halt broken.k: halt');
    assert.equal(await value('letter'), '25 (0x19)');
    assert.equal(output.stdout, 'OK');

    // One that stops at a halt for good, and one that cannot be assembled.
    await end();
    fs.writeFileSync(pathOf('halt.k'), '\thalt\n');
    await begin('halt.k', { noDebug: true });
    await Promise.all([client.waitForEvent('terminated'), client.waitForEvent('exited'), client.configurationDoneRequest()]);
    await assert.rejects(ask('stackTrace', { threadId: 1 }), /there is no program/);
    await end();
    fs.writeFileSync(pathOf('halt.k'), '\tstop\n');
    await assert.rejects(begin('halt.k'), /halt\.k.*\b1\b[^]*stop/);
    await end();
}

const until = async (holds) => { while (!holds()) await new Promise((resolve) => setTimeout(resolve, 10)); };

// What the user does at the board while the program runs.
async function input() {
    await begin('parrot.k', { speed: 'board' });
    await client.configurationDoneRequest();
    await ask('tovik/serial', { text: 'hi' });
    await until(() => output.stdout.includes('hi'));
    await ask('tovik/serial', { data: Buffer.from('ho').toString('base64') });
    await until(() => output.stdout.includes('ho'));
    await go('pause');
    const { now } = await ask('tovik/history');
    await client.continueRequest({ threadId: 1 });
    const start = Date.now();
    await new Promise((resolve) => setTimeout(resolve, 500));
    await go('pause');
    const speed = ((await ask('tovik/history')).now - now) / (Date.now() - start);
    assert(speed > 1000 && speed < 10000, `${speed} instructions a millisecond`);
    await end();

    events.length = 0;
    await begin('keyboard_echo.k', { board: true });
    await client.configurationDoneRequest();
    await ask('tovik/key', { code: 'o'.charCodeAt(0) });
    await ask('tovik/key', { code: 'o'.charCodeAt(0), down: false });
    await ask('tovik/key', { text: 'k' });
    await until(() => /LCD: ok/.test(output.console));
    assert.equal(output.console.match(/LCD: o/g).length, 1);
    await ask('tovik/pointer', { inside: true, x: 10, y: 10, button: 1 });
    await until(() => events.some(([, body]) => body.mouseActive));
    await end();
}

const wav = (...words) => {
    const data = Buffer.from(Int32Array.from(words).buffer);
    const format = Buffer.from('28000000feff0100401f0000007d00000400200016002000040000000100000000001000800000aa00389b71', 'hex');
    const head = Buffer.from('RIFF----WAVEfmt ').fill(0, 4, 8);
    const length = Buffer.from(Int32Array.of(data.length).buffer);
    return Buffer.concat([head, format, Buffer.from('data'), length, data]);
};

// A program that waits for what the user gives it, in its own time, and what it has played.
async function waits() {
    const said = [];
    await begin('loop.k', { waits: true, speed: 20000, board: true, sound: true });
    client.on('tovik/wanted', ({ body }) => said.push(body.question));
    await client.configurationDoneRequest();
    await ask('tovik/record', { on: true });
    await until(() => said.length === 1);
    for (const [name, content, times] of [['empty.wav', wav(), 2], ['broken.wav', 'x', 3], ['good.wav', wav(...Array(9).fill(7 << 16)), 4]]) {
        fs.writeFileSync(pathOf(name), content);
        await ask('tovik/answer', { question: 'microphone', answer: pathOf(name) });
        await until(() => said.length === times);
    }
    assert.deepEqual(said, ['microphone', 'microphone', 'microphone', null]);
    assert.match(output.stderr, /not a WAV file/);
    await until(() => said.length === 5); // its samples are over
    await go('pause');
    const { now } = await ask('tovik/history');
    assert(now > 9 * 833 && now < 11 * 833, `${now}`);
    await ask('tovik/saveRecording', { file: pathOf('said.wav') });
    assert.equal(fs.readFileSync(pathOf('said.wav')).readInt32LE(fs.statSync(pathOf('said.wav')).size - 4), 7 << 16);
    await assert.rejects(ask('tovik/answer', { question: 'sd', answer: 'x.k' }), /source/);
    await ask('tovik/speed', { speed: 'max' });
    await end();
}

// What the SD card's file holds after a change in the past.
async function card() {
    const file = pathOf('card');
    const first = () => fs.readFileSync(file).readInt32LE(0);
    const afterChange = async (word) => {
        assert.equal(await go('continue'), 'halt notes.k: halt');
        assert.equal(await go('reverseContinue'), 'entry notes.k: next cp 0x80000083 place');
        await ask('setExpression', { expression: 'word', value: word });
        return first();
    };
    fs.writeFileSync(file, Buffer.alloc(2048, 1));
    await begin('notes.k', { sd: file, stopOnEntry: true });
    await to(client.configurationDoneRequest());
    await assert.rejects(afterChange('6'), /"card goes back" or "card stays"/);
    const { newest } = await ask('tovik/history');
    assert(newest > 0);
    assert.match(await value('card stays', 'repl'), /stays/);
    await ask('setExpression', { expression: 'word', value: '6' });
    assert.equal(first(), 5);
    await assert.rejects(afterChange('7'), /card/);
    assert.equal(first(), 6);
    await ask('tovik/card', { goesBack: true });
    assert.equal(await afterChange('7'), 5);
    await end();
    for (const [cardGoesBack, left] of [[true, 5], [false, 7]]) {
        await begin('notes.k', { sd: file, stopOnEntry: true, cardGoesBack });
        await to(client.configurationDoneRequest());
        await ask('setExpression', { expression: 'word', value: '7' });
        assert.equal(await afterChange('8'), left);
        await end();
    }
}

// A line that breaks, and another future from where it was still there.
async function lostLine() {
    let line;
    const relay = net.createServer((socket) => {
        line = socket;
        socket.write(Buffer.alloc(4));
        socket.once('data', () => socket.write(Buffer.alloc(4)));
    });
    process.env.TOVIK_RELAY_HOST = '127.0.0.99';
    await new Promise((resolve) => relay.listen(10000, process.env.TOVIK_RELAY_HOST, resolve));
    await begin('parrot.k', { serial: ['ab', 'ab', 'ab'] });
    await client.configurationDoneRequest();
    await until(() => output.console.includes('Connected'));
    await go('pause');
    const { now } = await ask('tovik/history');
    relay.close();
    line.destroy();
    assert.match(await go('continue'), /^exception /);
    await ask('tovik/goTo', { moment: now });
    await ask('setExpression', { expression: 'got', value: '0' });
    assert.match(await go('continue'), /^exception /);
    await end();
}

// The manual's page about going backwards, and its two exercises.
async function debuggingPage() {
    const page = fs.readFileSync(process.env.TOVIK_EXAMPLES + '/../docs/debugging.md', 'utf8');
    const name = 'exercises/average.k';
    assert(page.includes(fs.readFileSync(pathOf(name), 'utf8')));
    await begin(name);
    assert.equal(await go('configurationDone'), 'halt average.k: halt');
    assert.match(await value('count'), /^36 /);
    assert.match(await value('sum'), /^16206 /);
    const answer = (await value('last write count', 'repl')).replace(/, [^,]*\/average\.k/, ', average.k');
    assert(page.includes(`    ${answer}\n`), answer);
    const { dataId } = await ask('dataBreakpointInfo', { name: 'count' });
    await ask('setDataBreakpoints', { breakpoints: [{ dataId, accessType: 'write' }] });
    assert.equal(await go('reverseContinue'), 'data breakpoint average.k: cp i n');
    assert.deepEqual([await value('i'), await value('n')], ['5 (0x5)', '6 (0x6)']);
    await end();

    await begin('exercises/minutes.k');
    await client.configurationDoneRequest();
    assert.match(await go('pause'), /^pause minutes\.k: (add seconds seconds more|ret return)$/);
    assert.match(await value('last write return', 'watch'), /minutes\.k:\d+: call from_hours return/);
    await end();

    await begin('exercises/keys.k');
    await client.configurationDoneRequest();
    await ask('tovik/key', { text: 'ab' });
    assert.match(await go('pause'), /^pause keys\.k: /);
    assert.deepEqual([await value('count'), await value('keyboard.command')], ['1 (0x1)', '1 (0x1)']);
    await end();
}

const REFUSED = [
    ['launch', { program: 'a.k' }, /has been launched/],
    ['initialize', {}, /has been done/],
    ['attach', {}, /launched/],
    ['configurationDone', {}, /once/],
    ['threads', [1], /not an object/],
    ['fly', {}, /no request fly/],
    ['setBreakpoints', { source: { path: 7 } }, /path is not a text/],
    ['setBreakpoints', { source: { path: 'a.k' }, breakpoints: { line: 1 } }, /not a list/],
    ['setBreakpoints', { source: { path: 'a.k' }, breakpoints: [{ line: 1e30 }] }, /line is not a number/],
    ['setDataBreakpoints', { breakpoints: [{ dataId: '99999' }] }, /99999/],
    ['setDataBreakpoints', { breakpoints: [{ dataId: '0', accessType: 'smell' }] }, /smell/],
    ['variables', { variablesReference: 77777 }, /nothing with this number/],
    ['variables', { variablesReference: 2 ** 30 + 2 ** 29 + 5 }, /nothing with this number/],
    ['setVariable', { variablesReference: 1, name: 'nobody', value: '1' }, /no variable nobody/],
    ['setVariable', { variablesReference: 1, name: 'one', value: '1 / zero' }, /zero/],
    ['setExpression', { expression: 'one + 1', value: '1' }, /no word/],
    ['evaluate', { expression: 'one +' }, /column/],
    ['evaluate', { expression: '('.repeat(100000) }, /./],
    ['goto', { targetId: 99999 }, /targetId/],
    ['exceptionInfo', {}, /no fault/],
    ['pause', {}, /does not run/],
    ['readMemory', { memoryReference: 'here', count: 1 }, /no reference/],
    ['writeMemory', { memoryReference: '0xfffe', data: 'AAAAAA==' }, /outside/],
    ['writeMemory', { memoryReference: '0x0', data: '*' }, /base64/],
    ['disassemble', { memoryReference: '0x0', instructionCount: 1e9 }, /instructionCount/],
    ['source', { source: { path: '/etc/passwd' } }, /no source/],
    ['restart', { arguments: { program: 'a.txt' } }, /neither/],
    ['setExpression', { expression: 'LCD.response', value: '1' }, /can only be read/],
    ['tovik/switch', { number: 18 }, /number/],
    ['tovik/card', {}, /goesBack/],
    ['tovik/key', { code: -1 }, /code/],
    ['tovik/serial', { data: '*' }, /base64/],
];

async function refusals() {
    const early = new DebugClient('env', path.join(process.env.TOVIK_BIN, 'tovik-dap'), 'k24');
    await early.start();
    await assert.rejects(early.launchRequest({ program: 'a.k' }), /initialize comes first/);
    await early.initializeRequest({ adapterID: 'k24', linesStartAt1: false });
    await assert.rejects(early.customRequest('stackTrace', { threadId: 1 }), /no program/);
    for (const [wrong, why] of [[{}, /program/], [{ program: 'a.txt' }, /neither/], [{ program: pathOf('none.k') }, /none\.k/],
        [{ program: pathOf('broken.k'), limit: 0 }, /limit/], [{ program: pathOf('broken.k'), speed: 'fast' }, /fast/],
        [{ program: pathOf('broken.k'), sd: pathOf('broken.k') }, /source/], [{ program: pathOf('broken.k'), serial: [1] }, /serial/]]) {
        await assert.rejects(early.launchRequest(wrong), why);
    }
    await early.launchRequest({ program: pathOf('broken.k') });
    const source = { path: pathOf('broken.k') };
    assert.equal((await early.customRequest('setBreakpoints', { source, breakpoints: [{ line: 0 }] })).body.breakpoints[0].line, 1);
    for (const [command, args] of [['continue', {}], ['goto', { targetId: 5 }], ['tovik/goTo', { moment: 0 }]]) {
        await assert.rejects(early.customRequest(command, args), /configurationDone comes first/);
    }
    await early.stop();

    await begin('broken.k', { stopOnEntry: true });
    await to(client.configurationDoneRequest());
    const deep = '['.repeat(100000);
    for (const text of ['{', '[]', 'null', '"x"', '{"type":"request"}', '{"type":"request","seq":"x","command":"threads"}', deep, '']) {
        client._adapterProcess.stdin.write(`Content-Length: ${text.length}\r\n\r\n${text}`);
    }
    client._adapterProcess.stdin.write('Content-Length: x\r\n\r\n');
    for (const [command, args, why] of REFUSED) {
        await assert.rejects(client.customRequest(command, args), why, command);
    }
    assert.equal((await ask('threads')).threads.length, 1);
    const adapter = client._adapterProcess;
    const ended = new Promise((resolve) => adapter.on('exit', resolve));
    await client.disconnectRequest();
    assert.equal(await ended, 0);
}

async function walk() {
    await forwardsAndBackwards();
    await faultAndBoard();
    await input();
    await waits();
    await card();
    await lostLine();
    await debuggingPage();
    await refusals();
}

process.on('exit', () => fs.rmSync(folder, { recursive: true }));
walk().then(() => process.exit(0), (error) => {
    console.error(error);
    if (client) client.stop();
    process.exit(1);
});
