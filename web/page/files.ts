// The program that is open in this tab, and how it is kept: soon after each pause in typing, each second while there is
// none, when the page is left, and together with what other tabs make of it.

import { openChannel } from './channel';
import type { Change, Store, Version } from './store';
import { remember, remembered, rememberedNames } from './store';
import type { Files, Program } from './program';
import { merge } from './program';

const PAUSE = 300; // milliseconds without typing until a state is kept,
const LONGEST = 1000; // or with it: the browser may end the page without a word
const APART = 2 * 60 * 1000; // milliseconds between two kept versions of a file
const JOURNALS = 'unsaved-';
// Each tab has its own.
const JOURNAL = JOURNALS + Math.random().toString(36).slice(2);

// What the page shows of the program.
export interface Shown {
    name: string;
    main: string;
    text: string;
    files: Files;
}

export interface Keeping {
    open(program: Program): void;
    now(): Program; // as it was kept last
    touch(): void; // something has changed
    save(): Promise<boolean>; // false: it could not be, which has been said
    isKept(): boolean; // all that is in the page is
}

export interface KeepingOptions {
    store: Store;
    shown(): Shown;
    // Puts into the page what others have made of the program since its files were `mine`. `aside`: files of which
    // another tab's text is there now, and under which names this tab's text goes on.
    adopt(program: Program, mine: Files, aside: Map<string, string>): void;
    failed(reason: string): void;
}

// The next state of a program, where `base` is what this tab has seen of it last.
function nextState(
    base: Program,
    shown: Shown,
    stored: Program,
): { program: Program; aside: Map<string, string> } {
    const { files, aside } = merge(base.files, shown.files, stored.files);
    const pick = (name: 'name' | 'main' | 'text'): string =>
        shown[name] === base[name] ? stored[name] : shown[name];
    const main = pick('main');
    const program: Program = {
        ...stored,
        name: pick('name'),
        text: pick('text'),
        main: files.has(main) ? main : ([...files.keys()][0] ?? main),
        files,
        // One that another tab has deleted comes back when it is changed here.
        deleted: sameFiles(base.files, shown.files) ? stored.deleted : null,
    };
    return { program, aside };
}

const same = (a: Shown, b: Shown): boolean =>
    a.name === b.name && a.main === b.main && a.text === b.text && sameFiles(a.files, b.files);

// Whether `next` need not be written. A program that another tab has deleted for good comes back only with what was
// written here since.
const isThere = (base: Program, shown: Shown, stored: Program | null, next: Program): boolean =>
    stored === null ? base.revision > 0 && same(base, shown) : same(next, stored);

export const sameFiles = (a: Files, b: Files): boolean =>
    a.size === b.size && [...a].every(([name, text]) => b.get(name) === text);

// Makes the change of a program that is to be kept. `last`: when a version of each file was kept last.
function changeTo(next: Program, stored: Program, last: Map<string, number>): Change {
    const when = Date.now();
    const versions: Version[] = [];
    for (const [file, text] of stored.files) {
        const now = next.files.get(file);
        const isGone = (now ?? '').trim() === '';
        const due = isGone || when - (last.get(file) ?? 0) >= APART;
        if (now !== text && due && text.trim() !== '') {
            versions.push({ program: next.id, file, when, text });
            last.set(file, when);
        }
    }
    return { program: { ...next, revision: stored.revision + 1, changed: when }, versions };
}

// What was typed just before the page went away and did not get into the database in time.
export async function keepJournals(store: Store): Promise<void> {
    for (const name of rememberedNames(JOURNALS)) {
        const journal = readJournal(remembered(name) ?? '');
        const isKept = journal !== null && (await keepJournal(store, journal).catch(() => false));
        if (isKept || journal === null) {
            remember(name, null);
        }
    }
}

interface Journal {
    base: Program;
    shown: Shown;
}

// False: it has to stay, since the browser keeps nothing else.
async function keepJournal(store: Store, { base, shown }: Journal): Promise<boolean> {
    await store.update(base.id, (stored) => {
        const { program } = nextState(base, shown, stored ?? base);
        return isThere(base, shown, stored, program) ? null : changeTo(program, stored ?? base, new Map());
    });
    return store.kept;
}

