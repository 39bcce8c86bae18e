// Makes ../build/web/tovik.html, the whole of tovik in one file. The WebAssembly programs and the glue of the worker
// have to be there already, in ../build/web/wasm.

import { createHash } from 'node:crypto';
import { mkdirSync, readdirSync, readFileSync, writeFileSync } from 'node:fs';
import { dirname, join, relative, sep } from 'node:path';
import { fileURLToPath } from 'node:url';
import { gzipSync } from 'node:zlib';
import { build } from 'esbuild';

const WEB = dirname(fileURLToPath(import.meta.url));
const ROOT = dirname(WEB);
const WASM = join(ROOT, 'build/web/wasm');
const FILE = join(ROOT, 'build/web/tovik.html');
const MOST_BYTES = 3 * 1024 * 1024;
// CodeMirror makes its style elements itself; they carry this word.
const STYLE_WORD = 'codemirror';

const text = (...path) => readFileSync(join(...path), 'utf8');

async function bundle(entry) {
    const made = await build({
        entryPoints: [join(WEB, entry)],
        absWorkingDir: WEB,
        bundle: true,
        minify: true,
        write: false,
        metafile: true,
        format: 'iife',
        target: 'es2022',
        platform: 'browser',
        // The glue asks for these only where there is no browser.
        external: ['module', 'fs', 'path', 'url', 'crypto', 'util', 'worker_threads', 'perf_hooks', 'node:*'],
        legalComments: 'none',
        define: { STYLE_WORD: JSON.stringify(STYLE_WORD) },
        loader: { '.css': 'text' },
    });
    return { code: made.outputFiles[0].text.trim(), inputs: Object.keys(made.metafile.inputs) };
}

async function styles() {
    const made = await build({
        entryPoints: [join(WEB, 'page/style.css')],
        bundle: true,
        minify: true,
        write: false,
        target: ['chrome113', 'firefox113', 'safari16.4'],
    });
    return made.outputFiles[0].text.trim();
}

// A script's text ends at `</script`, but not where `<!--` and `<script` stand before it.
function inScript(name, code) {
    if (/<\/script|<!--[^]*<script/i.test(code)) {
        throw new Error(`${name} cannot stand in a script: it has "</script" or "<script"`);
    }
    return code;
}

const json = (value) => JSON.stringify(value).replaceAll('<', '\\u003c');

// Every example with what docs/examples.md says of it, in that order, then the exercises.
function examples() {
    const about = new Map();
    for (const part of text(ROOT, 'docs/examples.md').split(/^## /m).slice(1)) {
        const [, name, words] = /^(\S+\.k)\n\n((?:.+\n)+)/.exec(part) ?? [];
        if (name !== undefined) {
            const plain = words.replaceAll('`', '').replace(/\[([^\]]*)\]\([^)]*\)/g, '$1');
            about.set(name, plain.replace(/\s+/g, ' ').trim());
        }
    }
    const sources = (folder) =>
        readdirSync(join(ROOT, 'examples', folder))
            .filter((name) => name.endsWith('.k'))
            .sort();
    const example = (folder, name, words) => ({
        name,
        about: words,
        text: text(ROOT, 'examples', folder, name),
    });
    const known = [...about.keys()];
    const place = (name) => (known.includes(name) ? known.indexOf(name) : known.length);
    return {
        examples: sources('')
            .sort((a, b) => place(a) - place(b))
            .map((name) => example('', name, about.get(name) ?? '')),
        exercises: sources('exercises').map((name) => {
            const made = example('exercises', name, '');
            const comment = /^((?:\/\/.*\n)+)/.exec(made.text)?.[1] ?? '';
            return {
                ...made,
                about: comment
                    .replace(/^\/\/ ?/gm, '')
                    .replace(/\s+/g, ' ')
                    .trim(),
            };
        }),
        library: Object.fromEntries(
            sources('lib').map((name) => [`lib/${name}`, text(ROOT, 'examples/lib', name)]),
        ),
    };
}

