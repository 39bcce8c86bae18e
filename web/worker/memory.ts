// Texts and bytes in and out of the program's memory, which may move whenever the program runs.

import type { Tovik } from './program';

// Calls a function with a text, or with bytes and their number, that are there as long as it lasts.
export function withText<T>(tovik: Tovik, text: string, call: (pointer: number) => T): T {
    const most = tovik.lengthBytesUTF8(text) + 1;
    return withRoom(tovik, most, (pointer) => {
        tovik.stringToUTF8(text, pointer, most);
        return call(pointer);
    });
}

export function withBytes<T>(tovik: Tovik, bytes: Uint8Array, call: (pointer: number) => T): T {
    return withRoom(tovik, bytes.length, (pointer) => {
        tovik.HEAPU8.set(bytes, pointer);
        return call(pointer);
    });
}

// A copy of so many bytes.
export function bytesAt(tovik: Tovik, pointer: number, count: number): Uint8Array<ArrayBuffer> {
    return tovik.HEAPU8.slice(pointer, pointer + count);
}

function withRoom<T>(tovik: Tovik, bytes: number, call: (pointer: number) => T): T {
    const pointer = tovik._malloc(bytes);
    try {
        return call(pointer);
    } finally {
        tovik._free(pointer);
    }
}
