// The open program in the page: its documents, their editors, and how they are kept.

import type { Extension } from '@codemirror/state';
import { element } from './dom';
import {
    addDocument,
    makeDocument,
    ownCopy,
    ownFiles,
    pathOf,
    removeDocument,
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
import { freeName } from './program';
import type { Files, Program } from './program';
import { remember } from './store';
import type { Store, Version } from './store';

export interface WorkspaceOptions {
    library: ReadonlyMap<string, string>;
    messages: Messages;
    extension(path: string): Extension; // the debugger's
    forgotten(path: string): void; // a file is gone
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
    open(program: Program): Promise<void>;
    show(path: string): void;
    addFiles(files: Files): void;
    rename(document: Document, name: string): void;
    remove(document: Document): void;
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
        const problems = editor.current()?.problems ?? [];
        const count = (most: number, one: string, several: string): string => {
            const number = problems.filter(({ severity }) => (severity ?? 1) === most).length;
            return number === 0 ? '' : `${number} ${number === 1 ? one : several}`;
        };
        const parts = [count(1, 'fault', 'faults'), count(2, 'warning', 'warnings')].filter(
            (part) => part !== '',
        );
        faults.textContent = parts.length === 0 ? 'No faults' : parts.join(', ');
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
    const fill = (files: Files): void => {
        [...documents.all.keys()].forEach((name) => removeDocument(documents, name));
        files.forEach((source, name) => addDocument(documents, makeDocument(name, source, true)));
        [...library.keys()].forEach(addLibrary);
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

    const kept = (): Keeping => {
        if (keeping === null) {
            throw new Error('there is no store yet');
        }
        return keeping;
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
            const failed = (reason: string): void =>
                messages.say(
                    `This browser could not keep the program: ${reason}. Save it as a file.`,
                    'fault',
                );
            keeping = makeKeeping({ store, shown, adopt, failed });
        },
        program: () => ({ ...kept().now(), ...shown() }),
        async open(program) {
            if (documents.all.size > 0) {
                await kept().save();
                if (!kept().isKept()) {
                    return; // it could not be, which has been said: what is in the page must stay
                }
                [...documents.all.keys()].forEach((name) => options.forgotten(pathOf(name)));
            }
            editor.clear();
            fill(program.files);
            main = program.main;
            text = program.text;
            nameInput.value = program.name;
            kept().open(program);
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
        addFiles(files) {
            let last: Document | null = null;
            for (const [name, source] of files) {
                last = put(freeName(name, taken), source);
            }
            if (last !== null) {
                editor.show(last);
            }
            changed();
        },
        rename(document, name) {
            const made = put(name, textOf(document));
            options.renamed(pathOf(document.name), pathOf(name));
            main = document.name === main ? name : main;
            drop(document);
            editor.show(made);
            changed();
        },
        remove(document) {
            const source = textOf(document);
            const wasMain = document.name === main;
            drop(document);
            if (firstName() === '') {
                put('main.k', '');
                main = 'main.k';
                editor.closeTab('');
            }
            changed();
            const undo: Choice = {
                text: 'Undo',
                chosen() {
                    const made = put(document.name, source);
                    main = wasMain ? document.name : main;
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
            const present = documents.all.get(version.file);
            const name = present?.own ? version.file.replace(/\.k$/, ' (earlier).k') : version.file;
            const made = put(freeName(name, taken), version.text);
            editor.show(made);
            changed();
        },
        save: () => kept().save(),
    };
}
