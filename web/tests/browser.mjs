// A browser with the page in it, and what a person does there: controls are found by what they are and are called.

import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { existsSync, mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { createServer } from 'node:http';
import { tmpdir } from 'node:os';
import { dirname, join } from 'node:path';
import { fileURLToPath, pathToFileURL } from 'node:url';

export const ROOT = dirname(dirname(dirname(fileURLToPath(import.meta.url))));
export const PAGE = join(ROOT, 'build/web/tovik.html');
export const example = (name) => readFileSync(join(ROOT, 'examples', name), 'utf8');

const PATIENCE = 15000; // milliseconds
// Where all tests have to run, what is missing is a failure.
const SKIPPED = process.env.TOVIK_ALL_TESTS ? 1 : 77;

function skip(reason) {
    console.log(`skipped: ${reason}`);
    process.exit(SKIPPED);
}

const puppeteer = await import('puppeteer-core').then(
    (module) => module.default,
    () => skip('puppeteer-core is missing: npm ci in web/'),
);
if (!existsSync(PAGE)) {
    skip('build/web/tovik.html is missing: scripts/web makes it');
}

const PROGRAMS = {
    chrome: ['/usr/bin/chromium', '/usr/bin/chromium-browser', '/usr/bin/google-chrome'],
    firefox: ['/usr/bin/firefox', '/usr/bin/firefox-esr'],
};
const programOf = (kind) => PROGRAMS[kind].find((path) => existsSync(path));
export const hasFirefox = programOf('firefox') !== undefined;
if (programOf('chrome') === undefined) {
    skip('there is no Chromium');
}

// The programs for the terminal, with which the page is compared.
export const BIN = process.env.TOVIK_BIN ?? join(ROOT, 'build/release');

// A folder that is gone at the end.
export const folder = mkdtempSync(join(tmpdir(), 'tovik-web-'));
process.on('exit', () => rmSync(folder, { recursive: true, force: true }));

export function fileWith(name, content) {
    writeFileSync(join(folder, name), content);
    return join(folder, name);
}

// Runs tovik-run in the folder; a program that fails gives its output, too.
export function native(...words) {
    const settings = { cwd: folder, encoding: 'utf8', stdio: ['ignore', 'pipe', 'pipe'] };
    try {
        return execFileSync(join(BIN, 'tovik-run'), words, settings);
    } catch (error) {
        if (typeof error.status !== 'number') {
            throw error;
        }
        return error.stdout;
    }
}

// What its report says of the board.
export function boardOf(report) {
    const found = (name) => new RegExp(`^ +${name} +(\\S+)$`, 'm').exec(report)?.[1];
    return {
        red: Number(found('red LEDs')),
        green: Number(found('green LEDs')),
        digits: [found('HEX7-HEX4'), found('HEX3-HEX0')],
        lcd: [...report.matchAll(/"(.{16})"$/gm)].map(([, line]) => line.trimEnd()),
    };
}

export async function startBrowser(kind = 'chrome', ...flags) {
    const executablePath = programOf(kind);
    const chrome = {
        executablePath,
        args: [
            ...(process.getuid() === 0 ? ['--no-sandbox'] : []),
            '--disable-background-networking',
            '--disable-component-update',
            '--no-first-run',
            '--disable-dev-shm-usage', // which is small in some containers
            '--autoplay-policy=no-user-gesture-required',
            ...flags,
        ],
    };
    const firefox = { browser: 'firefox', executablePath };
    return puppeteer.launch({
        headless: true,
        protocolTimeout: 2 * PATIENCE,
        ...(kind === 'chrome' ? chrome : firefox),
    });
}

// Serves the page, and nothing else, on a port of its own. `asked` are the paths that were asked for.
export async function servePage() {
    const asked = [];
    const server = createServer((request, response) => {
        asked.push(request.url);
        response.setHeader('Content-Type', 'text/html');
        response.end(readFileSync(PAGE));
    });
    await new Promise((resolve) => server.listen(0, '127.0.0.1', resolve));
    return { url: `http://127.0.0.1:${server.address().port}/`, asked, close: () => server.close() };
}

export const FILE_URL = pathToFileURL(PAGE).href;

// Waits until `read` gives `expected`, or what satisfies it.
export async function until(expected, read, patience = PATIENCE) {
    const end = Date.now() + patience;
    for (;;) {
        const value = await read();
        const isRight =
            typeof expected === 'function'
                ? expected(value)
                : expected instanceof RegExp
                  ? expected.test(value)
                  : value === expected;
        if (isRight) {
            return value;
        }
        if (Date.now() > end) {
            assert.fail(`expected ${expected}, but it stays ${JSON.stringify(value)}`);
        }
        await new Promise((resolve) => setTimeout(resolve, 50));
    }
}

// A tab with the page. `errors` are those of its scripts.
export async function openTab(browser, url = FILE_URL, viewport = { width: 1280, height: 720 }) {
    const page = await browser.newPage();
    const errors = [];
    page.on('pageerror', (error) => errors.push(error.message));
    await page.setViewport(viewport);
    await page.goto(url);
    return { ...makeTab(page), errors };
}

// In the page.
function findControl(role, name) {
    const inputs = { textbox: 'input, textarea', slider: '[type=range]', combobox: 'select' };
    const named = new RegExp(name);
    const text = (one) => (one.labels?.[0] ?? one.querySelector('strong') ?? one).textContent.trim();
    return [...document.querySelectorAll(`[role=${role}], ${inputs[role] ?? role}`)].find(
        (one) => one.checkVisibility() && (named.test(one.ariaLabel ?? '') || named.test(text(one))),
    );
}

export function makeTab(page) {
    // The first one that is seen. `name` may be a regular expression.
    const find = async (role, name) => {
        const wanted =
            name instanceof RegExp ? name.source : `^${name.replace(/[.*+?^${}()|[\]\\]/g, '\\$&')}$`;
        const end = Date.now() + PATIENCE;
        for (;;) {
            const handle = (await page.evaluateHandle(findControl, role, wanted)).asElement();
            if (handle !== null) {
                return handle;
            }
            assert.ok(Date.now() < end, `there is no ${role} "${name}"`);
            await new Promise((resolve) => setTimeout(resolve, 50));
        }
    };
    const press = async (name, role = 'button') => {
        try {
            await (await find(role, name)).click();
        } catch (error) {
            if (!/detached|not clickable/.test(error.message)) {
                throw error;
            }
            await press(name, role); // the page has drawn it anew
        }
    };
    const text = (selector) =>
        page.evaluate(
            (wanted) => [...document.querySelectorAll(wanted)].map((one) => one.innerText).join('\n'),
            selector,
        );
    const source = () => text('.cm-content');
    const status = () => text('.status');
    const message = () => text('.debug-message');
    const key = async (keys) => {
        const names = keys.split('+');
        for (const name of names.slice(0, -1)) {
            await page.keyboard.down(name);
        }
        await page.keyboard.press(names.at(-1));
        for (const name of names.slice(0, -1).reverse()) {
            await page.keyboard.up(name);
        }
    };
    // Pastes a text in place of all that is in the editor.
    const write = async (program) => {
        const first = program.split('\n', 1)[0];
        const isThere = async () =>
            (await page.$eval('.cm-line', (line) => line.textContent)).startsWith(first);
        // A program that has just been made takes the keyboard for its editor, a moment later.
        await until(true, async () => {
            await page.evaluate((words) => {
                const area = document.body.appendChild(document.createElement('textarea'));
                area.id = 'to-copy';
                area.value = words;
                area.focus();
            }, program);
            await key('Control+a');
            await key('Control+c');
            await page.$eval('#to-copy', (area) => area.remove());
            await page.click('.cm-content');
            await key('Control+a');
            await key('Control+v');
            await new Promise((resolve) => setTimeout(resolve, 100));
            return isThere();
        });
    };
    const newProgram = async (name, program) => {
        await press('Open');
        await press('New program…', 'menuitem');
        await (await find('textbox', 'Name')).type(name);
        await press('Make it');
        await until(name, () => page.$eval('.program-name', (input) => input.value));
        await write(program);
    };
    // A program under a name, or an example.
    const open = async (name, program) => {
        if (program !== undefined) {
            await newProgram(name, program);
        } else {
            await press('Examples');
            await press(name);
            await until(new RegExp(`^${name.replace('.k', '')}`), () =>
                page.$eval('.program-name', (input) => input.value),
            );
        }
        await until(/^No faults/, status);
    };
    // Starts the program that is open, as fast as it goes, until the message says something.
    const run = async (last = /^Halted/) => {
        await page.select('.debug-speed select', 'max');
        await press(/^(Start|Restart)$/);
        await until(last, message);
    };
    const turn = async (...numbers) => {
        for (const number of numbers) {
            await press(`SW ${number}`, 'switch');
        }
    };
    // The names of the displays and lamps tell what they show.
    const shows = (beginning) =>
        page.evaluate(
            (wanted) =>
                [...document.querySelectorAll('.board-drawing [role=img]')]
                    .map((one) => one.getAttribute('aria-label'))
                    .find((label) => label.startsWith(wanted)) ?? '',
            beginning,
        );
    // All of it, in the words of a report of tovik-run.
    const board = async () => {
        const labels = await page.$$eval('.board-drawing [role=img]', (all) =>
            all.map((one) => one.ariaLabel),
        );
        const part = (beginning) =>
            labels.find((label) => label.startsWith(beginning)).replace(/^[^:]*: /, '');
        const lamps = (beginning) =>
            (part(beginning).match(/\d+/g) ?? []).reduce((sum, i) => sum + 2 ** Number(i), 0);
        return {
            red: lamps('Red'),
            green: lamps('Green'),
            digits: [part('HEX7'), part('HEX3')].map((four) => four.toLowerCase()),
            lcd: [...part('LCD').matchAll(/"(.*?)"/g)].map(([, line]) => line),
        };
    };
    const give = async (slot, file) => {
        await press('Devices', 'tab');
        const input = await page.waitForSelector(`.slot[aria-label="${slot}"] input[type=file]`);
        await input.uploadFile(file);
    };
    const slot = (name) => text(`.slot[aria-label="${name}"]`);
    // What the next download holds, as bytes.
    const download = async (act) => {
        await page.evaluate(() => {
            const { createObjectURL } = URL;
            window.downloaded = null;
            URL.createObjectURL = (blob) => {
                URL.createObjectURL = createObjectURL;
                void blob.arrayBuffer().then((buffer) => {
                    let letters = '';
                    new Uint8Array(buffer).forEach((byte) => (letters += String.fromCharCode(byte)));
                    window.downloaded = btoa(letters);
                });
                return createObjectURL.call(URL, blob);
            };
        });
        await act();
        const read = () => page.evaluate(() => window.downloaded);
        return Buffer.from(await until((value) => value !== null, read), 'base64');
    };
    return {
        page,
        find,
        press,
        text,
        source,
        key,
        write,
        newProgram,
        shows,
        give,
        slot,
        download,
        message,
        notes: () => text('.messages'),
        status,
        open,
        run,
        turn,
        board,
    };
}
