// Programs in links, and pages with a program in them.

import type { Given } from './program';
import { packGiven, unpackGiven } from './program';

const MOST_UNPACKED = 1024 * 1024; // bytes
const MARK = '#program=';
const PIECE = 4096; // bytes to be unpacked at a time

async function collect(
    stream: ReadableStream<Uint8Array>,
    most: number,
): Promise<Uint8Array<ArrayBuffer> | null> {
    const reader = stream.getReader();
    const parts: Uint8Array[] = [];
    let size = 0;
    for (let next = await reader.read(); !next.done; next = await reader.read()) {
        size += next.value.length;
        if (size > most) {
            await reader.cancel();
            return null;
        }
        parts.push(next.value);
    }
    const all = new Uint8Array(size);
    let at = 0;
    for (const part of parts) {
        all.set(part, at);
        at += part.length;
    }
    return all;
}

// Null: it is longer than `most` bytes.
export async function inflate(
    bytes: Uint8Array<ArrayBuffer>,
    format: CompressionFormat,
    most: number,
): Promise<Uint8Array<ArrayBuffer> | null> {
    let at = 0;
    // Browsers unpack at one go what they are given, which may become a thousand times as long.
    const pieces = new ReadableStream<Uint8Array<ArrayBuffer>>({
        pull(to) {
            to.enqueue(bytes.subarray(at, at + PIECE));
            at += PIECE;
            if (at >= bytes.length) {
                to.close();
            }
        },
    });
    return collect(pieces.pipeThrough(new DecompressionStream(format)), most);
}

export function fromBase64(text: string): Uint8Array<ArrayBuffer> {
    return Uint8Array.from(atob(text), (character) => character.charCodeAt(0));
}

function toBase64Url(bytes: Uint8Array): string {
    let text = '';
    bytes.forEach((byte) => (text += String.fromCharCode(byte)));
    return btoa(text).replaceAll('+', '-').replaceAll('/', '_').replaceAll('=', '');
}

// Why no page and no link with this program could be opened, or null.
export function faultOf(given: Given): string | null {
    const again = unpackGiven(packGiven(given));
    return typeof again === 'string' ? again : null;
}

// The program in a link to this page; null if it is larger than what a link is opened with.
export async function linkOf(given: Given): Promise<string | null> {
    const content = new Blob([packGiven(given)]);
    if (content.size > MOST_UNPACKED) {
        return null;
    }
    const packed = content.stream().pipeThrough(new CompressionStream('deflate-raw'));
    const bytes = (await collect(packed, Infinity)) ?? new Uint8Array();
    return location.href.split('#')[0] + MARK + toBase64Url(bytes);
}

// The program of a link, null if it has none, or a sentence about what is wrong with it.
export async function givenInLink(hash: string): Promise<Given | string | null> {
    if (!hash.startsWith(MARK)) {
        return null;
    }
    const broken = (reason: string): string => `The program in this link cannot be read: ${reason}.`;
    try {
        const packed = fromBase64(hash.slice(MARK.length).replaceAll('-', '+').replaceAll('_', '/'));
        const bytes = await inflate(packed, 'deflate-raw', MOST_UNPACKED);
        if (bytes === null) {
            return 'The program in this link is larger than 1 MiB. It has not been opened.';
        }
        const given = unpackGiven(new TextDecoder('utf-8', { fatal: true }).decode(bytes));
        return typeof given === 'string' ? broken(given) : given;
    } catch {
        return broken('a part of the link seems to be missing');
    }
}

// A short mark of what was given, by which it is known again.
export function markOf(given: Given): string {
    let [a, b] = [0x811c9dc5, 0x9e3779b9];
    for (const character of packGiven(given)) {
        const code = character.codePointAt(0) ?? 0;
        a = Math.imul(a ^ code, 0x01000193);
        b = Math.imul(b ^ code, 0x85ebca6b);
    }
    return (a >>> 0).toString(36) + (b >>> 0).toString(36);
}

// The same for the page.
export function givenInPage(): Given | string | null {
    const text = document.getElementById('tovik-task')?.textContent ?? '';
    const given = text.trim() === '' ? null : unpackGiven(text);
    return typeof given === 'string' ? `The program in this page cannot be read: ${given}.` : given;
}

// This page as a file, with another program in it, or with none. All that it consists of is marked; what scripts
// and extensions of the browser have added is not.
export function pageWith(given: Given | null): string {
    const part = (original: Element): string => {
        const copy = original.cloneNode(true) as Element;
        if (copy.id === 'app') {
            copy.replaceChildren();
            copy.removeAttribute('class');
        }
        if (copy.id === 'tovik-task') {
            copy.textContent = given === null ? '' : packGiven(given).replaceAll('<', '\\u003c');
        }
        if (copy.localName === 'title') {
            copy.textContent = given === null ? 'tovik' : `${given.name} - tovik`;
        }
        return copy.outerHTML;
    };
    const parts = (parent: Element): string =>
        [...parent.querySelectorAll(':scope > [data-page]')].map(part).join('\n');
    return [
        '<!doctype html>\n<html lang="en">\n<head>',
        parts(document.head),
        '</head>\n<body>',
        parts(document.body),
        '</body>\n</html>\n',
    ].join('\n');
}
