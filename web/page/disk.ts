// Files from the computer's disk and back to it.

import { LONGEST_FILE, MOST_FILES, wrongName } from './program';
import type { Files } from './program';

// What Chromium has and the types of the others lack.
interface PickerWindow {
    showOpenFilePicker?: (options: object) => Promise<FileSystemFileHandle[]>;
    showSaveFilePicker?: (options: object) => Promise<FileSystemFileHandle>;
    showDirectoryPicker?: (options: object) => Promise<FileSystemDirectoryHandle>;
}

const pickers = window as PickerWindow;
export const canPickFolder = pickers.showDirectoryPicker !== undefined;

export interface Opened {
    files: Files;
    refused: string[]; // sentences
}

// Reads sources, and says of each other file why it is none.
export async function readSources(list: readonly File[]): Promise<Opened> {
    const files: Files = new Map();
    const refused: string[] = [];
    for (const file of list.slice(0, MOST_FILES)) {
        const wrong = wrongName(file.name);
        if (wrong !== null) {
            refused.push(`${file.name} is no source. ${wrong}`);
        } else if (file.size > LONGEST_FILE) {
            refused.push(`${file.name} is larger than 1 MiB.`);
        } else {
            try {
                const text = new TextDecoder('utf-8', { fatal: true }).decode(await file.arrayBuffer());
                if (text.includes('\0')) {
                    refused.push(`${file.name} is no text.`);
                } else {
                    files.set(file.name, text.replace(/\r\n?/g, '\n'));
                }
            } catch (error) {
                const reason = error instanceof TypeError ? 'is not text in UTF-8.' : 'cannot be read.';
                refused.push(`${file.name} ${reason}`);
            }
        }
    }
    if (list.length > MOST_FILES) {
        refused.unshift(`Only the first ${MOST_FILES} files were looked at.`);
    }
    return { files, refused };
}

// Where files have come from or gone to, where the browser says it: there they are saved again.
const places = new Map<string, FileSystemFileHandle>();
const origins = new WeakMap<File, FileSystemFileHandle>();

export const placeKey = (program: string, name: string): string => `${program}/${name}`;
export const hasPlace = (key: string): boolean => places.has(key);

export function rememberOrigins(program: string, list: readonly File[]): void {
    for (const file of list) {
        const handle = origins.get(file);
        if (handle !== undefined) {
            places.set(placeKey(program, file.name), handle);
        }
    }
}

// Lets the user choose sources.
export async function chooseFiles(): Promise<File[]> {
    if (pickers.showOpenFilePicker !== undefined) {
        try {
            const types = [{ description: 'Sources', accept: { 'text/plain': ['.k'] } }];
            const handles = await pickers.showOpenFilePicker({ multiple: true, types });
            return await Promise.all(
                handles.map(async (handle) => {
                    const file = await handle.getFile();
                    origins.set(file, handle);
                    return file;
                }),
            );
        } catch (error) {
            if (isCancelled(error)) {
                return [];
            }
        }
    }
    const input = document.createElement('input');
    input.type = 'file';
    input.multiple = true;
    input.accept = '.k';
    return new Promise((resolve) => {
        input.addEventListener('change', () => resolve([...(input.files ?? [])]));
        input.addEventListener('cancel', () => resolve([]));
        input.click();
    });
}

export function download(name: string, content: BlobPart, type: string): void {
    const link = document.createElement('a');
    link.href = URL.createObjectURL(new Blob([content], { type }));
    link.download = name;
    link.click();
    setTimeout(() => URL.revokeObjectURL(link.href), 60000);
}

async function write(handle: FileSystemFileHandle, text: string): Promise<void> {
    const stream = await handle.createWritable();
    await stream.write(text);
    await stream.close();
}

const isCancelled = (error: unknown): boolean => error instanceof DOMException && error.name === 'AbortError';

// Saves a text as a file: where it is known to be, where the user says, or among the downloads. False: the user
// does not want to.
export async function saveFile(
    key: string,
    name: string,
    text: string,
    elsewhere: boolean,
): Promise<boolean> {
    const base = name.split('/').pop() ?? name;
    if (pickers.showSaveFilePicker === undefined) {
        download(base, text, 'text/plain');
        return true;
    }
    try {
        const known = elsewhere ? undefined : places.get(key);
        const place = known ?? (await pickers.showSaveFilePicker({ suggestedName: base }));
        await write(place, text);
        places.set(key, place);
        return true;
    } catch (error) {
        places.delete(key);
        if (!isCancelled(error)) {
            download(base, text, 'text/plain');
        }
        return !isCancelled(error);
    }
}

// Saves all files into a folder that the user chooses. False: the user does not want to.
export async function saveFolder(files: Files): Promise<boolean> {
    try {
        const top = await pickers.showDirectoryPicker?.({ mode: 'readwrite' });
        for (const [name, text] of top === undefined ? [] : files) {
            const parts = name.split('/');
            let folder = top;
            for (const part of parts.slice(0, -1)) {
                folder = await folder?.getDirectoryHandle(part, { create: true });
            }
            const handle = await folder?.getFileHandle(parts[parts.length - 1] ?? name, { create: true });
            if (handle !== undefined) {
                await write(handle, text);
            }
        }
        return top !== undefined;
    } catch (error) {
        if (isCancelled(error)) {
            return false;
        }
        throw error;
    }
}

// Lets files be dropped anywhere on the page.
export function acceptDrops(dropped: (files: File[]) => void): void {
    const hasFiles = (event: DragEvent): boolean => event.dataTransfer?.types.includes('Files') ?? false;
    document.addEventListener('dragover', (event) => {
        if (hasFiles(event)) {
            event.preventDefault();
            document.body.classList.add('dropping');
        }
    });
    document.addEventListener('dragleave', (event) => {
        if (event.relatedTarget === null) {
            document.body.classList.remove('dropping');
        }
    });
    document.addEventListener(
        'drop',
        (event) => {
            if (hasFiles(event)) {
                event.preventDefault();
                document.body.classList.remove('dropping');
                // A slot of the board takes what is dropped on it itself.
                if (event.target instanceof Element && event.target.closest('.slot') !== null) {
                    return;
                }
                event.stopPropagation(); // the editor would put the text of the file into this one
                dropped([...(event.dataTransfer?.files ?? [])]);
            }
        },
        true,
    );
}
