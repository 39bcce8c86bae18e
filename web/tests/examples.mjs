// Every example starts on the page, and those that end by themselves leave the board as they do under tovik-run. Programs
// that use a device get the same input in both, and what they save is the same.

import assert from 'node:assert/strict';
import { readdirSync, readFileSync } from 'node:fs';
import { join } from 'node:path';
import { after, test } from 'node:test';
import {
    boardOf,
    example,
    fileWith,
    folder,
    native,
    openTab,
    ROOT,
    startBrowser,
    until,
} from './browser.mjs';

const browser = await startBrowser(
    'chrome',
    '--use-fake-device-for-media-stream',
    '--use-fake-ui-for-media-stream',
);
after(() => browser.close());
const tab = await openTab(browser);

const SWITCHES = { 'fft_tone.k': [0, 8], 'echo.k': [1], 'mirror.k': [0], 'spectrum.k': [0] };
const HALTING = ['primes.k', 'sort.k', 'fibonacci.k', 'hello_lcd.k', 'sdram_copy.k', 'fft_tone.k'];
const WAITING = {
    'sd_notes.k': /for a card/,
    'echo.k': /for sound/,
    'spectrum.k': /for sound/,
    'mirror.k': /for a picture/,
    'snapshot.k': /for a picture/,
};

const switchesOf = (numbers) => String(numbers.reduce((sum, number) => sum + 2 ** number, 0));
const run = (name, ...words) => native(join(ROOT, 'examples', name), ...words);

test('the examples', async (t) => {
    const names = readdirSync(join(ROOT, 'examples')).filter((name) => name.endsWith('.k'));
    for (const name of [...names, ...readdirSync(join(ROOT, 'examples/exercises'))]) {
        await t.test(name, async () => {
            await tab.open(name);
            const halts = HALTING.includes(name);
            if (halts) {
                const switches = SWITCHES[name] ?? [];
                await tab.turn(...switches);
                await tab.run();
                const report = run(name, '--switches', switchesOf(switches));
                await until(JSON.stringify(boardOf(report)), async () => JSON.stringify(await tab.board()));
            } else {
                await tab.run(WAITING[name] ?? /^(The program runs|Halted)/);
                await until(WAITING[name] ?? /^/, () => tab.text('.slot-wish'));
                assert.equal(await tab.page.$('.debug-fault:not([hidden])'), null, await tab.message());
            }
        });
    }
});

test('a card is asked for, written and read by tovik-run', async () => {
    await tab.open('sd_notes.k');
    await tab.run(/for a card/);
    await until(/for a card/, () => tab.slot('SD card'));
    await tab.press('New empty card');
    await until(/^Halted/, tab.message);
    // The page has all of it as soon as the program is at its end.
    await new Promise((resolve) => setTimeout(resolve, 100));
    await tab.press('Take out');
    await tab.press('Put it back');
    await until('Written.', async () => (await tab.board()).lcd[0]);
    const card = await tab.download(() => tab.press('Download'));
    assert.equal(boardOf(run('sd_notes.k', '--sd', fileWith('card.img', card))).lcd[1], 'Buy milk.');
    // It is there again in another tab, and the page's next run reads it.
    const other = await openTab(browser);
    await other.open('sd_notes.k');
    await other.run();
    await until('Buy milk.', async () => (await other.board()).lcd[1]);
    await other.page.close();
});

// A sound as tovik-run takes it, and the same as the browser has to convert it.
function soundFile(bits) {
    const count = 1600;
    const sound = Array.from({ length: count }, (_, i) => Math.round(20000 * Math.sin(i / 5)));
    const data = Buffer.alloc(count * 2);
    sound.forEach((sample, i) => data.writeInt16LE(sample, i * 2));
    const head = Buffer.alloc(44);
    head.write('RIFF');
    head.writeUInt32LE(36 + data.length, 4);
    head.write('WAVEfmt ', 8);
    [16, 0x10001, 8000, 16000].forEach((number, i) => head.writeUInt32LE(number, 16 + i * 4));
    head.writeUInt16LE(2, 32);
    head.writeUInt16LE(bits, 34);
    head.write('data', 36);
    head.writeUInt32LE(data.length, 40);
    return Buffer.concat([head, data]);
}

test('what the microphone hears, and what the speaker plays, is as with tovik-run', async () => {
    run('tone.k', '--save-speaker', 'tone.wav');
    const expected = [];
    for (const words of [['tone.k'], ['echo.k', '--mic', 'tone.wav', '--switches', '2']]) {
        run(...words, '--save-speaker', 'saved.wav');
        expected.push(readFileSync(join(folder, 'saved.wav')));
    }
    await tab.press('Devices', 'tab');
    await tab.press('Record', 'switch');
    const record = async () => {
        await until(/^Halted/, tab.message, 30000);
        return tab.download(() => tab.press('Save the recording'));
    };
    await tab.open('tone.k');
    assert.ok(await (await tab.find('button', 'Save the recording')).evaluate((it) => it.disabled));
    await tab.run();
    assert.ok((await record()).equals(expected[0]), 'the recording of tone.k');
    await tab.open('echo.k');
    await tab.turn(1);
    await tab.run(/for sound/);
    await tab.give('Microphone', join(folder, 'tone.wav'));
    assert.ok((await record()).equals(expected[1]), 'the recording of echo.k');
    await tab.press('Record', 'switch');
    // A usual WAV file is converted.
    await tab.give('Microphone', fileWith('usual.wav', soundFile(16)));
    await until(/usual\.wav, 6 KB/, () => tab.slot('Microphone'));
});