// Null: it is not one of ours.
function readJournal(text: string): Journal | null {
    const areFiles = (files: unknown): boolean =>
        files instanceof Map &&
        [...(files as Map<unknown, unknown>)].flat().every((one) => typeof one === 'string');
    try {
        const journal = JSON.parse(text, (key, value: unknown) =>
            key === 'files' ? new Map(value as [string, string][]) : value,
        ) as Journal;
        const { base, shown } = journal;
        const texts = [base.id, base.name, base.main, base.text, shown.name, shown.main, shown.text];
        const isOurs = texts.every((one) => typeof one === 'string');
        return isOurs && areFiles(base.files) && areFiles(shown.files) ? journal : null;
    } catch {
        return null;
    }
}

export function makeKeeping({ store, shown, adopt, failed }: KeepingOptions): Keeping {
    const others = openChannel('tovik-programs');
    const last = new Map<string, number>();
    let base: Program | null = null;
    let dirty = false;
    let isWriting = false;
    let timer = 0;
    let latest = 0; // when what has been typed has to be kept; 0: nothing has since
    let running: Promise<unknown> = Promise.resolve();

    // The browser takes some megabytes here, so the files that are kept as they are do not come along.
    const writeJournal = (from: Program): void => {
        const now = shown();
        const isWhole = !store.kept || from.revision === 0;
        const changed = (files: Files, others: Files): Files =>
            isWhole ? files : new Map([...files].filter(([name, text]) => text !== others.get(name)));
        const journal: Journal = {
            base: { ...from, files: changed(from.files, now.files) },
            shown: { ...now, files: changed(now.files, from.files) },
        };
        const text = JSON.stringify(journal, (_, value: unknown) =>
            value instanceof Map ? [...(value as Files)] : value,
        );
        remember(JOURNAL, text);
    };

    // One after the other: each begins with what the one before has left.
    const sync = async (): Promise<boolean> => {
        if (base === null) {
            return true;
        }
        const [from, mine] = [base, shown()];
        let next: { program: Program; aside: Map<string, string> } | null = null;
        let written = false;
        dirty = false;
        isWriting = true;
        try {
            await store.update(from.id, (stored) => {
                next = nextState(from, mine, stored ?? from);
                if (isThere(from, mine, stored, next.program)) {
                    return null;
                }
                const change = changeTo(next.program, stored ?? from, last);
                next.program = change.program;
                written = true;
                return change;
            });
        } finally {
            isWriting = false;
        }
        const made = next as { program: Program; aside: Map<string, string> } | null;
        if (made === null || base !== from) {
            return true; // another program has been opened
        }
        if (written) {
            others?.postMessage({ id: from.id, revision: made.program.revision });
        }
        const live = shown().files;
        let seen = made.program;
        if (!sameFiles(seen.files, mine.files) || seen.name !== mine.name || seen.main !== mine.main) {
            adopt(seen, mine.files, made.aside);
            // What was typed meanwhile stays in the page; then it is as before the other tab's change.
            const typed = [...live].filter(([name, text]) => text !== mine.files.get(name));
            const files = new Map(seen.files);
            typed
                .filter(([name]) => !made.aside.has(name))
                .forEach(([name]) => files.set(name, from.files.get(name) ?? ''));
            seen = { ...seen, files };
            dirty ||= typed.length > 0;
        }
        base = seen; // if the page could not take it, the next one tries again
        if (!dirty) {
            remember(JOURNAL, null);
        }
        return true;
    };
    const save = (): Promise<boolean> => {
        clearTimeout(timer);
        latest = 0;
        const done = running.then(sync).catch((error: unknown) => {
            dirty = true;
            failed(error instanceof Error ? error.message : String(error));
            return false;
        });
        running = done;
        return done;
    };
    others?.addEventListener('message', (event: MessageEvent<{ id: string; revision: number }>) => {
        if (base !== null && event.data.id === base.id && event.data.revision > base.revision) {
            void save();
        }
    });
    const leave = (): void => {
        // What is being written may get no further.
        if ((dirty || isWriting) && base !== null) {
            writeJournal(base);
            void save();
        }
    };
    document.addEventListener('visibilitychange', leave);
    addEventListener('pagehide', leave);
    return {
        open(program) {
            base = program;
            dirty = false;
            last.clear();
        },
        now() {
            if (base === null) {
                throw new Error('no program is open');
            }
            return base;
        },
        touch() {
            dirty = true;
            clearTimeout(timer);
            const now = Date.now();
            latest ||= now + LONGEST;
            timer = window.setTimeout(() => void save(), Math.min(PAUSE, latest - now));
        },
        save,
        isKept: () => !dirty,
    };
}
