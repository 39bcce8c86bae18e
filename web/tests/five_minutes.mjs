// Follows the first five minutes of docs/browser.md word for word: its program is pasted, and its sentences are done on
// the page or must hold there. A sentence with a text in bold or in double quotes that is none of SENTENCES is a mistake
// of the manual. With a folder as argument, the pictures of the manual are made there.

import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { readFileSync } from 'node:fs';
import { join } from 'node:path';
import { FILE_URL, hasFirefox, openTab, ROOT, servePage, startBrowser, until } from './browser.mjs';

const manual = readFileSync(join(ROOT, 'docs/browser.md'), 'utf8');
const section = /^## The first five minutes\n([^]*?)^## /m.exec(manual)?.[1] ?? '';
const pictures = process.argv[2];

const BOLD = String.raw`\*\*([^*]+)\*\*`;
const BOLDS = String.raw`(\*\*[^*]+\*\*(?:(?:, then|,| and) \*\*[^*]+\*\*)*)`;
const bold = (names) => [...names.matchAll(/\*\*([^*]+)\*\*/g)].map(([, name]) => name);
const saying = (words) => (text) => text.replace(/\s+/g, ' ').includes(words);

// The text of a line with the values behind it.
const line = (tab, number) => tab.page.$$eval('.cm-line', (lines, at) => lines[at - 1].innerText, number);

async function press(tab, names) {
    for (const name of bold(names)) {
        await tab.press(name);
    }
}

async function replace(tab, old, text) {
    const place = await tab.page.evaluate((word) => {
        const walker = document.createTreeWalker(document.querySelector('.cm-content'), NodeFilter.SHOW_TEXT);
        while (walker.nextNode()) {
            if (walker.currentNode.data.trim() === word) {
                const range = document.createRange();
                range.selectNode(walker.currentNode);
                const { x, y, width, height } = range.getBoundingClientRect();
                return [x + width / 2, y + height / 2];
            }
        }
        throw new Error(`the editor has no ${word}`);
    }, old);
    await tab.page.mouse.click(...place, { count: 2 });
    await tab.page.keyboard.type(text);
    await until(saying(` ${text} `), tab.source);
}

async function breakpoint(tab, number) {
    const at = await tab.page.$$eval(
        '.cm-line',
        (lines, i) => {
            const [gutter, text] = [document.querySelector('.debug-gutter'), lines[i - 1]];
            const [across, down] = [gutter.getBoundingClientRect(), text.getBoundingClientRect()];
            return [across.x + across.width / 2, down.y + down.height / 2];
        },
        number,
    );
    await tab.page.mouse.click(...at);
}

async function drag(tab) {
    const slider = await tab.find('slider', 'Moment of the program');
    const { x, y, width, height } = await slider.boundingBox();
    await tab.page.mouse.move(x + width - 8, y + height / 2);
    await tab.page.mouse.down();
    await tab.page.mouse.move(x + width / 2, y + height / 2, { steps: 3 });
    await tab.page.mouse.move(x, y + height / 2, { steps: 3 });
    await tab.page.mouse.up();
}

const SENTENCES = [
    [
        String.raw`Open ${'`tovik.html`'} in a browser`,
        (tab) => until(saying('Press Start'), () => tab.text('.hint-first')),
    ],
    [
        String.raw`Press ${BOLD} and choose ${BOLD}`,
        async (tab, menu, choice) => {
            await tab.press(menu);
            await tab.press(choice, 'menuitem');
        },
    ],
    [
        String.raw`Type ${BOLD} as the name and press ${BOLD}`,
        async (tab, name, verb) => {
            await (await tab.find('textbox', 'Name')).type(name);
            await tab.press(verb);
            await until(name, () => tab.page.$eval('.program-name', (input) => input.value));
        },
    ],
    [
        String.raw`Press ${BOLDS}(?: until it says "([^"]+)"| again)?`,
        async (tab, names, last) => {
            await press(tab, names);
            for (let count = 0; last !== undefined && !(await tab.message()).includes(last); count += 1) {
                assert.ok(count < 20, `it never says ${last}`);
                await press(tab, names);
                await new Promise((resolve) => setTimeout(resolve, 300));
            }
        },
    ],
    [
        String.raw`Click the switches ${BOLDS} on the board`,
        async (tab, names) => {
            for (const name of bold(names)) {
                await tab.press(`SW ${name}`, 'switch');
            }
        },
    ],
    [
        String.raw`The message below the editor says "([^"]+)"`,
        (tab, words) => until(saying(words), tab.message),
    ],
    [
        String.raw`The line at the bottom of the editor says "([^"]+)"`,
        (tab, words) => until(saying(words), tab.status),
    ],
    [String.raw`It says "([^"]+)"`, (tab, words) => until(saying(words), () => tab.text('.cm-panel'))],
    [String.raw`The window says "([^"]+)"`, (tab, words) => until(saying(words), () => tab.text('dialog'))],
    [
        String.raw`A page that is a file offers "([^"]+)"`,
        (tab, name) => tab.page.url().startsWith('file:') && tab.find('button', name),
    ],
    [
        String.raw`(HEX\d)-HEX\d shows "(....)"`,
        (tab, name, digits) =>
            until(
                (label) => label.toLowerCase().endsWith(`: ${digits}`),
                () => tab.shows(`${name} to`),
            ),
    ],
    [
        String.raw`The red lamps count`,
        async (tab) => {
            const before = await until(/ on$/, () => tab.shows('Red lamps'));
            await until(
                (label) => label !== before,
                () => tab.shows('Red lamps'),
            );
        },
    ],
    [
        String.raw`The red lamps ${BOLDS} are lit`,
        (tab, names) =>
            until(`Red lamps: ${bold(names).reverse().join(', ')} on`, () => tab.shows('Red lamps')),
    ],
    [
        String.raw`Behind each line .*: behind line ${BOLD} stands "([^"]+)"`,
        (tab, number, words) => until(saying(words), () => line(tab, number)),
    ],
    [
        String.raw`Behind line ${BOLD} stands "([^"]+)"`,
        (tab, number, words) => until(saying(words), () => line(tab, number)),
    ],
    [String.raw`Drag the slider above the board to its left end`, drag],
    [
        String.raw`Beside the slider stands "([^"]+)"`,
        (tab, words) => until(saying(words), () => tab.text('.debug-moment')),
    ],
    [String.raw`Click beside the number of line ${BOLD}, at its right`, breakpoint],
    [
        String.raw`A red dot appears: a breakpoint`,
        (tab) => tab.page.waitForSelector('.debug-breakpoint:not(.debug-spacer)'),
    ],
    [
        String.raw`Under ${BOLD}, press the button ${BOLD} of ${BOLD} and choose ${BOLD}`,
        async (tab, panel, _, name, choice) => {
            await tab.press(panel, 'tab');
            await until(true, () =>
                tab.page.evaluate((wanted) => {
                    const rows = [...document.querySelectorAll('[role=treeitem]')];
                    const row = rows.find((one) => one.querySelector('.debug-name').textContent === wanted);
                    row?.querySelector('.debug-more').click();
                    return row !== undefined;
                }, name),
            );
            await tab.press(choice, 'menuitem');
        },
    ],
    [String.raw`In the editor, change ${'`([^`]+)` to `([^`]+)`'}`, replace],
    [
        String.raw`Press Control\+Z in the editor to take the change back`,
        async (tab) => {
            await tab.page.click('.cm-line');
            await tab.key('Control+z');
            await until(saying('add'), tab.source);
        },
    ],
].map(([pattern, act]) => [new RegExp(`^${pattern}(?:[,:] [^"*]*)?$`), act]);

