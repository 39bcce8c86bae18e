// The files in the worker, and which blocks of them the program has written since they came.

import type { FileChange } from './protocol';
import type { Tovik } from './program';

const BLOCK = 64 * 1024; // bytes

const written = new Map<string, Set<number>>();

// The file's own way to write, which all who open it later are given.
function watch(tovik: Tovik, path: string): void {
    const blocks = new Set<number>();
    const { node } = tovik.FS.lookupPath(path);
    const { write } = node.stream_ops;
    node.stream_ops = {
        ...node.stream_ops,
        write(stream, from, offset, length, position, canOwn) {
            for (let block = Math.floor(position / BLOCK); block * BLOCK < position + length; block += 1) {
                blocks.add(block);
            }
            return write(stream, from, offset, length, position, canOwn);
        },
    };
    written.set(path, blocks);
}

// Files that are where this one or a folder of it is to be go away.
function makePlace(tovik: Tovik, path: string): void {
    for (const other of [...written.keys()]) {
        if (path.startsWith(`${other}/`) || other.startsWith(`${path}/`)) {
            takeFile(tovik, other, null);
        }
    }
    tovik.FS.mkdirTree(path.slice(0, path.lastIndexOf('/')) || '/');
}

function isFile(tovik: Tovik, path: string): boolean {
    const { object } = tovik.FS.analyzePath(path);
    return object !== null && tovik.FS.isFile(object.mode);
}

function removeEmptyFolders(tovik: Tovik, path: string): void {
    try {
        for (let end = path.lastIndexOf('/'); end > 0; end = path.lastIndexOf('/', end - 1)) {
            tovik.FS.rmdir(path.slice(0, end));
        }
    } catch {
        // This one has something in it.
    }
}

export function takeFile(tovik: Tovik, path: string, bytes: Uint8Array | null): void {
    if (bytes !== null) {
        makePlace(tovik, path);
        tovik.FS.writeFile(path, bytes);
        if (!written.has(path)) {
            watch(tovik, path);
        }
        written.get(path)?.clear();
    } else if (isFile(tovik, path)) {
        tovik.FS.unlink(path);
        written.delete(path);
        removeEmptyFolders(tovik, path);
    }
}

export function readFile(tovik: Tovik, path: string): Uint8Array | null {
    return tovik.FS.analyzePath(path).exists ? tovik.FS.readFile(path) : null;
}

// What was written to one of the files that came, about `most` bytes of it, in the order of its places; null: nothing.
// What is left comes with the next call.
export function takeWritten(tovik: Tovik, most: number): FileChange | null {
    const found = [...written].find(([, blocks]) => blocks.size > 0);
    if (!found) {
        return null;
    }
    const [path, blocks] = found;
    const taken = [...blocks].sort((a, b) => a - b).slice(0, Math.max(most / BLOCK, 1));
    const stream = tovik.FS.open(path, 'r');
    const parts = taken.map((block) => {
        blocks.delete(block);
        const bytes = new Uint8Array(BLOCK);
        const count = tovik.FS.read(stream, bytes, 0, BLOCK, block * BLOCK);
        return { at: block * BLOCK, bytes: bytes.subarray(0, count) };
    });
    tovik.FS.close(stream);
    return { kind: 'changed', path, parts, more: blocks.size > 0 };
}
