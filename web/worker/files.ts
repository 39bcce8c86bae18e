// The files in the worker. One that the program has not written since it came is as old as can be, so that a write in
// the same moment is seen.

import type { Tovik } from './program';

export function takeFile(tovik: Tovik, path: string, bytes: Uint8Array | null): void {
    if (bytes !== null) {
        tovik.FS.mkdirTree(path.slice(0, path.lastIndexOf('/')) || '/');
        tovik.FS.writeFile(path, bytes);
        forgetWrite(tovik, path);
    } else if (tovik.FS.analyzePath(path).exists) {
        tovik.FS.unlink(path);
    }
}

export function readFile(tovik: Tovik, path: string): Uint8Array | null {
    return tovik.FS.analyzePath(path).exists ? tovik.FS.readFile(path) : null;
}

// Whether the program has written to it; after `forgetWrite`, whether since then.
export function isWritten(tovik: Tovik, path: string): boolean {
    return tovik.FS.stat(path).mtime.getTime() !== 0;
}

export function forgetWrite(tovik: Tovik, path: string): void {
    tovik.FS.utime(path, 0, 0);
}
