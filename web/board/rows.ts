// The rows of the slots.

import { element } from '../page/dom';
import { button } from '../page/parts';

function sizeText(bytes: number): string {
    const kib = bytes / 1024;
    return kib < 1
        ? `${bytes} bytes`
        : kib < 1024
          ? `${Math.round(kib)} KB`
          : `${(kib / 1024).toFixed(1)} MB`;
}

export function download(name: string, bytes: BlobPart): void {
    const url = URL.createObjectURL(new Blob([bytes]));
    element('a', { href: url, download: name }).click();
    setTimeout(() => URL.revokeObjectURL(url), 60_000);
}

export interface Toggle {
    element: HTMLButtonElement;
    isOn(): boolean;
    set(on: boolean): void;
}

// A press while an earlier one still has its effect counts for nothing.
export function makeToggle(text: string, turned: (on: boolean) => Promise<unknown>): Toggle {
    let isBusy = false;
    const isOn = (): boolean => made.getAttribute('aria-checked') === 'true';
    const made = button(text, () => {
        if (!isBusy) {
            isBusy = true;
            void turned(!isOn()).finally(() => (isBusy = false));
        }
    });
    made.setAttribute('role', 'switch');
    made.className = 'slot-switch';
    const set = (on: boolean): void => made.setAttribute('aria-checked', String(on));
    set(false);
    return { element: made, isOn, set };
}

// One row: a name, what is in it, its controls, and what there is to say about it.
export interface Row {
    element: HTMLElement;
    setState(text: string): void;
    say(sentence: string): void;
    want(sentence: string): void; // empty: no more
}

export function makeRow(name: string, ...controls: Node[]): Row {
    const state = element('span', { class: 'slot-state' });
    const note = element('p', { class: 'slot-note', role: 'status' });
    const wish = element('p', { class: 'slot-wish', role: 'status' });
    const row = element(
        'section',
        { class: 'slot', 'aria-label': name },
        element('p', { class: 'slot-name' }, element('strong', {}, name), ' ', state),
        element('div', { class: 'slot-controls' }, ...controls),
        wish, // below them: nothing moves away from under a pointer when the program asks
        note,
    );
    return {
        element: row,
        setState: (text) => (state.textContent = text),
        say: (sentence) => (note.textContent = sentence),
        want(sentence) {
            wish.textContent = sentence;
            row.classList.toggle('wanted', sentence !== '');
            if (sentence !== '') {
                row.scrollIntoView({ block: 'nearest' });
            }
        },
    };
}

export interface Held {
    name: string;
    content: Blob;
}

// A slot for a file, with more controls behind those of the file.
export interface FileSlot extends Row {
    held(): Held | null;
    path(): string;
    put(held: Held | null): void; // without an answer for the program
    setComputer(on: boolean): void; // the computer's own device is used in place of a file
    // And the program gets it. Another one than before has a path of its own: a program that runs may still write to
    // that of before.
    fill(held: Held, isSame?: boolean): void;
    wantsFile(wish: boolean): void;
}

export interface FileKind {
    name: string;
    prefix: string; // of the file's name in the worker
    kinds: string; // as a file chooser has them
    most: number; // bytes
    mostText: string;
    convert(file: File): Promise<Blob>;
}

export function makeFileSlot(kind: FileKind, give: (slot: FileSlot) => void, ...controls: Node[]): FileSlot {
    let held: Held | null = null;
    let number = 1; // of all that have been in it
    let computer = false;
    const chooser = element('input', { type: 'file', accept: kind.kinds, hidden: true });
    const again = button('Give it again', () => give(slot));
    const choose = button('Choose a file…', () => chooser.click());
    const row = makeRow(kind.name, choose, chooser, ...controls, again);
    const showState = (): void => {
        const file = held ? `${held.name}, ${sizeText(held.content.size)}` : 'nothing inserted';
        row.setState(computer ? 'that of this computer' : file);
    };
    const put = (what: Held | null): void => {
        held = what;
        showState();
    };
    const take = async (file: File | undefined): Promise<void> => {
        if (!file) {
            return;
        }
        row.say('');
        if (file.size > kind.most) {
            row.say(`${file.name} has ${sizeText(file.size)}. ${kind.mostText}`);
            return;
        }
        try {
            slot.fill({ name: file.name, content: await kind.convert(file) });
        } catch (error) {
            row.say(`${file.name} cannot be used: ${error instanceof Error ? error.message : String(error)}`);
        }
    };
    const slot: FileSlot = {
        ...row,
        held: () => held,
        path: () => `/media/${kind.prefix}-${number}-${held?.name.replaceAll('/', '_') ?? ''}`,
        put,
        setComputer(on) {
            computer = on;
            showState();
        },
        fill(what, isSame = false) {
            number += isSame ? 0 : 1;
            put(what);
            give(slot);
        },
        wantsFile: (wish) => (again.hidden = !wish || !held),
    };
    chooser.addEventListener('change', () => {
        void take(chooser.files?.[0]);
        chooser.value = '';
    });
    row.element.addEventListener('dragover', (event) => event.preventDefault());
    row.element.addEventListener('drop', (event) => {
        event.preventDefault();
        void take(event.dataTransfer?.files[0]);
    });
    put(null);
    again.hidden = true;
    return slot;
}