// The points of the board's screen, as one number.
const screen = () =>
    tab.page.$eval('canvas.screen', (canvas) => {
        const { data } = canvas.getContext('2d').getImageData(0, 0, 640, 480);
        return data.reduce((sum, byte) => (Math.imul(sum, 31) + byte) | 0, 7);
    });

test('a movie is seen as with tovik-run', async () => {
    const movie = Buffer.alloc(614400 * 2);
    movie.forEach((_, i) => (movie[i] = (i * 7 + (i >> 11)) & 0xff));
    fileWith('film.kmovie', movie);
    run('mirror.k', '--camera', 'film.kmovie', '--switches', '2', '--png', 'screen.png');
    const picture = readFileSync(join(folder, 'screen.png')).toString('base64');
    const expected = await tab.page.evaluate(async (png) => {
        const image = new Image();
        image.src = `data:image/png;base64,${png}`;
        await image.decode();
        const context = new OffscreenCanvas(640, 480).getContext('2d');
        context.drawImage(image, 0, 0);
        const { data } = context.getImageData(0, 0, 640, 480);
        return data.reduce((sum, byte) => (Math.imul(sum, 31) + byte) | 0, 7);
    }, picture);
    await tab.open('mirror.k');
    await tab.turn(1);
    await tab.run(/for a picture/);
    await tab.give('Camera', join(folder, 'film.kmovie'));
    await until(/^Halted/, tab.message);
    await until(expected, screen);
});

test("the computer's own microphone and camera", async () => {
    for (const [name, device] of [
        ['spectrum.k', 'Microphone'],
        ['mirror.k', 'Camera'],
    ]) {
        await tab.open(name);
        await tab.page.select('.debug-speed select', 'board');
        const row = await tab.page.waitForSelector(`.slot[aria-label="${device}"]`);
        assert.ok(row);
        await tab.press('Start');
        await tab.press('Devices', 'tab');
        const turn = () => tab.press(`${device} of this computer`, 'switch');
        const moves = async () => {
            const first = await screen();
            const second = await until((now) => now !== first, screen);
            await until((now) => now !== second, screen);
        };
        await turn();
        await until(/that of this computer/, () => tab.slot(device));
        await moves();
        assert.equal((await tab.text('.slot-note')).trim(), '');
        await turn();
        await tab.press('Stop');
    }
});

test('what is typed comes through the cable into another tab', async () => {
    const other = await openTab(browser);
    for (const one of [tab, other]) {
        await one.page.bringToFront();
        await one.open('chat.k');
        await one.press('Devices', 'tab');
        await one.page.select('.slot[aria-label="Serial port"] select', 'cable');
        await one.page.select('.debug-speed select', 'board');
        await one.press('Start');
    }
    await until(/leads to another tab/, () => other.slot('Serial port'));
    await other.page.click('canvas.screen');
    await other.page.keyboard.type('Hi there');
    await until('Hi there', async () => (await other.board()).lcd[0]);
    await tab.page.bringToFront();
    await until('Hi there', async () => (await tab.board()).lcd[1]);
    await other.page.close();
    await until(/Nobody is at the other end/, () => tab.slot('Serial port'));
});

test('a finger draws, and what is typed on a tablet goes to the program', async () => {
    const tablet = await openTab(browser, undefined, {
        width: 800,
        height: 1100,
        hasTouch: true,
        isMobile: true,
    });
    await tablet.open('paint.k');
    await tablet.page.select('.debug-speed select', 'max');
    await tablet.press('Start');
    const canvas = await tablet.page.waitForSelector('canvas.screen');
    await until(/^The program runs/, tablet.message);
    const box = await canvas.boundingBox();
    const point = (x, y) => [box.x + (x / 640) * box.width, box.y + (y / 480) * box.height];
    const color = (x, y) =>
        canvas.evaluate((it, ...at) => [...it.getContext('2d').getImageData(...at, 1, 1).data].join(), x, y);
    await until('0,0,0,255', () => color(320, 240));
    const touch = await tablet.page.touchscreen.touchStart(...point(200, 240));
    for (let x = 210; x <= 420; x += 10) {
        await touch.move(...point(x, 240));
        await new Promise((resolve) => setTimeout(resolve, 30));
    }
    await touch.move(...point(560, 240)); // so fast that the program has not seen it yet
    await touch.end();
    await until('255,255,255,255', () => color(550, 240));
    await until('255,255,255,255', () => color(320, 240));
    await tablet.open('keyboard_echo.k');
    await tablet.run(/^The program runs/);
    await (await tablet.find('textbox', 'Type to the program')).type('tea');
    await until('tea', async () => (await tablet.board()).lcd[0]);
    assert.deepEqual(tablet.errors, []);
    await tablet.page.close();
});

test('screen, lamps and switches are all in sight', async () => {
    const small = await openTab(browser);
    for (const [width, height, hasTouch] of [
        [1280, 720, false],
        [1024, 576, false], // 1280x720 with 125 percent
        [1366, 768, true],
        [1024, 768, true],
        [768, 1024, true],
    ]) {
        await small.page.setViewport({ width, height, hasTouch, isMobile: hasTouch });
        await small.press(/^(Start|Restart)$/);
        await until(true, () =>
            small.page.$eval('.board-drawing', (it) => {
                const { left, right, bottom, width } = it.getBoundingClientRect();
                return left >= 0 && width >= 420 && right <= innerWidth && bottom <= innerHeight;
            }),
        );
    }
    await small.page.close();
});

test('no script has failed', () => assert.deepEqual(tab.errors, []));
