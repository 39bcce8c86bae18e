// The open program in the page: its documents, their editors, and how they are kept.

import type { Extension } from '@codemirror/state';
import { element } from './dom';
import {
    addDocument,
    closeDocument,
    makeDocument,
    ownCopy,
    ownFiles,
    pathOf,
    removeDocument,
    replaceDocuments,
    setText,
    textOf,
} from './documents';
import type { Document, Documents } from './documents';
import { dropView, makeEditor } from './editor';
import type { Editor } from './editor';
import { makeKeeping } from './files';
import type { Keeping } from './files';
import { makeLanguage } from './language';
import type { Language } from './language';
import type { Choice, Messages } from './parts';
import { freeName, MOST_FILES } from './program';
import type { Files, Program } from './program';
import { remember } from './store';
import type { Store, Version } from './store';

export interface WorkspaceOptions {
    library: ReadonlyMap<string, string>;
    messages: Messages;
    extension(path: string): Extension; // the debugger's
    forgotten(path: string): void; // a file of the program is gone
    renamed(path: string, newPath: string): void;
    opened(program: Program): void; // another program, or its text or name is another one
    edited(): void;
}

export interface Workspace {
    editor: Editor;
    language: Language;
    documents: Documents;
    status: HTMLElement;
    nameInput: HTMLInputElement;
    main(): string;
    begin(store: Store): void; // programs can be opened from then on
    program(): Program; // as it is in the page
    open(program: Program): Promise<void>; // fails, and all stays, if what is open could not be kept
    show(path: string): void;
    addFiles(files: Files): void;
    rename(document: Document, name: string): void;
    remove(document: Document): Promise<void>;
    setMain(document: Document): void;
    setTask(text: string): void;
    restore(version: Version): void;
    save(): Promise<void>;
}

