// What comes from outside may be anything: links, pages, files, what the browser refuses, another tab, a worker that
// ends. The page says a sentence, loses nothing, runs nothing that came as a text, and goes on.

import assert from 'node:assert/strict';
import { readFileSync, truncateSync } from 'node:fs';
import { join } from 'node:path';
import { after, test } from 'node:test';
import { deflateRawSync } from 'node:zlib';
import { pathToFileURL } from 'node:url';
import { FILE_URL, fileWith, folder, native, openTab, PAGE, ROOT, startBrowser, until } from './browser.mjs';

const browser = await startBrowser(
    'chrome',
    '--use-fake-device-for-media-stream',
    '--deny-permission-prompts',
);
after(() => browser.close());

// A tab that begins anew, as on another computer. `prepare` runs before the page's own scripts.
async function freshTab(prepare = () => undefined, url = FILE_URL) {
    const context = await browser.createBrowserContext();
    const page = await context.newPage();
    await page.evaluateOnNewDocument(prepare);
    const tab = await openTab({ newPage: () => Promise.resolve(page) }, url);
    return { ...tab, close: () => context.close() };
}

// Keeps the workers, in the order in which they start: the language server's, the board's.
const keepWorkers = () => {
    window.workers = [];
    window.Worker = class extends Worker {
        constructor(...words) {
            super(...words);
            window.workers.push(this);
        }
    };
};

const PICTURE_BYTES = 614400;

const packed = (value) => `#program=${deflateRawSync(JSON.stringify(value)).toString('base64url')}`;
const given = (more) => ({
    version: 1,
    name: 'given',
    files: { 'main.k': 'halt' },
    main: 'main.k',
    text: '',
    ...more,
});
const MANY = Object.fromEntries(Array.from({ length: 201 }, (_, i) => [`${i}.k`, '']));
const EVIL = '</script><script>window.hacked = 1</script><img src="x" onerror="window.hacked = 1">';
const isHarmless = (tab) =>
    tab.page.evaluate(
        () =>
            window.hacked === undefined &&
            document.querySelector(
                '#app img, #app script, dialog img, .cm-tooltip img, a[href^="javascript:"]',
            ) === null,
    );

test('links', async (t) => {
    const right = packed(given({}));
    const missing = /cannot be read: a part of the link seems to be missing/;
    const misnamed = /with the name “.+”, which cannot be/;
    const table = {
        'a part is missing': [right.slice(0, -8), missing],
        'no base64': ['#program=%%%', missing],
        'no JSON': [
            `#program=${deflateRawSync('{"version":').toString('base64url')}`,
            /a part of it seems to be missing/,
        ],
        'another version': [packed(given({ version: 2 })), /another version of tovik/],
        'no file': [packed(given({ files: {} })), /a part of it seems to be missing/],
        'too many files': [packed(given({ files: MANY })), /more than 200 files/],
        'a name that leads out': [packed(given({ files: { '../main.k': '' } })), misnamed],
        'a name with markup': [packed(given({ files: { '<b>.k': '' } })), misnamed],
        'half a character': [packed(given({ files: { 'main.k': '', '\ud800.k': '' } })), misnamed],
        'a file that is a folder': [packed(given({ files: { 'a.k': '', 'a.k/b.k': '' } })), misnamed],
        'an assignment that takes long': [
            packed(given({ text: '>'.repeat(60) + 'a\n'.repeat(330000) })),
            /“given.*” comes with/,
        ],
        'too large': [packed(given({ files: { 'main.k': 'x'.repeat(1024 * 1024) } })), /larger than 1 MiB/],
        'as large as may be': [
            packed(given({ files: { 'main.k': '/'.repeat(1024 * 1000) } })),
            /“given.*” comes with/,
        ],
    };
    const tab = await freshTab();
    for (const [name, [hash, sentence]] of Object.entries(table)) {
        await t.test(name, async () => {
            await tab.page.goto('about:blank');
            await tab.page.goto(FILE_URL + hash);
            await until(sentence, tab.notes);
            await until(/fault|warning/, tab.status);
        });
    }
    await tab.close();
});

