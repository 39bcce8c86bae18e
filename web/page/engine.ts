// The WebAssembly program of the workers, unpacked and compiled once.

import { fromBase64, inflate } from './share';

// A module with nothing but a function that calls itself in its place, which not every engine can do.
const TAIL_CALL = new Uint8Array([
    0, 0x61, 0x73, 0x6d, 1, 0, 0, 0, 1, 4, 1, 0x60, 0, 0, 3, 2, 1, 0, 10, 6, 1, 4, 0, 0x12, 0, 0x0b,
]);

const MOST_BYTES = 64 * 1024 * 1024;

export async function compileProgram(): Promise<WebAssembly.Module> {
    const name = WebAssembly.validate(TAIL_CALL) ? 'tovik-tail' : 'tovik-loop';
    const text = document.getElementById(name)?.textContent ?? '';
    const bytes = await inflate(fromBase64(text), 'gzip', MOST_BYTES);
    if (bytes === null) {
        throw new Error('the page is damaged');
    }
    return WebAssembly.compile(bytes);
}

// The source of the workers, as a URL.
export function workerSource(): string {
    const text = document.getElementById('tovik-worker')?.textContent ?? '';
    return URL.createObjectURL(new Blob([text], { type: 'text/javascript' }));
}
