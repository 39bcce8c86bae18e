// A program of the user's: its files, and how two states of it become one.

export type Files = Map<string, string>; // texts by names, such as "pong.k" and "lib/vga.k"

// What a link or a page carries.
export interface Given {
    name: string;
    files: Files;
    main: string;
    text: string; // an assignment, in Markdown
}

export interface Program extends Given {
    id: string;
    from: string | null; // the mark of the link or page that it came with
    revision: number; // one more with every state that is kept
    changed: number; // when, in milliseconds
    deleted: number | null; // when
}

export const LONGEST_FILE = 1024 * 1024; // characters
export const MOST_FILES = 200;

// What is wrong with the name of a file, as a sentence; or null.
export function wrongName(name: string): string | null {
    if (!name.endsWith('.k') || name === '.k' || name.endsWith('/.k')) {
        return 'The name of a file ends with .k, such as main.k.';
    }
    if (name.length > 100) {
        return 'This name is too long.';
    }
    if (/[\u0000-\u001f\u007f\\:*?"<>|]/.test(name) || name.includes('//')) {
        return 'A name has no \\ : * ? " < > | and no //.';
    }
    const bad = name.split('/').some((part) => part === '' || part.startsWith('.') || part !== part.trim());
    return bad ? 'No part of a name begins with a dot, and none begins or ends with a blank.' : null;
}

// `name`, or the first of "NAME 2", "NAME 3" and so on that is free. An ending such as ".k" stays at the end.
export function freeName(name: string, taken: (name: string) => boolean): string {
    const [, stem = name, ending = ''] = /^(.*?)(\.k)?$/s.exec(name) ?? [];
    let free = name;
    for (let number = 2; taken(free); number += 1) {
        free = `${stem} ${number}${ending}`;
    }
    return free;
}

export function newProgram(given: Given, from: string | null, names: readonly string[]): Program {
    return {
        ...given,
        name: freeName(given.name, (name) => names.includes(name)),
        files: new Map(given.files),
        id: `${Date.now().toString(36)}-${Math.random().toString(36).slice(2, 10)}`,
        from,
        revision: 0,
        changed: Date.now(),
        deleted: null,
    };
}

export interface Merged {
    files: Files;
    aside: Map<string, string>; // by the names of files that both have changed: where the text of this tab is now
}

// What becomes of files that were `base` when this tab last saw them, are `mine` in it now, and `theirs` where
// another tab has kept them. No text is lost: where both have changed one file, both stay.
export function merge(base: Files, mine: Files, theirs: Files): Merged {
    const files: Files = new Map();
    const aside = new Map<string, string>();
    for (const name of new Set([...theirs.keys(), ...mine.keys()])) {
        const [was, here, there] = [base.get(name), mine.get(name), theirs.get(name)];
        const both = here !== was && there !== was && here !== there;
        if (there === undefined && here === was) {
            continue; // removed there
        }
        const kept = there === was || there === undefined ? here : there;
        if (kept !== undefined) {
            files.set(name, kept);
        }
        if (both && here !== undefined && there !== undefined) {
            aside.set(name, '');
        }
    }
    for (const name of aside.keys()) {
        const other = freeName(name.replace(/\.k$/, ' (other tab).k'), (taken) => files.has(taken));
        files.set(other, mine.get(name) ?? '');
        aside.set(name, other);
    }
    return { files, aside };
}

// JSON of what a link or a page carries, and back: null for anything else.
export function packGiven(given: Given): string {
    const { name, main, text } = given;
    return JSON.stringify({ version: 1, name, files: Object.fromEntries(given.files), main, text });
}

export function unpackGiven(json: string): Given | null {
    let value: unknown;
    try {
        value = JSON.parse(json);
    } catch {
        return null;
    }
    if (typeof value !== 'object' || value === null) {
        return null;
    }
    const { version, name, files, main, text } = value as { [key: string]: unknown };
    if (version !== 1 || typeof files !== 'object' || files === null || Array.isArray(files)) {
        return null;
    }
    const list = Object.entries(files as { [key: string]: unknown });
    const right = list.every(([file, source]) => typeof source === 'string' && wrongName(file) === null);
    const first = list[0]?.[0];
    if (!right || first === undefined || list.length > MOST_FILES) {
        return null;
    }
    return {
        name:
            typeof name === 'string' && name.trim() !== ''
                ? name.trim().slice(0, 80)
                : first.replace(/\.k$/, ''),
        // Lines end as in the editor, so that what was given is known again.
        files: new Map(list.map(([file, source]) => [file, String(source).replace(/\r\n?/g, '\n')])),
        main: typeof main === 'string' && list.some(([file]) => file === main) ? main : first,
        text: typeof text === 'string' ? text : '',
    };
}
