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
const LONGEST_NAME = 100; // characters of Unicode, as everywhere in names

// What is wrong with the name of a file, as a sentence; or null.
export function wrongName(name: string): string | null {
    if (!name.endsWith('.k') || name === '.k' || name.endsWith('/.k')) {
        return 'The name of a file ends with .k, such as main.k.';
    }
    if ([...name].length > LONGEST_NAME) {
        return `A name has at most ${LONGEST_NAME} characters.`;
    }
    // Half a character, which no link to a file could have.
    if (/\p{Surrogate}/u.test(name)) {
        return 'This is no name in Unicode.';
    }
    if (/[\u0000-\u001f\u007f\\:*?"<>|]/.test(name) || name.includes('//')) {
        return 'A name has no \\ : * ? " < > | and no //.';
    }
    if (name.includes('.k/')) {
        return 'The name of a folder does not end with .k.'; // it could be that of a file, too
    }
    const bad = name.split('/').some((part) => part === '' || /^[. ]| $/.test(part));
    return bad ? 'No part of a name begins with a dot, and none begins or ends with a blank.' : null;
}

// `name` with a mark such as " (earlier)", or the first of "NAME 2", "NAME 3" and so on that is free. An ending such
// as ".k" stays at the end. A name that would become too long loses characters in front of what is added.
export function freeName(name: string, taken: (name: string) => boolean, mark = ''): string {
    const [, stem = name, ending = ''] = /^(.*?)(\.k)?$/s.exec(name) ?? [];
    const withEnd = (end: string): string => {
        const letters = [...stem];
        const room = LONGEST_NAME - end.length;
        return (
            (letters.length > room
                ? letters
                      .slice(0, room)
                      .join('')
                      .replace(/[ ./]+$/, '')
                : stem) + end
        );
    };
    let free = withEnd(mark + ending);
    for (let number = 2; taken(free); number += 1) {
        free = withEnd(`${mark} ${number}${ending}`);
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
        const other = freeName(name, (taken) => files.has(taken), ' (other tab)');
        files.set(other, mine.get(name) ?? '');
        aside.set(name, other);
    }
    return { files, aside };
}

// JSON of what a link or a page carries.
export function packGiven(given: Given): string {
    const { name, main, text } = given;
    return JSON.stringify({ version: 1, name, files: Object.fromEntries(given.files), main, text });
}

// And back. Anything else: why it cannot be read.
export function unpackGiven(json: string): Given | string {
    const broken = 'a part of it seems to be missing';
    let value: unknown;
    try {
        value = JSON.parse(json);
    } catch {
        return broken;
    }
    if (typeof value !== 'object' || value === null) {
        return broken;
    }
    const { version, name, files, main, text } = value as { [key: string]: unknown };
    if (version !== 1) {
        return 'it is for another version of tovik';
    }
    if (typeof files !== 'object' || files === null || Array.isArray(files)) {
        return broken;
    }
    const list = Object.entries(files as { [key: string]: unknown });
    const first = list[0]?.[0];
    if (first === undefined || list.some(([, source]) => typeof source !== 'string')) {
        return broken;
    }
    if (list.length > MOST_FILES) {
        return `it has more than ${MOST_FILES} files`;
    }
    const misnamed = list.find(([file]) => wrongName(file) !== null);
    if (misnamed !== undefined) {
        return `it has a file with the name “${misnamed[0].slice(0, LONGEST_NAME)}”, which cannot be`;
    }
    return {
        name:
            typeof name === 'string' && name.trim() !== ''
                ? [...name.trim()].slice(0, 80).join('')
                : first.replace(/\.k$/, ''),
        // Lines end as in the editor, so that what was given is known again.
        files: new Map(list.map(([file, source]) => [file, String(source).replace(/\r\n?/g, '\n')])),
        main: typeof main === 'string' && list.some(([file]) => file === main) ? main : first,
        text: typeof text === 'string' ? text : '',
    };
}