// What the page says of itself and of the K24: parts of the manual, without the sentences that lead to its other pages.
function help() {
    const sections = text(ROOT, 'docs/browser.md').split(/^(?=## )/m);
    const chosen = ['Running a program', 'Programs and files', 'The devices', 'Without a mouse'].map(
        (title) => sections.find((section) => section.startsWith(`## ${title}\n`)),
    );
    const [, sheet] = /<div class="sheet">(.*)<\/div>/s.exec(text(ROOT, 'docs/sheet.md')) ?? [];
    if ([...chosen, sheet].includes(undefined)) {
        throw new Error('a part of the manual has another name');
    }
    const plain = (words) =>
        words
            .replace(/\[[^\]]*\]\([^)]*\)/g, '\0')
            .split(/(?<=[.|])(?=\s)/) // sentences, and parts of a table's rows
            .map((part) => (part.includes('\0') ? part.replace(/\S[^|]*/, '') : part))
            .join('');
    return { page: plain(chosen.join('\n')), k24: plain(sheet) };
}

// The texts of the licenses of all that is in the file, those that are the same only once.
function licenses(inputs) {
    const packages = new Map();
    for (const input of inputs) {
        const found = /^(.*node_modules\/((?:@[^/]+\/)?[^/]+))\//.exec(input.split(sep).join('/'));
        if (found !== null) {
            packages.set(found[2], found[1]);
        }
    }
    const byText = new Map();
    for (const [name, folder] of [...packages].sort()) {
        const file = readdirSync(join(WEB, folder)).find((entry) => /^licen[cs]e/i.test(entry));
        if (file === undefined) {
            throw new Error(`${name} has no file with its license`);
        }
        const words = text(WEB, folder, file).replaceAll('\r', '').trim();
        byText.set(words, [...(byText.get(words) ?? []), name]);
    }
    return [
        `tovik\n\n${text(ROOT, 'LICENSE').trim()}`,
        ...[...byText].map(([words, names]) => `${names.join(', ')}\n\n${words}`),
        `The C++ libraries\n\n${text(ROOT, 'data/debian/copyright').trim()}`,
        text(WEB, 'licenses.txt').trim(),
    ].join(`\n\n${'-'.repeat(72)}\n\n`);
}

const program = (name) => gzipSync(readFileSync(join(WASM, name)), { level: 9 }).toString('base64');
const hash = (code) => `'sha256-${createHash('sha256').update(code).digest('base64')}'`;
const icon = (svg) => `data:image/svg+xml,${encodeURIComponent(svg)}`;

const [page, worker, style] = await Promise.all([
    bundle('page/main.ts'),
    bundle('worker/worker.ts'),
    styles(),
]);
const script = inScript('the page', page.code);
const parts = {
    // Nothing is sent anywhere: there is no connection that this allows.
    policy: [
        `default-src 'none'`,
        `script-src ${hash(script)} 'wasm-unsafe-eval' data:`, // data: is for the audio worklets
        `worker-src blob:`,
        `style-src ${hash(style)} 'nonce-${STYLE_WORD}'`,
        `img-src data: blob:`,
        `connect-src 'none'`,
        `form-action 'none'`,
        `base-uri 'none'`,
    ].join('; '),
    icon: icon(text(ROOT, 'data/icons/tovik.svg').trim()),
    style,
    examples: json(examples()),
    script,
    worker: inScript('the worker', worker.code),
    help: json(help()),
    licenses: inScript('a license', licenses([...page.inputs, ...worker.inputs])),
    tail: program('tovik-tail.wasm'),
    loop: program('tovik-loop.wasm'),
};
const html = text(WEB, 'page/index.html').replace(/\{\{(\w+)\}\}/g, (_, name) => parts[name]);
const bytes = Buffer.byteLength(html);
if (bytes > MOST_BYTES) {
    throw new Error(`the file has ${bytes} bytes, more than ${MOST_BYTES}`);
}
mkdirSync(dirname(FILE), { recursive: true });
writeFileSync(FILE, html);
console.log(`${relative(process.cwd(), FILE)}: ${bytes} bytes`);
