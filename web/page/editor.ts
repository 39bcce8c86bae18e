// The editors: one for each file that has been shown, and the tabs above them.

import { autocompletion, completionKeymap } from '@codemirror/autocomplete';
import { defaultKeymap, history, historyKeymap, insertNewlineAndIndent } from '@codemirror/commands';
import { indentService } from '@codemirror/language';
import { lintGutter, lintKeymap, openLintPanel } from '@codemirror/lint';
import { highlightSelectionMatches, openSearchPanel, searchKeymap } from '@codemirror/search';
import { findReferences, formatDocument, jumpToDefinition, renameSymbol } from '@codemirror/lsp-client';
import { EditorState } from '@codemirror/state';
import type { Extension } from '@codemirror/state';
import {
    EditorView,
    drawSelection,
    highlightActiveLine,
    highlightActiveLineGutter,
    keymap,
    lineNumbers,
} from '@codemirror/view';
import { element } from './dom';
import type { Document, Documents } from './documents';
import { showKnownProblems } from './language';
import type { Language } from './language';
import { OPERATIONS, syntax } from './syntax';

declare const STYLE_WORD: string; // by which the policy of the page knows CodeMirror's styles

// Where operations and operands begin, and then every eight columns.
const STOPS = [16, 24];

export interface Editor {
    tabs: HTMLElement;
    element: HTMLElement;
    current(): Document | null;
    show(document: Document, focus?: boolean): void;
    // Draws the tabs anew: names or faults have changed.
    refresh(): void;
    closeTab(name: string): void;
    clear(): void; // another program comes
    // What can be done with the file in front, for a menu: its name and its key.
    tools: { text: string; hint: string; chosen(): void }[];
    problems(): void;
}

export interface EditorOptions {
    documents: Documents;
    language(): Language;
    extension(document: Document): Extension; // the debugger's
    isMain(name: string): boolean;
    changed(): void;
    showing(document: Document): void; // another file is in front
    copyLibrary(document: Document): void;
}

function nextStop(view: EditorView): boolean {
    const { state } = view;
    if (state.readOnly) {
        return false;
    }
    const line = state.doc.lineAt(state.selection.main.from);
    if (!state.selection.main.empty && state.selection.main.to > line.to) {
        return false;
    }
    const column = state.selection.main.from - line.from;
    const stop = STOPS.find((at) => at > column) ?? (Math.floor(column / 8) + 1) * 8;
    view.dispatch(state.replaceSelection(' '.repeat(stop - column)), { userEvent: 'input' });
    return true;
}

// Backspace between nothing but blanks goes back to the stop before.
function previousStop(view: EditorView): boolean {
    const { main } = view.state.selection;
    const line = view.state.doc.lineAt(main.head);
    const column = main.head - line.from;
    const blanks = /^\s*$/.test(line.text.slice(0, column));
    if (view.state.readOnly || !main.empty || column < 2 || !blanks) {
        return false;
    }
    const stop = [0, ...STOPS].filter((at) => at < column).pop() ?? 0;
    view.dispatch({ changes: { from: line.from + stop, to: main.head }, userEvent: 'delete.backward' });
    return true;
}

// A word before an operation is a label, which begins in the first column: there it goes when the operation has been
// typed. Returns false: the key that comes then does what it always does.
function placeLabel(view: EditorView): boolean {
    const { state } = view;
    const { main } = state.selection;
    const line = state.doc.lineAt(main.head);
    const typed = state.sliceDoc(line.from, main.head);
    const [, label = '', operation = ''] = /^\s+(\S+)\s+(\S+)$/.exec(typed) ?? [];
    const isLabel = OPERATIONS.has(operation) && !OPERATIONS.has(label) && !/^#|\/\//.test(label);
    if (main.empty && !state.readOnly && isLabel) {
        const insert = `${`${label} `.padEnd(STOPS[0] ?? 0)}${operation}`;
        view.dispatch({
            changes: { from: line.from, to: main.head, insert },
            selection: { anchor: line.from + insert.length },
            userEvent: 'input',
        });
    }
    return false;
}