// With a few colours only: the points of a memory that nobody has written make a picture large.
async function savePicture(tab, name) {
    const colours = 'split[a][b];[a]palettegen=max_colors=64[p];[b][p]paletteuse=dither=none';
    const words = ['-loglevel', 'error', '-y', '-i', '-', '-vf', colours, join(pictures, `${name}.png`)];
    execFileSync('ffmpeg', words, { input: await tab.page.screenshot() });
}

async function follow(tab) {
    let place = '';
    const blocks =
        /^```k24\n([^]*?)^```$|^!\[[^\]]*\]\(images\/(browser[-\w]*)\.png\)$|^(?:\d+\. )? *\S.*(?:\n(?!\d+\. |```|\n).*)*/gm;
    for (const [block, program, picture] of section.matchAll(blocks)) {
        if (program !== undefined) {
            await tab.write(program);
            continue;
        }
        if (picture !== undefined) {
            if (pictures !== undefined) {
                await tab.page.mouse.move(1270, 700);
                await new Promise((resolve) => setTimeout(resolve, 400));
                await savePicture(tab, picture);
            }
            continue;
        }
        const sentences = block.replace(/^\d+\. /, '').replace(/\s*\n\s*/g, ' ');
        for (const part of sentences.split(/(?<=[.?]"?) (?=[A-Z])/)) {
            place = part;
            const words = part.replace(/\."$/, '"').replace(/\.$/, '');
            const known = SENTENCES.filter(([pattern]) => pattern.test(words));
            const isPlain = !/\*\*|"/.test(part);
            assert.ok(
                known.length === 1 || (isPlain && known.length === 0),
                `${known.length} meanings of: ${part}`,
            );
            for (const [pattern, act] of known) {
                try {
                    await act(tab, ...pattern.exec(words).slice(1));
                } catch (error) {
                    throw new Error(`docs/browser.md: ${place}\n${error.message}`);
                }
            }
        }
    }
    assert.deepEqual(tab.errors, []);
}

// The third picture: an example on a small screen, in dark colors.
async function pictureTablet(browser) {
    if (pictures === undefined) {
        return;
    }
    const tab = await openTab(browser, FILE_URL, {
        width: 800,
        height: 1100,
        hasTouch: true,
        isMobile: true,
    });
    await tab.press('Examples');
    await tab.press('pong.k');
    await tab.press('Dark colors');
    await tab.press('Start');
    await until(/: 000/, () => tab.shows('HEX3'));
    await new Promise((resolve) => setTimeout(resolve, 3000));
    await savePicture(tab, 'browser-tablet');
}

const server = await servePage();
const kinds = ['chrome', ...(hasFirefox ? ['firefox'] : [])];
const ways =
    pictures !== undefined
        ? [['chrome', FILE_URL]]
        : kinds.flatMap((kind) => [
              [kind, FILE_URL],
              [kind, server.url],
          ]);
try {
    for (const [kind, url] of ways) {
        const browser = await startBrowser(kind);
        try {
            await follow(await openTab(browser, url));
            await pictureTablet(browser);
            console.log(`${kind} ${url}: right`);
        } finally {
            await browser.close();
        }
    }
} finally {
    server.close();
}
