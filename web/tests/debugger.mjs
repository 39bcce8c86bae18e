// Steering and looking at a program, as one does it on the page.

import assert from 'node:assert/strict';
import { after, test } from 'node:test';
import { openTab, startBrowser, until } from './browser.mjs';

const browser = await startBrowser();
after(() => browser.close());
const tab = await openTab(browser);
const { page } = tab;

// The row of a panel in which something has a name.
const rowOf = async (name) => {
    const find = (wanted) =>
        [...document.querySelectorAll('.debug-row, .debug-memory-row')].find(
            (one) => one.checkVisibility() && [...one.children].some((part) => part.textContent === wanted),
        ) ?? null;
    await until(true, () => page.evaluate(`(${find})(${JSON.stringify(name)}) !== null`));
    return (await page.evaluateHandle(find, name)).asElement();
};
const row = async (name) => (await rowOf(name)).evaluate((one) => one.innerText.replace(/\s+/g, ' '));
const typeOver = async (text) => {
    await page.waitForSelector('.debug-edit');
    await tab.key('Control+a');
    await page.keyboard.type(text);
    await tab.key('Enter');
};
const field = async (name, text) => {
    await (await tab.find('textbox', name)).type(text);
    await tab.key('Enter');
};

test('a mistake is found by going backwards', async () => {
    await tab.open('average.k');
    await tab.run();
    await tab.press('Watches', 'tab');
    await field('Expression to watch', 'list[4] + count');
    await until(/ 61 /, () => row('list[4] + count'));
    await tab.press('Console', 'tab');
    await field('Expression', 'last write count');
    await until(/average\.k:\d+: cpta square list i, instruction 34/, () => tab.text('.debug-output'));
    // The breakpoint on the word, backwards.
    await tab.press('Variables', 'tab');
    await until(/ 36 /, () => row('count'));
    await (await rowOf('count')).click({ button: 'right' });
    await tab.press('Stop when it is written', 'menuitem');
    await until(/^●/, () => row('count'));
    await tab.press('Back');
    await until(/Next is average\.k:8/, tab.message);
    await until(/34 instructions/, () => tab.text('.debug-moment'));
    // The keys.
    await page.click('.debug-message');
    await tab.key('Alt+F11');
    await until(/33 instructions/, () => tab.text('.debug-moment'));
    await tab.key('F10');
    await until(/34 instructions/, () => tab.text('.debug-moment'));
});

test('words are changed, in the variables and in the memory, and the program goes on with them', async () => {
    await tab.newProgram(
        'words',
        'again           add     sum sum one\n                be      again zero zero\nsum             .data   0\none             .data   1\nzero            .data   0\n',
    );
    await until(/^No faults/, tab.status);
    assert.equal(await tab.text('[aria-label=Watches] li'), ''); // those of the other program
    await page.select('.debug-speed select', '1000');
    await tab.press('Start');
    await until(/^The program runs/, tab.message);
    await tab.press('Pause');
    await until(/Next is/, tab.message);
    await tab.press('Variables', 'tab');
    await (await rowOf('one')).click({ count: 2 });
    await typeOver("'a'");
    await until(/ 97 /, () => row('one'));
    await tab.press('Memory', 'tab');
    await field('Go to an address or a label', 'sum');
    await until(/^8 sum/, () => row('sum'));
    const memory = await page.waitForSelector('.debug-memory-row:focus');
    await memory.click({ count: 2 });
    await typeOver('0x10');
    await until(/\b16\b/, () => memory.evaluate((it) => it.innerText));
    await tab.press('Variables', 'tab');
    await until(/ 16 /, () => row('sum'));
    for (const _ of [1, 2]) {
        const moment = await tab.text('.debug-moment');
        await tab.press('Step');
        await until(
            (now) => now !== moment,
            () => tab.text('.debug-moment'),
        );
    }
    await until(/ 113 /, () => row('sum'));
    // A wrong value is refused with a sentence, and nothing is changed.
    await (await rowOf('sum')).click({ count: 2 });
    await typeOver('nobody');
    await until(/nobody/, () => tab.text('.debug-fault-text'));
    await tab.key('Escape');
});

test('a breakpoint with a condition', async () => {
    await tab.open('average.k');
    await page.click('.cm-content');
    await tab.key('Control+Home');
    for (let line = 1; line < 7; line += 1) {
        await tab.key('ArrowDown');
    }
    await tab.key('Shift+F9');
    await (await tab.find('textbox', 'Only if')).type('n == 3');
    await tab.press('Set');
    await tab.run(/breakpoint/);
    await tab.press('Variables', 'tab');
    await until(/ 3 /, () => row('n'));
    await tab.press('Continue');
    await until(/^Halted/, tab.message);
    // It is kept with the program. What is kept for a file that is gone keeps nothing from running, and is no
    // breakpoint of another program that has such a file.
    await page.evaluate(() => {
        const key = `tovik-breakpoints-${localStorage.getItem('tovik-last')}`;
        const [one] = JSON.parse(localStorage.getItem(key));
        const [other, broken] = [
            { ...one, path: '/program/keys.k', line: 5 },
            { ...one, path: '/program/gone.k', line: -1 },
        ];
        localStorage.setItem(key, JSON.stringify([one, other, broken]));
    });
    await page.reload();
    await until(/^No faults/, tab.status);
    await tab.run(/breakpoint/);
    await until(/ 3 /, () => row('n'));
    await tab.open('keys.k');
    assert.equal(await page.$('.debug-breakpoint:not(.debug-spacer)'), null);
});

test('to step out, the callers are looked for as long as it takes', async () => {
    await tab.newProgram(
        'long',
        `                call    work work_return
                halt
work            add     i i one
                call    leaf leaf_return
                bne     work i zero
                ret     work_return
leaf            ret     leaf_return
i               .data   0
one             .data   1
zero            .data   0
work_return     .data   0
leaf_return     .data   0
`,
    );
    await until(/^(No faults|\d)/, tab.status);
    await tab.run(/^The program runs/);
    const moment = async () => Number((await tab.text('.debug-moment')).split(' ')[0].replace(/\D/g, ''));
    await until((now) => now > 5e8, moment);
    const blinking = await page.$eval('.cm-cursorLayer', (layer) => getComputedStyle(layer).animationName);
    assert.equal(blinking, 'none'); // which would cost as much as half a board
    await tab.press('Pause');
    await until(/Next is/, tab.message);
    await tab.press('Step out');
    await until(/callers: [5-9]\d %/, () => tab.text('.debug-way'));
    await tab.press('Stop');
    assert.deepEqual(tab.errors, []);
});

test('the screen of the board alone', async () => {
    await tab.press('Full screen');
    await until(true, () =>
        page.evaluate('document.fullscreenElement?.contains(document.activeElement) ?? false'),
    );
    await page.evaluate('document.exitFullscreen()');
});

test('help is in the page', async () => {
    await tab.key('F1');
    await tab.press('The K24', 'tab');
    assert.match(await tab.text('.help'), /word a = word b \+ word c.*0x800000e4/s);
    await tab.key('Escape');
});