test('pages whose program cannot be read', async (t) => {
    const html = readFileSync(PAGE, 'utf8');
    const task = /(<script[^>]*id="tovik-task"[^>]*>)/;
    for (const [content, sentence] of [
        ['{"version":', /in this page cannot be read: a part of it/],
        [JSON.stringify(given({ files: MANY })), /in this page cannot be read: it has more than 200 files/],
    ]) {
        await t.test(content.slice(0, 12), async () => {
            const file = fileWith('broken.html', html.replace(task, `$1${content}`));
            const tab = await freshTab(undefined, pathToFileURL(file).href);
            await until(sentence, tab.notes);
            await until(/^No faults/, tab.status); // of the example
            await tab.close();
        });
    }
});

test('a program that cannot be opened leaves the other one whole', async () => {
    const tab = await freshTab();
    await tab.newProgram('precious', '// mine');
    await tab.page.evaluate(() => {
        window.kept = window.encodeURIComponent;
        window.encodeURIComponent = () => {
            throw new URIError('no');
        };
    });
    await tab.press('Examples');
    await tab.press('counter.k');
    await until(/That did not work: no\./, tab.notes);
    await tab.page.evaluate(() => (window.encodeURIComponent = window.kept));
    await tab.page.click('.cm-content');
    await tab.key('Control+End');
    await tab.page.keyboard.type(' still');
    await new Promise((resolve) => setTimeout(resolve, 600));
    await tab.page.reload();
    await until(/^\/\/ mine still/, tab.source);
    await tab.close();
});

test('what was typed when the tab ends', async () => {
    const tab = await freshTab();
    const reopened = () => openTab({ newPage: () => tab.page.browserContext().newPage() });
    await tab.newProgram('long', '// ');
    await tab.page.click('.cm-content');
    await tab.key('Control+End');
    for (const end = Date.now() + 2500; Date.now() < end;) {
        await tab.page.keyboard.type('a');
        await new Promise((resolve) => setTimeout(resolve, 50));
    }
    const session = await tab.page.createCDPSession();
    session.send('Page.crash').catch(() => undefined);
    const next = await reopened();
    await until(/aaaaa/, next.source);
    await until(/^No faults/, next.status);
    // More than the browser takes at once.
    await next.page.evaluate(() => {
        const data = new DataTransfer();
        for (const name of ['b', 'c', 'd']) {
            data.items.add(new File([`// ${name.repeat(900_000)}`], `${name}.k`));
        }
        document.body.dispatchEvent(
            new DragEvent('drop', { dataTransfer: data, bubbles: true, cancelable: true }),
        );
    });
    await next.press('Add to “long”');
    await next.press('d.k', 'tab');
    await new Promise((resolve) => setTimeout(resolve, 2000));
    await next.press(/main\.k/, 'tab');
    await next.page.click('.cm-content');
    await next.page.keyboard.type('z');
    await next.page.reload();
    await until(/z/, next.source);
    await tab.close();
});

test('a file that is deleted at once', async () => {
    const tab = await freshTab();
    await tab.newProgram('short', 'halt');
    await new Promise((resolve) => setTimeout(resolve, 600));
    await tab.page.evaluate(() => {
        document.querySelector('.cm-content').focus();
        document.execCommand('insertText', false, '// the last words ');
        document.querySelector('button[aria-label="This file"]').click();
        const choices = [...document.querySelectorAll('[role=menuitem]')];
        choices.find((one) => one.textContent === 'Delete the file').click();
    });
    await until(/is deleted/, tab.notes);
    await tab.press('Save');
    await tab.press(/^Earlier versions/, 'menuitem');
    await tab.press('main.k');
    await until(/the last words/, () => tab.text('.version-text'));
    await tab.press('Close');
    // What is there now stays, in this program and in another one.
    await tab.write('// newer');
    await tab.press('Undo');
    await tab.press('main.k', 'tab');
    await until('// newer', tab.source);
    await tab.press('This file');
    await tab.press('Delete the file', 'menuitem');
    await until(/is deleted/, tab.notes);
    await tab.newProgram('other', '// another');
    await tab.press('Undo');
    await until(/belongs to “short”/, tab.notes);
    assert.equal(await tab.source(), '// another');
    await tab.close();
});