// A line after one with an operation begins where operations do.
const indentation = indentService.of((context, place) => {
    const before = context.lineAt(place, -1).text.slice(0, place - context.lineAt(place, -1).from);
    const blank = /^\s*/.exec(before)?.[0].length ?? 0;
    if (blank > 0) {
        return before.trim() === '' ? 0 : blank;
    }
    return /^(?!\/\/|#)\S+\s+(?!\/\/)\S/.test(before) ? (STOPS[0] ?? 0) : 0;
});

// Where new colors take the text before the caret away and put it back, Chromium leaves the caret beside it and not in
// it, and the next blank that is typed may then stand before that text.
const caretInText = EditorView.updateListener.of(({ view }) => {
    const { main } = view.state.selection;
    const selection = document.getSelection();
    if (!main.empty || !view.hasFocus || view.composing || !(selection?.focusNode instanceof Element)) {
        return;
    }
    const { node, offset } = view.domAtPos(main.head, -1);
    if (node instanceof Text) {
        selection.collapse(node, offset);
    }
});

const basics: Extension = [
    caretInText,
    lintGutter(),
    lineNumbers(),
    highlightActiveLineGutter(),
    // Enter is for a new line, unless the user has chosen something.
    autocompletion({ selectOnOpen: false, icons: false }),
    history(),
    drawSelection(),
    indentation,
    highlightActiveLine(),
    highlightSelectionMatches({ highlightWordAroundCursor: true, wholeWords: true, minSelectionLength: 2 }),
    EditorState.tabSize.of(8),
    EditorState.phrases.of({ 'No diagnostics': 'No faults' }),
    EditorView.cspNonce.of(STYLE_WORD),
    EditorView.contentAttributes.of({ spellcheck: 'false', autocapitalize: 'off', autocorrect: 'off' }),
    keymap.of([
        ...['Space', 'Tab', 'Enter'].map((key) => ({ key, run: placeLabel })),
        { key: 'Tab', run: nextStop },
        { key: 'Backspace', run: previousStop },
        { key: 'Enter', run: insertNewlineAndIndent },
        { key: 'Mod-.', run: openLintPanel, preventDefault: true },
        ...completionKeymap,
        ...defaultKeymap,
        ...searchKeymap,
        ...historyKeymap,
        ...lintKeymap,
    ]),
    syntax(),
];

export function makeEditor(options: EditorOptions): Editor {
    const { documents } = options;
    const tabs = element('div', { class: 'file-tabs', role: 'tablist', 'aria-label': 'Files' });
    const hint = element('div', { class: 'library-hint', hidden: true });
    const place = element('div', { class: 'editor-place', id: 'editor-place', role: 'tabpanel' });
    const whole = element('div', { class: 'editor' }, hint, place);
    const open = new Set<string>(); // files of the library that have a tab
    let current: Document | null = null;

    const makeView = (document: Document): EditorView =>
        new EditorView({
            state: EditorState.create({
                doc: document.doc,
                extensions: [
                    basics,
                    EditorView.contentAttributes.of({
                        'aria-label': `Source of ${document.name}. Escape and then Tab leave it.`,
                    }),
                    // What is not the program's own cannot be typed into; a rename can still change it.
                    document.own ? [] : EditorState.readOnly.of(true),
                    options.extension(document),
                    options.language().extension(document),
                    EditorView.updateListener.of((update) => {
                        if (update.docChanged) {
                            options.changed();
                        }
                    }),
                ],
            }),
        });

    const showHint = (document: Document): void => {
        hint.hidden = document.own;
        const copy = element('button', { type: 'button' }, 'Copy it into the program');
        copy.addEventListener('click', () => options.copyLibrary(document));
        hint.replaceChildren(element('span', {}, 'A file of the library, to be read.'), copy);
    };

    const show = (document: Document, focus = true): void => {
        if (!document.own) {
            open.add(document.name);
        }
        if (document.view === null) {
            // The language client looks for the editor of a file while it is being made.
            document.view = makeView(document);
            showKnownProblems(document);
        }
        if (current !== document || !place.contains(document.view.dom)) {
            current = document;
            place.replaceChildren(document.view.dom);
            document.view.requestMeasure();
            options.showing(document);
        }
        showHint(document);
        refresh();
        if (focus) {
            document.view.focus();
        }
    };

    const makeTab = (document: Document): HTMLElement => {
        const { name } = document;
        const selected = document === current;
        const faults = document.problems.filter(({ severity }) => severity === 1).length;
        const count = `${faults} ${faults === 1 ? 'fault' : 'faults'}`;
        const tab = element(
            'button',
            {
                type: 'button',
                role: 'tab',
                'aria-selected': String(selected),
                'aria-controls': 'editor-place',
                tabindex: selected ? 0 : -1,
                class: document.own ? null : 'library',
                'aria-label': faults === 0 ? null : `${name}, ${count}`,
                title: options.isMain(name) ? `${name}: the program begins here` : name,
            },
            options.isMain(name) && documents.all.size > 1
                ? element('span', { class: 'main-mark' }, '▸ ')
                : null,
            name,
            faults === 0 ? null : element('span', { class: 'count', title: count }, String(faults)),
        );
        tab.addEventListener('click', () => show(document));
        return tab;
    };

    const refresh = (): void => {
        const list = [...documents.all.values()].filter(({ own, name }) => own || open.has(name));
        const focused = tabs.contains(document.activeElement);
        tabs.replaceChildren(...list.map(makeTab));
        if (focused) {
            tabs.querySelector<HTMLElement>('[aria-selected=true]')?.focus();
        }
    };

    tabs.addEventListener('keydown', (event) => {
        const step = event.key === 'ArrowRight' ? 1 : event.key === 'ArrowLeft' ? -1 : 0;
        const list = [...documents.all.values()].filter(({ own, name }) => own || open.has(name));
        const next = current === null ? undefined : list[list.indexOf(current) + step];
        if (step !== 0 && next !== undefined) {
            event.preventDefault();
            show(next, false);
            tabs.querySelector<HTMLElement>('[aria-selected=true]')?.focus();
        }
    });

    const withView = (work: (view: EditorView) => unknown) => (): void => {
        if (current?.view) {
            work(current.view);
        }
    };
    return {
        tabs,
        element: whole,
        current: () => current,
        show,
        refresh,
        closeTab(name) {
            open.delete(name);
            if (current?.name === name || (current !== null && !documents.all.has(current.name))) {
                current = null;
                const next = [...documents.all.values()].find(({ own }) => own);
                if (next !== undefined) {
                    show(next, false);
                }
            }
            refresh();
        },
        clear() {
            current = null;
            open.clear();
            place.replaceChildren();
        },
        tools: [
            { text: 'Find', hint: 'Ctrl+F', chosen: withView(openSearchPanel) },
            { text: 'Go to the definition', hint: 'F12', chosen: withView(jumpToDefinition) },
            { text: 'Where is it used?', hint: 'Shift+F12', chosen: withView(findReferences) },
            { text: 'Rename the label', hint: 'F2', chosen: withView(renameSymbol) },
            { text: 'Format', hint: 'Shift+Alt+F', chosen: withView(formatDocument) },
        ],
        problems: withView(openLintPanel),
    };
}

// A document loses its editor: it gets a new one, with other rights, when it is shown again.
export function dropView(documents: Documents, document: Document): void {
    documents.client?.sync();
    document.view?.destroy();
    document.view = null;
}
