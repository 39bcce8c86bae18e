// The dialogs: programs, examples, names, links, pages, versions, help, licenses.

import { element } from './dom';
import { button, makeTabs, showDialog } from './parts';
import type { Program } from './program';
import type { Version } from './store';
import { showTask } from './task';

// Asks for a line of text. `wrong` says what is wrong with it, as a sentence, or null.
export function ask(
    title: string,
    label: string,
    value: string,
    verb: string,
    wrong: (text: string) => string | null,
    done: (text: string) => void,
): void {
    showDialog(title, (close) => {
        const input = element('input', { type: 'text', value, autofocus: true, spellcheck: 'false' });
        const fault = element('p', { class: 'fault', role: 'alert' });
        const form = element(
            'form',
            {},
            element('label', {}, label, input),
            fault,
            element(
                'div',
                { class: 'buttons' },
                button('Cancel', close),
                element('button', { class: 'primary' }, verb),
            ),
        );
        form.addEventListener('submit', (event) => {
            event.preventDefault();
            const text = input.value.trim();
            fault.textContent = wrong(text) ?? '';
            if (fault.textContent === '') {
                close();
                done(text);
            }
        });
        const stem = /^(.*?)(\.k)?$/.exec(value)?.[1]?.length ?? value.length;
        queueMicrotask(() => input.setSelectionRange(0, stem));
        return [form];
    });
}

function when(time: number): string {
    return new Date(time).toLocaleString(undefined, { dateStyle: 'medium', timeStyle: 'short' });
}

function row(title: string, about: string, open: () => void, ...more: HTMLElement[]): HTMLElement {
    const main = element(
        'button',
        { type: 'button', class: 'row-main' },
        element('strong', {}, title),
        element('span', {}, about),
    );
    main.addEventListener('click', open);
    return element('li', {}, main, ...more);
}

export interface ProgramsOptions {
    all: Program[];
    current: string; // its id
    about: string; // a sentence on where they are kept
    open(program: Program): void;
    create(): void;
    fromDisk(): void;
    remove(program: Program): void;
    restore(program: Program): void;
    destroy(program: Program, done: () => void): void;
}

export function showPrograms(options: ProgramsOptions): void {
    showDialog('Programs', (close) => {
        const closing = (work: () => void) => (): void => {
            close();
            work();
        };
        const files = (program: Program): string => {
            const names = [...program.files.keys()];
            return names.slice(0, 3).join(', ') + (names.length > 3 ? ` and ${names.length - 3} more` : '');
        };
        const newest = [...options.all].sort((a, b) => b.changed - a.changed);
        const live = newest.filter(({ deleted }) => deleted === null);
        const gone = newest.filter(({ deleted }) => deleted !== null);
        const liveRows = live.map((program) => {
            const here = program.id === options.current ? ', open now' : '';
            return row(
                program.name,
                `${files(program)}, ${when(program.changed)}${here}`,
                closing(() => options.open(program)),
                button(
                    'Delete',
                    closing(() => options.remove(program)),
                    { 'aria-label': `Delete ${program.name}` },
                ),
            );
        });
        const goneRows = gone.map((program) => {
            const forever = button('Delete for good', () => {
                if (forever.dataset['sure'] === undefined) {
                    forever.dataset['sure'] = '';
                    forever.textContent = 'Really?';
                    return;
                }
                options.destroy(program, () => forever.closest('li')?.remove());
            });
            const about = `${files(program)}, deleted ${when(program.deleted ?? 0)}`;
            return element(
                'li',
                {},
                element(
                    'div',
                    { class: 'row-main' },
                    element('strong', {}, program.name),
                    element('span', {}, about),
                ),
                button(
                    'Restore',
                    closing(() => options.restore(program)),
                ),
                forever,
            );
        });
        return [
            element(
                'div',
                { class: 'buttons start' },
                button('New program', closing(options.create), { class: 'primary' }),
                button('Open files…', closing(options.fromDisk)),
            ),
            element('ul', { class: 'rows' }, ...liveRows),
            gone.length === 0 ? '' : element('h3', {}, 'Recently deleted'),
            element('ul', { class: 'rows' }, ...goneRows),
            element('p', { class: 'quiet' }, options.about),
        ];
    });
}

export interface Example {
    name: string;
    about: string;
    text: string;
}

export interface Examples {
    examples: Example[];
    exercises: Example[];
    library: Record<string, string>;
}

export function showExamples({ examples, exercises }: Examples, open: (example: Example) => void): void {
    showDialog('Examples', (close) => {
        const rows = (list: Example[]): HTMLElement =>
            element(
                'ul',
                { class: 'rows' },
                ...list.map((example) =>
                    row(example.name, example.about, () => {
                        close();
                        open(example);
                    }),
                ),
            );
        return [
            rows(examples),
            element('h3', {}, 'Programs with a mistake each, to find it'),
            rows(exercises),
            element(
                'p',
                { class: 'quiet' },
                'An example opens as a new program of yours, to try and to change.',
            ),
        ];
    });
}

const LONG_LINK = 8000; // characters; some programs cut longer ones