test('texts that are no markup', async () => {
    const text = `${EVIL}\n\n[press](javascript:window.hacked=1) [web](https://localhost/) ![picture](http://127.0.0.1/x.png)\n\n| a |\n|--:|\n| b |`;
    const source = `// ${EVIL}\nstart           be      start start start\n`;
    const evil = given({ name: EVIL.slice(0, 80), files: { 'main.k': source }, text });
    const tab = await freshTab(undefined, FILE_URL + packed(evil));
    await until(/window\.hacked/, () => tab.text('.task'));
    assert.equal(
        await tab.page.$$eval('.task a[href]', (links) => links.map((one) => one.href).join()),
        'https://localhost/',
    );
    assert.equal(await tab.page.$eval('.task td', (cell) => getComputedStyle(cell).textAlign), 'right');
    await until(/^No faults/, tab.status);
    // What the language server says.
    await tab.newProgram('wrong', `        ${EVIL.replaceAll(' ', '/')} one`);
    await tab.press(/^\d faults?$/);
    await until(/^Line 1: unknown opcode .*onerror/, () => tab.text('.cm-panel'));
    assert.ok(await isHarmless(tab));
    await tab.write('                halt\n');
    await until('', () => tab.text('.cm-panel')); // a list without faults is gone
    // What a program sends.
    await tab.open('calc.k');
    await tab.turn(0);
    await tab.run(/^The program runs/);
    await tab.press('Serial', 'tab');
    await (await tab.find('textbox', 'A line to send')).type(EVIL);
    await tab.key('Enter');
    await until(/onerror/, () => tab.text('.console-text'));
    assert.ok(await isHarmless(tab));
    // A page with all of it.
    await tab.page.goto('about:blank');
    await tab.page.goto(FILE_URL + packed(evil));
    await until(/window\.hacked/, () => tab.text('.task'));
    await tab.press('Save');
    await tab.press(/^Save as a page/, 'menuitem');
    const made = await tab.download(() => tab.page.click('dialog .primary'));
    const other = await freshTab(undefined, pathToFileURL(fileWith('made.html', made)).href);
    await until(/window\.hacked/, () => other.text('.task'));
    await until(/^No faults/, other.status);
    await until(/hacked/, other.source);
    assert.ok(await isHarmless(other));
    await other.close();
    await tab.close();
});

