// Small parts of the page: buttons, menus, tabs, dialogs, messages, and bars between parts that can be moved.

import { element } from './dom';
import { remember, remembered } from './store';

export function button(
    text: string,
    pressed: () => void,
    attributes: Record<string, string> = {},
): HTMLButtonElement {
    const made = element('button', { type: 'button', ...attributes }, text);
    made.addEventListener('click', pressed);
    return made;
}

export interface Choice {
    text: string;
    hint?: string; // a key, or a few words
    chosen(): void;
}

// A button with a menu, whose choices are asked for when it opens.
export function menu(label: string, name: string, choices: () => Choice[]): HTMLElement {
    const list = element('div', { class: 'menu-list', role: 'menu', hidden: true });
    const opener = element(
        'button',
        {
            type: 'button',
            'aria-haspopup': 'menu',
            'aria-expanded': 'false',
            'aria-label': name,
            title: name,
        },
        label,
    );
    const close = (): void => {
        list.hidden = true;
        opener.setAttribute('aria-expanded', 'false');
    };
    const makeItem = ({ text, hint, chosen }: Choice): HTMLElement => {
        const item = element(
            'button',
            { type: 'button', role: 'menuitem', tabindex: -1 },
            text,
            hint === undefined ? null : element('span', { class: 'hint' }, hint),
        );
        item.addEventListener('click', () => {
            close();
            opener.focus();
            chosen();
        });
        return item;
    };
    opener.addEventListener('click', () => {
        if (!list.hidden) {
            close();
            return;
        }
        list.replaceChildren(...choices().map(makeItem));
        list.hidden = false;
        opener.setAttribute('aria-expanded', 'true');
        const { left } = opener.getBoundingClientRect();
        list.classList.toggle('to-left', left + list.offsetWidth > innerWidth - 8);
        (list.firstElementChild as HTMLElement | null)?.focus();
    });
    const whole = element('div', { class: 'menu' }, opener, list);
    whole.addEventListener('keydown', (event) => {
        const items = [...list.children] as HTMLElement[];
        const at = items.indexOf(document.activeElement as HTMLElement);
        const next = { ArrowDown: at + 1, ArrowUp: at - 1, Home: 0, End: -1 }[event.key];
        if (event.key === 'Escape' && !list.hidden) {
            close();
            opener.focus();
        } else if (next !== undefined && !list.hidden) {
            event.preventDefault();
            items.at(next % items.length)?.focus();
        }
    });
    whole.addEventListener('focusout', (event) => {
        if (!whole.contains(event.relatedTarget as Node | null)) {
            close();
        }
    });
    return whole;
}

export interface TabPanel {
    id: string;
    title: string;
    element: HTMLElement;
}

export interface Tabs {
    element: HTMLElement;
    select(id: string): void;
}

// Panels of which one is seen at a time; which one is remembered.
export function makeTabs(label: string, panels: readonly TabPanel[]): Tabs {
    const bar = element('div', { class: 'tab-bar', role: 'tablist', 'aria-label': label });
    const body = element('div', { class: 'tab-body' });
    const key = `tab-${label}`;
    const tabs = panels.map((panel) => {
        const tab = element(
            'button',
            { type: 'button', role: 'tab', id: `tab-${panel.id}`, 'aria-controls': `panel-${panel.id}` },
            panel.title,
        );
        tab.addEventListener('click', () => {
            select(panel.id);
            remember(key, panel.id);
        });
        bar.append(tab);
        const place = element(
            'div',
            { class: 'tab-panel', role: 'tabpanel', id: `panel-${panel.id}`, 'aria-labelledby': tab.id },
            panel.element,
        );
        body.append(place);
        return { id: panel.id, tab, place };
    });
    const select = (id: string): void => {
        for (const one of tabs) {
            const chosen = one.id === id;
            one.tab.setAttribute('aria-selected', String(chosen));
            one.tab.tabIndex = chosen ? 0 : -1;
            one.place.hidden = !chosen;
        }
    };
    bar.addEventListener('keydown', (event) => {
        const at = tabs.findIndex(({ tab }) => tab === document.activeElement);
        const step = { ArrowRight: 1, ArrowLeft: -1 }[event.key];
        const next = step === undefined || at < 0 ? undefined : tabs.at((at + step) % tabs.length);
        if (next !== undefined) {
            event.preventDefault();
            next.tab.click();
            next.tab.focus();
        }
    });
    const last = remembered(key);
    select(panels.find(({ id }) => id === last)?.id ?? panels[0]?.id ?? '');
    return { element: element('div', { class: 'tabs' }, bar, body), select };
}

// In percent of the window.
const LEAST_SHARE = 8;
const GREATEST_SHARE = 80;

