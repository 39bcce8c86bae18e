// How the page in the browser feels. Usage: scripts/bench-web [SECONDS], where SECONDS is how long each program runs.
//
// Prints: the file's size; as medians of a few visits, when the first picture is there, when a program can be started, and
// how long a fault that has been typed takes to be marked, the pause in typing that the page waits for included; how
// many instructions a second run in the page, and in tovik-run in the same minute; the processor time of all of the
// browser's processes, in real time, and how much more memory they then have.

import { execFileSync } from 'node:child_process';
import { readFileSync, readdirSync, statSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';

import { BIN, example, folder, openTab, PAGE, ROOT, startBrowser, until } from './tests/browser.mjs';

const SECONDS = Number(process.argv[2] ?? 10);
const VISITS = 5;
const WARM_UP_MS = 3000;
const HERTZ = 100; // of the system's clock for processor time
const ENDLESS = ['arithmetic', 'bubble_sort', 'fibonacci', 'sieve', 'pixels'];

const wait = (ms) => new Promise((resolve) => setTimeout(resolve, ms));
const median = (numbers) => numbers.sort((a, b) => a - b)[Math.floor(numbers.length / 2)];

// A program of bench/programs that begins again where it would end.
function endless(name) {
    const text = readFileSync(join(ROOT, `bench/programs/${name}.k`), 'utf8');
    return text
        .replace(/^(\w*\s+)halt\b.*$/m, '$1be 0 again again')
        .replace(/^.*\.data/m, 'again .data 0\n$&');
}

const instructions = async (tab) =>
    Number(/([\d\u202f]+) instructions,/.exec(await tab.text('body'))?.[1].replace(/\D/g, '') ?? 0);

async function visits() {
    const seen = { picture: [], ready: [], marked: [] };
    for (let i = 0; i < VISITS; i += 1) {
        const browser = await startBrowser();
        const tab = await openTab(browser);
        await until(/No faults/, () => tab.text('body'));
        seen.ready.push(await tab.page.evaluate('performance.now()'));
        const paint = "performance.getEntriesByName('first-contentful-paint')[0].startTime";
        seen.picture.push(await tab.page.evaluate(paint));
        await tab.page.click('.cm-content');
        await tab.key('Control+End');
        await tab.page.keyboard.type('\n        ad');
        seen.marked.push(
            await tab.page.evaluate(async () => {
                const typed = performance.now();
                while (!document.querySelector('.cm-lintRange-error')) {
                    await new Promise((resolve) => setTimeout(resolve, 1));
                }
                return performance.now() - typed;
            }),
        );
        await browser.close();
    }
    for (const [name, numbers] of Object.entries(seen)) {
        console.log(`${name.padEnd(14)} ${median(numbers).toFixed(0)} ms`);
    }
}

// Of the browser and all processes that it has started.
function used(root) {
    const parents = new Map();
    for (const pid of readdirSync('/proc').filter((name) => /^\d+$/.test(name))) {
        try {
            const fields = readFileSync(`/proc/${pid}/stat`, 'latin1').split(') ').at(-1).split(' ');
            const memory = readFileSync(`/proc/${pid}/smaps_rollup`, 'latin1');
            parents.set(Number(pid), {
                parent: Number(fields[1]),
                seconds: (Number(fields[11]) + Number(fields[12])) / HERTZ,
                mebibytes: Number(/^Pss: +(\d+)/m.exec(memory)?.[1] ?? 0) / 1024,
            });
        } catch {
            // It has just ended.
        }
    }
    const belongs = (pid) => pid === root || (parents.has(pid) && belongs(parents.get(pid).parent));
    const all = [...parents].filter(([pid]) => belongs(pid)).map(([, process]) => process);
    const sum = (name) => all.reduce((total, process) => total + process[name], 0);
    return { seconds: sum('seconds'), mebibytes: sum('mebibytes') };
}

async function start(name, text, speed) {
    const browser = await startBrowser('chrome', '--disable-gpu');
    const tab = await openTab(browser);
    await tab.newProgram(name, text);
    await tab.page.select('select[aria-label=Speed]', speed);
    await tab.key('F5');
    await wait(WARM_UP_MS);
    return { browser, tab };
}

async function speeds() {
    for (const name of ENDLESS) {
        writeFileSync(join(folder, 'endless.k'), endless(name));
        const { browser, tab } = await start('endless', endless(name), 'max');
        const [first, begin] = [await instructions(tab), Date.now()];
        await wait(SECONDS * 1000);
        const page = ((await instructions(tab)) - first) / (Date.now() - begin) / 1000;
        await browser.close();
        const most = Math.round(page * 1e6 * SECONDS);
        const started = Date.now();
        try {
            execFileSync(join(BIN, 'tovik-run'), ['--limit', `${most}`, '--report', 'none', 'endless.k'], {
                cwd: folder,
            });
        } catch {
            // The limit is no success.
        }
        const native = most / (Date.now() - started) / 1000;
        console.log(
            `${name.padEnd(14)} ${page.toFixed(0)} million instructions a second, tovik-run ${native.toFixed(0)}`,
        );
    }
}

async function realTime() {
    for (const [name, text] of [
        ['bounce', example('bounce.k')],
        ['bubble_sort', endless('bubble_sort')],
    ]) {
        const { browser, tab } = await start(name, text, 'board');
        const root = browser.process().pid;
        const [before, begin] = [used(root), Date.now()];
        await wait(SECONDS * 1000);
        const after = used(root);
        const share = (after.seconds - before.seconds) / ((Date.now() - begin) / 1000);
        const more = after.mebibytes - before.mebibytes;
        console.log(
            `${name.padEnd(14)} ${(share * 100).toFixed(1)} % of a core in real time, ` +
                `${before.mebibytes.toFixed(0)} MiB and then ${more.toFixed(0)} more`,
        );
        await browser.close();
    }
}

console.log(`size           ${(statSync(PAGE).size / 1e6).toFixed(2)} MB`);
await visits();
await speeds();
await realTime();
process.exit(0);