export function showLink(link: string, copied: boolean, savePage: () => void): void {
    showDialog('Share', (close) => {
        const box = element('textarea', { readonly: true, rows: 4, 'aria-label': 'Link' });
        box.value = link;
        const said = element('span', { role: 'status' }, copied ? 'The link is copied.' : '');
        const copy = button(copied ? 'Copy again' : 'Copy', () => {
            box.select();
            navigator.clipboard?.writeText(link).then(
                () => (said.textContent = 'The link is copied.'),
                () => (said.textContent = 'Copy it with the keyboard: it is selected.'),
            );
        });
        queueMicrotask(() => box.select());
        const save = button(
            'Save as a page…',
            () => {
                close();
                savePage();
            },
            { class: 'primary' },
        );
        const about =
            location.protocol === 'file:'
                ? [
                      element(
                          'p',
                          {},
                          'This page is a file, so the link opens only on this computer. ' +
                              'For somebody else, save the program as a page.',
                      ),
                      element('div', { class: 'buttons start' }, save),
                  ]
                : [
                      element(
                          'p',
                          {},
                          'Whoever opens this link gets a copy of the program as it is now. It is in the link itself.',
                      ),
                  ];
        return [
            ...about,
            box,
            element('div', { class: 'buttons start' }, copy, said),
            link.length > LONG_LINK
                ? element(
                      'p',
                      { class: 'quiet' },
                      `It has ${link.length} characters. Some programs cut such a link; then save the program as a page.`,
                  )
                : '',
        ];
    });
}

// What was written in the dialog and not saved, by the program's id.
const drafts = new Map<string, string>();

// `save` says what is wrong, as a sentence, or null.
export function showSavePage(program: Program, save: (name: string, text: string) => string | null): void {
    showDialog('Save as a page', (close) => {
        const name = element('input', { type: 'text', value: program.name });
        const text = element('textarea', { rows: 10, placeholder: '# Task\n\nWrite a program that …' });
        text.value = drafts.get(program.id) ?? program.text;
        text.addEventListener('input', () => drafts.set(program.id, text.value));
        const fault = element('p', { class: 'fault', role: 'alert' });
        const form = element(
            'form',
            {},
            element(
                'p',
                {},
                'One file with tovik and this program in it. Whoever opens it begins with this program.',
            ),
            element('label', {}, 'Name', name),
            element('label', {}, 'Assignment, in Markdown, or nothing', text),
            fault,
            element(
                'div',
                { class: 'buttons' },
                button('Cancel', close),
                element('button', { class: 'primary' }, 'Save'),
            ),
        );
        form.addEventListener('submit', (event) => {
            event.preventDefault();
            fault.textContent = save(name.value.trim() || program.name, text.value) ?? '';
            if (fault.textContent === '') {
                close();
                drafts.delete(program.id);
            }
        });
        return [form];
    });
}

export function showVersions(versions: Version[], restore: (version: Version) => void): void {
    showDialog('Earlier versions', (close) => {
        const text = element('pre', {
            class: 'version-text',
            tabindex: 0,
            'aria-label': 'Text of the version',
        });
        const rows = versions.map((version) =>
            row(
                version.file,
                `as it was until ${when(version.when)}`,
                () => (text.textContent = version.text),
                button('Restore', () => {
                    close();
                    restore(version);
                }),
            ),
        );
        if (rows.length === 0) {
            return [element('p', {}, 'There are none yet. While you write, one is kept every few minutes.')];
        }
        const about = 'A restored version becomes a file of its own beside the present one.';
        return [element('p', { class: 'quiet' }, about), element('ul', { class: 'rows' }, ...rows), text];
    });
}

// Markdown that the page has with it.
export interface Help {
    page: string;
    k24: string;
}

// Its dialog comes also by F1.
export function helpButton(help: () => Help): HTMLButtonElement {
    const show = (): void => {
        const { page, k24 } = help();
        const tabs = makeTabs('Help', [
            { id: 'help-page', title: 'This page', element: showTask(page) },
            { id: 'help-k24', title: 'The K24', element: showTask(k24) },
        ]);
        showDialog('Help', () => [element('div', { class: 'help' }, tabs.element)]);
    };
    addEventListener('keydown', (event) => {
        // Some are the program's.
        if (event.key === 'F1' && !event.defaultPrevented) {
            event.preventDefault();
            show();
        }
    });
    return button('?', show, { 'aria-label': 'Help', title: 'Help (F1)' });
}

export function showLicenses(text: string): void {
    showDialog('Licenses', () => [element('pre', { class: 'licenses', tabindex: 0 }, text)]);
}

export function chooseForDropped(
    files: File[],
    program: string,
    work: { openFiles(files: File[]): void; addFiles(files: File[]): void },
): void {
    const names = files.map(({ name }) => name);
    const about = names.slice(0, 5).join(', ') + (names.length > 5 ? ` and ${names.length - 5} more` : '');
    showDialog('Open files', (close) => {
        const closing = (chosen: (files: File[]) => void) => (): void => {
            close();
            chosen(files);
        };
        return [
            element('p', {}, about),
            element(
                'div',
                { class: 'buttons start' },
                button('Open as a new program', closing(work.openFiles), { class: 'primary' }),
                button(`Add to “${program}”`, closing(work.addFiles)),
            ),
        ];
    });
}