// A bar that changes a length of the page, kept in a variable of the style. `sign`: 1 if the length grows to the
// right or downwards.
export function makeBar(name: string, direction: 'x' | 'y', sign: 1 | -1, label: string): HTMLElement {
    const root = document.documentElement;
    const bar = element('div', {
        class: `bar bar-${direction}`,
        role: 'separator',
        tabindex: 0,
        'aria-label': label,
        'aria-orientation': direction === 'x' ? 'vertical' : 'horizontal',
        'aria-valuemin': LEAST_SHARE,
        'aria-valuemax': GREATEST_SHARE,
    });
    const whole = (): number => (direction === 'x' ? innerWidth : innerHeight);
    const length = (): number => {
        const beside = sign === 1 ? bar.previousElementSibling : bar.nextElementSibling;
        const box = beside?.getBoundingClientRect();
        return (direction === 'x' ? box?.width : box?.height) ?? 0;
    };
    const tell = (): void =>
        bar.setAttribute('aria-valuenow', String(Math.round((length() / whole()) * 100)));
    new ResizeObserver(tell).observe(bar); // it is seen, for the first time or again
    const set = (pixels: number): void => {
        const share = Math.min(Math.max((pixels / whole()) * 100, LEAST_SHARE), GREATEST_SHARE);
        const part = Math.round(share * 10) / 10;
        root.style.setProperty(`--${name}`, `${part}${direction === 'x' ? 'vw' : 'vh'}`);
        tell();
        remember(name, String(part));
    };
    const last = Number(remembered(name) ?? '');
    if (last > 0) {
        set((last / 100) * whole());
    }
    bar.addEventListener('pointerdown', (event) => {
        const place = (of: PointerEvent): number => (direction === 'x' ? of.clientX : of.clientY);
        const [start, was] = [place(event), length()];
        bar.setPointerCapture(event.pointerId);
        const move = (to: PointerEvent): void => set(was + sign * (place(to) - start));
        bar.addEventListener('pointermove', move);
        bar.addEventListener('lostpointercapture', () => bar.removeEventListener('pointermove', move), {
            once: true,
        });
    });
    bar.addEventListener('keydown', (event) => {
        const step = { ArrowRight: 24, ArrowDown: 24, ArrowLeft: -24, ArrowUp: -24 }[event.key];
        if (step !== undefined) {
            event.preventDefault();
            set(length() + sign * step);
        }
    });
    return bar;
}

// Shows a dialog, unless there is one. `fill` gets a function that closes it.
export function showDialog(title: string, fill: (close: () => void) => (Node | string)[]): void {
    if (document.querySelector('dialog[open]') !== null) {
        return;
    }
    const dialog = element('dialog', { 'aria-label': title });
    const close = (): void => dialog.close();
    dialog.append(
        element(
            'div',
            { class: 'dialog-head' },
            element('h2', {}, title),
            button('×', close, { 'aria-label': 'Close' }),
        ),
        element('div', { class: 'dialog-body' }, ...fill(close)),
    );
    dialog.addEventListener('close', () => dialog.remove());
    dialog.addEventListener('pointerdown', (event) => {
        if (event.target === dialog) {
            close(); // outside of it
        }
    });
    document.body.append(dialog);
    dialog.showModal();
    dialog
        .querySelector<HTMLElement>('[autofocus], .dialog-body :is(input, button):not([tabindex="-1"])')
        ?.focus();
}

export interface Messages {
    element: HTMLElement;
    // Shows a sentence until it is closed, or for some seconds if it is only a `note`. Returns what closes it.
    say(text: string, kind?: 'note' | 'warning' | 'fault', actions?: Choice[]): () => void;
}

const NOTE_STAYS = 8000; // milliseconds
const MOST_LASTING = 50;
const MOST_PASSING = 4;

export function makeMessages(): Messages {
    // What lasts has a place of its own; what passes stands before other things.
    const lasting = element('div', { class: 'messages-lasting' });
    const passing = element('div', { class: 'messages-passing' });
    return {
        element: element(
            'div',
            { class: 'messages', role: 'log', 'aria-live': 'polite', 'aria-label': 'Messages' },
            lasting,
            passing,
        ),
        say(text, kind = 'note', actions = []) {
            const passes = kind === 'note' && actions.length === 0;
            const list = passes ? passing : lasting;
            [...list.children]
                .filter((child) => child.firstChild?.textContent === text)
                .forEach((old) => old.remove());
            const one = element('div', { class: `message ${kind}` }, element('p', {}, text));
            for (const { text: name, chosen } of actions) {
                const act = (): void => {
                    one.remove();
                    chosen();
                };
                one.append(button(name, act));
            }
            const close = (): void => one.remove();
            one.append(button('×', close, { 'aria-label': 'Close', class: 'close' }));
            list.append(one);
            if (list.children.length > (passes ? MOST_PASSING : MOST_LASTING)) {
                list.firstElementChild?.remove();
            }
            list.scrollTop = list.scrollHeight;
            if (passes) {
                setTimeout(close, NOTE_STAYS);
            }
            return close;
        },
    };
}

// Does what may fail, and says so if it does.
export function attempt(messages: Messages, work: () => Promise<unknown>): void {
    work().catch((error: unknown) => {
        const reason = error instanceof Error ? error.message : String(error);
        messages.say(`That did not work: ${reason.replace(/\.$/, '')}.`, 'fault');
    });
}