test('files', async () => {
    const tab = await freshTab();
    await until(/Press Start/, () => tab.text('.hint-first'));
    const drop = (files) =>
        tab.page.evaluate((list) => {
            const data = new DataTransfer();
            list.forEach(([name, bytes, size]) => {
                const content = size ? new Uint8Array(size) : Uint8Array.from(bytes);
                data.items.add(new File([content], name));
            });
            document.body.dispatchEvent(
                new DragEvent('drop', { dataTransfer: data, bubbles: true, cancelable: true }),
            );
        }, files);
    const table = [
        ['notes.txt', [65], 0, /notes\.txt is no source/],
        ['huge.k', [], 1024 * 1024 + 1, /huge\.k is larger than 1 MiB/],
        ['binary.k', [65, 0, 66], 0, /binary\.k is no text/],
        ['old.k', [65, 0xe9], 0, /old\.k is not text in UTF-8/],
    ];
    await drop([...table.map((one) => one.slice(0, 3)), ['good.k', [...Buffer.from('\thalt\r\n')], 0]]);
    await tab.press('Open as a new program');
    for (const [, , , sentence] of table) {
        await until(sentence, tab.notes);
    }
    await until(/^good/, () => tab.page.$eval('.program-name', (input) => input.value));
    const long = `${'x'.repeat(98)}.k`;
    for (const name of [long, `${'x'.repeat(96)} 2.k`]) {
        await drop([[long, [10], 0]]);
        await tab.press('Add to “good”');
        await tab.find('tab', name);
    }
    await drop(Array.from({ length: 200 }, (_, i) => [`part${i}.k`, [10], 0]));
    await tab.press('Add to “good”');
    await until(/at most 200 files: 3 could not be added/, tab.notes);
    await until(/huge\.k is larger/, tab.notes); // which is not lost
    await tab.press('Examples');
    await drop([['late.k', [10], 0]]);
    await until(/Close the window first/, tab.notes);
    await tab.key('Escape');
    const large = fileWith('large.img', '');
    truncateSync(large, 64 * 1024 * 1024 + 1);
    await tab.give('SD card', large);
    await until(/at most 64 MB/, () => tab.slot('SD card'));
    await tab.give('Microphone', fileWith('noise.mp3', 'no sound'));
    await until(/does not know this kind of sound/, () => tab.slot('Microphone'));
    const wave = Buffer.alloc(44 + (30 * 60 + 1) * 8000, 'RIFF....WAVEfmt ');
    [16, 0x10001, 8000, 8000, 0x80001].forEach((value, i) => wave.writeUInt32LE(value, 16 + 4 * i));
    wave.write('data', 36);
    wave.writeUInt32LE(wave.length - 44, 40);
    wave.writeUInt32LE(wave.length - 8, 4);
    await tab.give('Microphone', fileWith('long.wav', wave));
    await until(/longer than 30 minutes/, () => tab.slot('Microphone'));
    await tab.run();
    await tab.close();
});

test('what the browser refuses', async () => {
    const tab = await freshTab(() => {
        const refuse = () => {
            throw new DOMException('no', 'SecurityError');
        };
        Object.defineProperty(window, 'indexedDB', { get: refuse });
        window.BroadcastChannel = function () {
            refuse();
        };
    });
    await until(/This browser keeps nothing for this page/, tab.notes);
    const protocol = await browser.target().createCDPSession();
    await tab.press('Devices', 'tab');
    for (const device of ['microphone', 'camera']) {
        const name = device[0].toUpperCase() + device.slice(1);
        await protocol.send('Browser.setPermission', {
            permission: { name: device },
            setting: 'denied',
            browserContextId: tab.page.browserContext().id,
        });
        await tab.press(`${name} of this computer`, 'switch');
        await until(/does not let this page use the/, () => tab.slot(name));
    }
    await tab.run(/^The program runs/);
    await tab.close();
});

test('a database that is not there', async (t) => {
    const table = {
        'it never answers': [
            () => (IDBFactory.prototype.open = () => new EventTarget()),
            /keeps nothing for this page: it does not answer/,
        ],
        'it is a newer one': [
            () => void indexedDB.open('tovik', 2),
            /keeps nothing for this page: its programs are those of a newer tovik/,
        ],
    };
    for (const [name, [prepare, sentence]] of Object.entries(table)) {
        await t.test(name, async () => {
            const tab = await freshTab(prepare);
            await until(sentence, tab.notes);
            await until(/^No faults/, tab.status);
            await tab.close();
        });
    }
    const tab = await freshTab(() => {
        const { open } = IDBFactory.prototype;
        IDBFactory.prototype.open = function (...words) {
            const request = open.apply(this, words);
            request.addEventListener('success', () => (window.database = request.result));
            return request;
        };
    });
    await until(/^No faults/, tab.status);
    await t.test('it is closed', async () => {
        await tab.page.evaluate(() => window.database.close());
        await tab.open('hello_lcd.k');
    });
    await t.test('it fails', async () => {
        await tab.key('Control+o');
        await tab.key('Control+o');
        await tab.find('button', 'Delete counter');
        assert.equal((await tab.page.$$('dialog')).length, 1);
        await tab.page.evaluate(() => {
            const { transaction } = IDBDatabase.prototype;
            IDBDatabase.prototype.transaction = function (...words) {
                IDBDatabase.prototype.transaction = transaction;
                const begun = transaction.apply(this, words);
                queueMicrotask(() => begun.abort());
                return begun;
            };
        });
        await tab.press('Delete counter');
        await until(/That did not work/, tab.notes);
    });
    await t.test('a newer one comes', async () => {
        await tab.page.evaluate(
            () =>
                new Promise((resolve) => {
                    indexedDB.open('tovik', 2).onsuccess = resolve;
                }),
        );
        await tab.write('                halt\n');
        await until(/could not keep the program: its programs are those of a newer tovik/, tab.notes);
    });
    await tab.close();
});

