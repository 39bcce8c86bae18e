// What comes from outside may be anything: links, pages, files, what the browser refuses, another tab, a worker that
// ends. The page says a sentence, loses nothing, runs nothing that came as a text, and goes on.

import assert from 'node:assert/strict';
import { readFileSync, truncateSync } from 'node:fs';
import { join } from 'node:path';
import { after, test } from 'node:test';
import { deflateRawSync } from 'node:zlib';
import { pathToFileURL } from 'node:url';
import { FILE_URL, fileWith, folder, native, openTab, ROOT, startBrowser, until } from './browser.mjs';

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
    const table = {
        'a part is missing': [right.slice(0, -8), missing],
        'no base64': ['#program=%%%', missing],
        'no JSON': [`#program=${deflateRawSync('{"version":').toString('base64url')}`, missing],
        'another version': [packed(given({ version: 2 })), missing],
        'no file': [packed(given({ files: {} })), missing],
        'a name that leads out': [packed(given({ files: { '../main.k': '' } })), missing],
        'a name with markup': [packed(given({ files: { '<b>.k': '' } })), missing],
        'too large': [packed(given({ files: { 'main.k': 'x'.repeat(1024 * 1024) } })), /larger than 1 MiB/],
        'as large as may be': [
            packed(given({ files: { 'main.k': '/'.repeat(1024 * 1000) } })),
            /“given” comes with/,
        ],
    };
    const tab = await freshTab();
    for (const [name, [hash, sentence]] of Object.entries(table)) {
        await t.test(name, async () => {
            await tab.page.goto('about:blank');
            await tab.page.goto(FILE_URL + hash);
            await until(sentence, tab.notes);
            await until(/fault/, tab.status);
        });
    }
    await tab.close();
});

test('texts that are no markup', async () => {
    const text = `${EVIL}\n\n[press](javascript:window.hacked=1) [web](https://localhost/) ![picture](http://127.0.0.1/x.png)`;
    const source = `// ${EVIL}\nstart           be      start start start\n`;
    const evil = given({ name: EVIL.slice(0, 80), files: { 'main.k': source }, text });
    const tab = await freshTab(undefined, FILE_URL + packed(evil));
    await until(/window\.hacked/, () => tab.text('.task'));
    assert.equal(
        await tab.page.$$eval('.task a[href]', (links) => links.map((one) => one.href).join()),
        'https://localhost/',
    );
    await until(/^No faults/, tab.status);
    // What the language server says.
    await tab.newProgram('wrong', `        ${EVIL.replaceAll(' ', '/')} one`);
    await tab.press(/^\d faults?$/);
    await until(/unknown opcode .*onerror/, () => tab.text('.cm-panel'));
    assert.ok(await isHarmless(tab));
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
    const large = fileWith('large.img', '');
    truncateSync(large, 64 * 1024 * 1024 + 1);
    await tab.give('SD card', large);
    await until(/at most 64 MB/, () => tab.slot('SD card'));
    await tab.give('Microphone', fileWith('noise.mp3', 'no sound'));
    await until(/does not know this kind of sound/, () => tab.slot('Microphone'));
    await tab.run();
    await tab.close();
});

test('what the browser refuses', async () => {
    const tab = await freshTab(() =>
        Object.defineProperty(window, 'indexedDB', {
            get: () => {
                throw new DOMException('no', 'SecurityError');
            },
        }),
    );
    await until(/This browser keeps nothing for this page/, tab.notes);
    await tab.press('Close'); // it stands before the devices
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
    await tab.close();
});

test('a worker that ends', async (t) => {
    const tab = await freshTab(keepWorkers);
    await tab.newProgram('kept', '                halt\n// This stays.\n');
    await until(/^No faults/, tab.status);
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
        });
    }
    assert.deepEqual(tab.errors, []);
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
        ['Microphone', 'silent.wav', Buffer.concat([head, Buffer.alloc(4)]), /there is no sound in it/],
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
            await tab.run(/^The program runs/);
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