export function makeWorkspace(options: WorkspaceOptions): Workspace {
    const { library, messages } = options;
    let main = '';
    let text = '';
    let keeping: Keeping | null = null;
    const nameInput = element('input', {
        class: 'program-name',
        'aria-label': 'Name of the program',
        maxlength: 80,
    });
    const status = element('div', { class: 'status' });
    const changed = (): void => {
        keeping?.touch();
        options.edited();
    };
    const documents: Documents = {
        all: new Map(),
        client: null,
        shown: (document) => editor.show(document),
        owned(document) {
            const inFront = document === editor.current();
            dropView(documents, document);
            if (inFront) {
                editor.show(document);
            }
            editor.refresh();
        },
        changed,
    };
    const language = makeLanguage(documents, () => {
        editor.refresh();
        drawStatus();
    });
    const editor = makeEditor({
        documents,
        language: () => language,
        extension: (document) => options.extension(pathOf(document.name)),
        isMain: (name) => name === main,
        changed,
        showing: () => drawStatus(),
        copyLibrary: (document) => ownCopy(documents, document),
    });

    const faults = element('button', { type: 'button' });
    faults.addEventListener('click', () => editor.problems());
    status.append(faults);
    const drawStatus = (): void => {
        const current = editor.current();
        const problems = current?.problems ?? [];
        const count = (most: number, one: string, several: string): string => {
            const number = problems.filter(({ severity }) => (severity ?? 1) === most).length;
            return number === 0 ? '' : `${number} ${number === 1 ? one : several}`;
        };
        const parts = [count(1, 'fault', 'faults'), count(2, 'warning', 'warnings')].filter(
            (part) => part !== '',
        );
        const none = current?.own && !current.isChecked ? 'Checking…' : 'No faults';
        faults.textContent = parts.length === 0 ? none : parts.join(', ');
        faults.classList.toggle(
            'bad',
            problems.some(({ severity }) => severity === 1),
        );
    };

    const addLibrary = (name: string): void => {
        const source = library.get(name);
        if (source !== undefined && !documents.all.has(name)) {
            addDocument(documents, makeDocument(name, source, false));
        }
    };
    const firstName = (): string => [...documents.all.values()].find(({ own }) => own)?.name ?? '';
    const shown = (): { name: string; main: string; text: string; files: Files } => ({
        name: nameInput.value.trim() || 'Program',
        main,
        text,
        files: ownFiles(documents),
    });
    const taken = (name: string): boolean => documents.all.get(name)?.own ?? false;

    const drop = (document: Document): void => {
        removeDocument(documents, document.name);
        addLibrary(document.name);
        options.forgotten(pathOf(document.name));
        main = document.name === main ? firstName() : main;
        editor.closeTab(document.name);
    };
    const put = (name: string, source: string): Document => {
        const old = documents.all.get(name);
        if (old !== undefined && old.own) {
            setText(documents, old, source);
            return old;
        }
        removeDocument(documents, name);
        const made = makeDocument(name, source, true);
        addDocument(documents, made);
        return made;
    };

    // What other tabs have made of this program comes into this one.
    const adopt = (program: Program, mine: Files, aside: Map<string, string>): void => {
        const live = ownFiles(documents);
        for (const [name, other] of aside) {
            const document = documents.all.get(name);
            const head = document?.view?.state.selection.main.head ?? 0;
            const inFront = document !== undefined && document === editor.current();
            const moved = put(other, live.get(name) ?? '');
            if (inFront) {
                editor.show(moved);
                moved.view?.dispatch({ selection: { anchor: head }, scrollIntoView: true });
            }
            messages.say(
                `${name} was changed in another tab at the same time. What you wrote here is now in “${other}”.`,
                'warning',
            );
        }
        for (const [name, source] of program.files) {
            const isAside = [...aside.values()].includes(name);
            if (!isAside && (aside.has(name) || live.get(name) === mine.get(name))) {
                put(name, source);
            }
        }
        for (const document of [...documents.all.values()].filter(
            ({ own, name }) => own && !program.files.has(name),
        )) {
            if (live.get(document.name) === mine.get(document.name)) {
                drop(document);
            }
        }
        main = program.main;
        text = program.text;
        nameInput.value = program.name;
        editor.refresh();
        options.opened(program);
    };

    const add = (files: Files): void => {
        let last: Document | null = null;
        const room = Math.max(MOST_FILES - ownFiles(documents).size, 0);
        for (const [name, source] of [...files].slice(0, room)) {
            last = put(freeName(name, taken), source);
        }
        if (files.size > room) {
            const left = files.size - room;
            const text = `A program has at most ${MOST_FILES} files: ${left} could not be added.`;
            messages.say(text, 'fault');
        }
        if (last !== null) {
            editor.show(last);
        }
        changed();
    };

    const kept = (): Keeping => {
        if (keeping === null) {
            throw new Error('there is no store yet');
        }
        return keeping;
    };
    // All that is in the page. False: it cannot be, which has been said.
    const keepAll = async (): Promise<boolean> => {
        do {
            if (!(await kept().save())) {
                return false;
            }
        } while (!kept().isKept()); // something was typed meanwhile
        return true;
    };
    nameInput.addEventListener('input', changed);
    nameInput.addEventListener('change', () => {
        nameInput.value = nameInput.value.trim() || 'Program';
        options.opened({ ...kept().now(), ...shown() });
    });

    return {
        editor,
        language,
        documents,
        status,
        nameInput,
        main: () => main,
        begin(store) {
            const failed = (reason: string): void => {
                const text = `This browser could not keep the program: ${reason}. Save it as a file.`;
                messages.say(text, 'fault');
            };
            keeping = makeKeeping({ store, shown, adopt, failed });
        },
        program: () => ({ ...kept().now(), ...shown() }),
        async open(program) {
            const made = [...program.files].map(([name, source]) => makeDocument(name, source, true));
            if (documents.all.size > 0 && !(await keepAll())) {
                throw new Error('the program that is open could not be kept, so it stays');
            }
            // Nothing here can fail: the page must never show the files of one program and keep them as another.
            const before = replaceDocuments(documents, made);
            main = program.main;
            text = program.text;
            nameInput.value = program.name;
            kept().open(program);

            editor.clear();
            before.forEach((document) => closeDocument(documents, document));
            made.forEach((document) => addDocument(documents, document));
            [...library.keys()].forEach(addLibrary);
            remember('last', program.id);
            options.opened(program);
            const first = documents.all.get(main) ?? documents.all.get(firstName());
            if (first !== undefined) {
                editor.show(first, false);
            }
            await kept().save();
        },
        show(path) {
            const document = documents.all.get(path.slice(pathOf('').length));
            if (document !== undefined) {
                editor.show(document, false);
            }
        },
        addFiles: add,
        rename(document, name) {
            if (documents.all.get(document.name) !== document) {
                messages.say(`${document.name} is not here any more.`, 'warning');
                return;
            }
            const made = put(name, textOf(document));
            options.renamed(pathOf(document.name), pathOf(name));
            main = document.name === main ? name : main;
            drop(document);
            editor.show(made);
            changed();
        },
        async remove(document) {
            // It stays among the earlier versions as it was kept last.
            if (!(await keepAll()) || documents.all.get(document.name) !== document) {
                return;
            }
            const source = textOf(document);
            const wasMain = document.name === main;
            drop(document);
            if (firstName() === '') {
                main = 'main.k';
                editor.show(put(main, ''));
            }
            changed();
            const { id, name: program } = { ...kept().now(), ...shown() };
            const undo: Choice = {
                text: 'Undo',
                chosen() {
                    if (kept().now().id !== id) {
                        const where = `${document.name} belongs to “${program}”`;
                        messages.say(`${where}: it is among the earlier versions there.`, 'warning');
                        return;
                    }
                    // What is there now stays.
                    const now = documents.all.get(document.name);
                    const isFree = now === undefined || !now.own || textOf(now).trim() === '';
                    const name = isFree ? document.name : freeName(document.name, taken);
                    const made = put(name, source);
                    main = wasMain ? name : main;
                    editor.show(made);
                    changed();
                },
            };
            messages.say(`${document.name} is deleted. It stays among the earlier versions.`, 'note', [undo]);
        },
        setMain(document) {
            main = document.name;
            editor.refresh();
            changed();
        },
        setTask(task) {
            text = task;
            changed();
            options.opened({ ...kept().now(), ...shown() });
        },
        restore(version) {
            const { file, text: earlier } = version;
            const name = taken(file) ? freeName(file, taken, ' (earlier)') : file;
            add(new Map([[name, earlier]]));
        },
        async save() {
            await kept().save();
        },
    };
}