test('two tabs with one file', async () => {
    const tab = await freshTab();
    await tab.newProgram('both', 'halt');
    await until(/^1 warning/, tab.status);
    await new Promise((resolve) => setTimeout(resolve, 600));
    const other = await openTab({ newPage: () => tab.page.browserContext().newPage() });
    await until(/^halt/, other.source);
    const append = (one, text) =>
        one.page.evaluate((words) => {
            const editor = document.querySelector('.cm-content');
            editor.focus();
            document.execCommand('insertText', false, words);
        }, text);
    await Promise.all([append(tab, '// mine '), append(other, '// yours ')]);
    const notes = async () => (await tab.notes()) + (await other.notes());
    await until(/main\.k was changed in another tab at the same time/, notes);
    for (const one of [tab, other]) {
        await one.page.bringToFront();
        const both = async () => {
            await one.press(/main\.k$/, 'tab');
            const first = await one.source();
            await one.press('main (other tab).k', 'tab');
            return [first, await one.source()];
        };
        const has = (text, mine, yours) => text.includes('mine') === mine && text.includes('yours') === yours;
        const areBoth = (texts) =>
            texts.some((text) => has(text, true, false)) && texts.some((text) => has(text, false, true));
        await until(areBoth, both);
    }
    // What one has deleted for good is not what the other writes without a change.
    await other.key('Control+o');
    await other.press('Delete both');
    await until(/recently deleted/, other.notes);
    await other.key('Control+o');
    await other.press('Delete for good');
    await other.press('Really?');
    await until('', () => other.text('dialog h3 + ul'));
    await tab.page.bringToFront();
    await tab.key('Control+o');
    await tab.find('button', 'Delete counter');
    assert.doesNotMatch(await tab.text('dialog'), /both/);
    await tab.close();
});

test('a cable', async () => {
    const tab = await freshTab(() => {
        window.BroadcastChannel = class extends BroadcastChannel {
            postMessage(message) {
                if (window.late > 0) {
                    setTimeout(() => super.postMessage(message), window.late);
                } else {
                    super.postMessage(message);
                }
            }
        };
    });
    const other = await openTab({ newPage: () => tab.page.browserContext().newPage() });
    const start = async (one) => {
        await one.page.bringToFront();
        await one.open('chat.k');
        await one.press('Devices', 'tab');
        await one.page.select('.slot[aria-label="Serial port"] select', 'cable');
        await one.press('Start');
    };
    const [isAlone, isJoined] = [/Nobody is at the other end/, /leads to another tab/];
    await start(tab);
    await until(isAlone, () => tab.slot('Serial port'));
    await start(other);
    await until(isJoined, () => other.slot('Serial port'));
    // One that answers late, to a program that starts again.
    await tab.page.evaluate(() => (window.late = 2000));
    await other.press('Restart');
    await until(isAlone, () => other.slot('Serial port'));
    await until(isJoined, () => other.slot('Serial port'));
    await tab.page.evaluate(() => (window.late = 0));
    // One that is left, and comes back as it was.
    const turn = (kind) =>
        tab.page.evaluate((name) => dispatchEvent(new PageTransitionEvent(name, { persisted: true })), kind);
    await turn('pagehide');
    await until(isAlone, () => other.slot('Serial port'));
    await turn('pageshow');
    await until(isJoined, () => other.slot('Serial port'));
    assert.deepEqual([...tab.errors, ...other.errors], []);
    await tab.close();
    const without = await freshTab(() => delete window.BroadcastChannel);
    await start(without);
    await until(/does not let this page have a cable/, without.message);
    await without.close();
});

test('a worker that ends', async (t) => {
    const tab = await freshTab(keepWorkers);
    await tab.newProgram('kept', '                halt\n// This stays.\n');
    await until(/^No faults/, tab.status);
    // A file is where a folder was, and a folder where a file was.
    await tab.page.evaluate(() => {
        for (const path of ['/program/a.k/b/c.k', '/program/a.k', '/program/a.k/d.k']) {
            window.workers.forEach((one) =>
                one.postMessage({ kind: 'file', path, bytes: new Uint8Array(1) }),
            );
        }
    });
    for (const [i, name, sentence] of [
        [0, 'the language server', /The language server has stopped: /],
        [1, 'the board', /The board has stopped working: /],
    ]) {
        await t.test(name, async () => {
            await tab.page.evaluate(
                (at) => window.workers[at].postMessage({ kind: 'file', path: '/x', bytes: 1 }),
                i,
            );
            await until(sentence, tab.notes);
            assert.match(await tab.source(), /This stays/);
            await tab.press('Start it again');
            await tab.write('                hult\n// This stays.\n');
            await until(/^1 fault/, tab.status);
            await tab.write('                halt\n// This stays.\n');
            await until(/^No faults/, tab.status);
            await tab.run();
            assert.equal(await tab.notes(), '');
        });
    }
    await tab.page.evaluate(() => window.workers.at(-1).postMessage({ kind: 'file', path: '/x', bytes: 1 }));
    await until(/The board has stopped working/, tab.notes);
    await tab.run();
    await until('', tab.notes);
    assert.deepEqual(tab.errors, []);
    await tab.close();
});

test('what was sent to a slow serial device goes out after the end of the program', async () => {
    const tab = await freshTab(() => {
        window.sent = 0;
        const port = {
            readable: new ReadableStream(),
            writable: new WritableStream({
                async write(bytes) {
                    await new Promise((resolve) => setTimeout(resolve, window.sent === 0 ? 700 : 0));
                    window.sent += bytes.length;
                },
            }),
            getInfo: () => ({}),
            open: async () => undefined,
            close: async () => undefined,
        };
        Object.defineProperty(navigator, 'serial', { value: { requestPort: async () => port } });
    });
    await tab.newProgram(
        'sender',
        `again           call    serial_put serial_put_return
                add     i i one
                blt     again i last
                halt
i               .data   0
one             .data   1
last            .data   2000
#include lib/serial.k
`,
    );
    await until(/^No faults/, tab.status);
    await tab.press('Devices', 'tab');
    await tab.page.select('.slot[aria-label="Serial port"] select', 'device');
    await tab.press('Choose a device…');
    await tab.run();
    await tab.press('Stop');
    await until(2000, () => tab.page.evaluate(() => window.sent));
    await tab.close();
});

test('a key is pressed while another program opens', async () => {
    const tab = await freshTab();
    await tab.newProgram('typed', '                halt\n');
    await tab.press('Examples');
    await (
        await tab.find('button', 'counter.k')
    ).evaluate((row) => {
        const name = document.querySelector('.program-name');
        const type = (letter) => {
            name.value += letter;
            name.dispatchEvent(new Event('input'));
        };
        const { put } = IDBObjectStore.prototype;
        IDBObjectStore.prototype.put = function (...words) {
            IDBObjectStore.prototype.put = put;
            type('2');
            return put.apply(this, words);
        };
        type('1');
        row.click();
    });
    await until(/^counter/, () => tab.page.$eval('.program-name', (input) => input.value));
    await tab.press('Open');
    await tab.press(/^Your programs/, 'menuitem');
    await tab.find('button', 'typed12');
    await tab.close();
});

test('a speaker that is switched off while it still opens', async () => {
    const tab = await freshTab(() => {
        const { addModule } = AudioWorklet.prototype;
        AudioWorklet.prototype.addModule = async function (...words) {
            await new Promise((resolve) => setTimeout(resolve, 1000));
            return addModule.apply(this, words);
        };
        window.AudioContext = class extends AudioContext {
            constructor(...words) {
                super(...words);
                window.sound = this;
            }
        };
    });
    await until(/^No faults/, tab.status);
    await tab.press('Devices', 'tab');
    await tab.press('Start');
    await tab.press('Sound', 'switch');
    await until(/^The program runs/, tab.message);
    await until('closed', () => tab.page.evaluate(() => window.sound.state));
    assert.equal(await (await tab.find('switch', 'Sound')).evaluate((it) => it.ariaChecked), 'false');
    await tab.close();
});

test('a label that is typed where operations begin', async () => {
    const tab = await freshTab();
    await tab.newProgram('label', '                cp      i one');
    await tab.page.click('.cm-content');
    await tab.key('Control+End');
    await tab.page.keyboard.type('\nagain be again i i\n// not be call\none .data 1');
    await until(
        '                cp      i one\nagain           be again i i\n                // not be call\none             .data 1',
        tab.source,
    );
    // The list would have a register for it, which nobody has chosen.
    await tab.page.keyboard.type('\nsum .data time');
    await tab.page.waitForSelector('.cm-tooltip-autocomplete');
    await tab.page.keyboard.type('\nx');
    await until(/\nsum +.data time\n +x$/, tab.source);
    await tab.close();
});

// No answer is given by itself a second time: the program waits for another one, and the page takes it.
test('answers that change nothing', async (t) => {
    native(join(ROOT, 'examples/tone.k'), '--save-speaker', 'tone.wav');
    const tone = join(folder, 'tone.wav');
    const head = readFileSync(tone).subarray(0, 64);
    const film = fileWith('film.kmovie', Buffer.alloc(PICTURE_BYTES * 3));
    const table = [
        ['Microphone', 'empty.wav', '', /does not know this kind of sound/],
        ['Microphone', 'silent.wav', Buffer.concat([head, Buffer.alloc(99)]), /there is no sound in it/],
        ['Microphone', 'cut.wav', Buffer.concat([head, Buffer.alloc(6, 1)]), /error in reading sample/],
        ['Camera', 'empty.kmovie', '', /there is not one in it/],
        ['Camera', 'short.kmovie', Buffer.alloc(PICTURE_BYTES - 1), /there is not one in it/],
        ['Camera', 'one.kmovie', Buffer.alloc(PICTURE_BYTES), /waits for a picture/],
    ];
    for (const [slot, name, content, sentence] of table) {
        await t.test(name, async () => {
            const tab = await freshTab();
            await tab.open(slot === 'Camera' ? 'mirror.k' : 'echo.k');
            await tab.turn(1);
            await tab.run(/^The program waits for/);
            await until(/waits for/, () => tab.slot(slot));
            await tab.give(slot, fileWith(name, content));
            await until(sentence, () => tab.slot(slot));
            await until(/waits for/, () => tab.slot(slot));
            await tab.press('Pause');
            await until(/Next is/, tab.message, 2000);
            await tab.press('Continue');
            await tab.give(slot, slot === 'Camera' ? film : tone);
            await until(/^Halted/, tab.message);
            await tab.close();
        });
    }
    await t.test('a recording that cannot be saved', async () => {
        const tab = await freshTab(keepWorkers);
        await tab.open('hello_lcd.k');
        await tab.press('Devices', 'tab');
        await tab.press('Record', 'switch');
        await tab.run();
        // A folder is where the file has to be.
        await tab.page.evaluate(() => {
            const message = { kind: 'file', path: '/speaker.wav/x', bytes: new Uint8Array(1) };
            window.workers[1].postMessage(message);
        });
        await tab.press('Save the recording');
        await until(/speaker\.wav/, () => tab.slot('Speaker'));
        await tab.run();
        await tab.close();
    });
});
