// What the views are made of.

import { element, shape } from '../page/dom';
import { button as pageButton } from '../page/parts';
import type { Session } from './session';

// An icon of paths on a square of 16; filled, unless a path begins with a blank, which is a line.
export function icon(paths: string[]): SVGSVGElement {
    const drawn = paths.map((path) =>
        path.startsWith(' ')
            ? shape('path', { d: path, fill: 'none', stroke: 'currentColor', 'stroke-width': 1.7 })
            : shape('path', { d: path, fill: 'currentColor' }),
    );
    return shape('svg', { viewBox: '0 0 16 16', width: 18, height: 18, 'aria-hidden': 'true' }, ...drawn);
}

export function button(label: string, act: () => void, className = ''): HTMLButtonElement {
    return pageButton(label, act, { class: className });
}

// Calls when the values may be others and the element is seen; what is not seen is up to date when it is
// seen again. Returns what ends it.
export function whenSeen(session: Session, seen: Element, refresh: () => Promise<void>): () => void {
    let isSeen = false;
    let isOld = true;
    let isBusy = false;
    const update = async (): Promise<void> => {
        if (!isSeen || isBusy) {
            return;
        }
        isBusy = true;
        while (isOld && session.state() === 'stopped') {
            isOld = false;
            await refresh().catch(session.complain);
        }
        isBusy = false;
    };
    const look = (): void => {
        isOld = true;
        void update();
    };
    const end = session.onLook(look);
    const observer = new IntersectionObserver((entries) => {
        isSeen = entries.at(-1)?.isIntersecting ?? false;
        void update();
    });
    observer.observe(seen);
    return () => {
        end();
        observer.disconnect();
    };
}

// Shows something over the page, at a place in the window, until it is closed or left; the focus goes back to
// where it was. Returns what closes it.
export function openPopup(x: number, y: number, popup: HTMLElement): () => void {
    const before = document.activeElement;
    const close = (): void => {
        popup.remove();
        document.removeEventListener('pointerdown', closeOutside, true);
        if (before instanceof HTMLElement && before.isConnected) {
            before.focus();
        }
    };
    const closeOutside = (event: Event): void => {
        if (!(event.target instanceof Node && popup.contains(event.target))) {
            close();
        }
    };
    popup.addEventListener('keydown', (event) => {
        event.stopPropagation();
        if (event.key === 'Escape') {
            close();
        }
    });
    popup.classList.add('debug-popup');
    document.body.append(popup);
    popup.style.left = `${Math.max(0, Math.min(x, innerWidth - popup.offsetWidth - 8))}px`;
    popup.style.top = `${Math.max(0, Math.min(y, innerHeight - popup.offsetHeight - 8))}px`;
    document.addEventListener('pointerdown', closeOutside, true);
    popup.querySelector<HTMLElement>('button, input')?.focus();
    return close;
}

export interface Choice {
    label: string;
    act: () => void;
}

export function openMenu(x: number, y: number, choices: Choice[]): void {
    const items = choices.map((choice) => {
        const item = element('button', { type: 'button', role: 'menuitem', tabindex: -1 }, choice.label);
        item.addEventListener('click', () => {
            close();
            choice.act();
        });
        return item;
    });
    const menu = element('div', { class: 'debug-menu', role: 'menu' }, ...items);
    menu.addEventListener('keydown', (event) => {
        const at = items.indexOf(document.activeElement as HTMLButtonElement);
        const step = { ArrowDown: 1, ArrowUp: items.length - 1 }[event.key];
        if (step) {
            event.preventDefault();
            items[(at + step) % items.length]?.focus();
        } else if (event.key === 'Tab') {
            close();
        }
    });
    const close = openPopup(x, y, menu);
}

// Calls for a right click, the key for it, and a long press with a finger.
export function onContext(target: HTMLElement, open: (event: MouseEvent) => void): void {
    let press = 0;
    const end = (): void => clearTimeout(press);
    target.addEventListener('contextmenu', (event) => {
        end();
        open(event);
    });
    target.addEventListener('pointerdown', (event) => {
        if (event.pointerType === 'touch') {
            end();
            press = window.setTimeout(() => open(event), 600);
        }
    });
    ['pointerup', 'pointercancel', 'pointermove'].forEach((name) => target.addEventListener(name, end));
}

// Lets a text be changed where it stands. `commit` throws if it is no good; then its sentence is shown.
export function editInPlace(
    place: HTMLElement,
    label: string,
    commit: (text: string) => Promise<void>,
): void {
    const before = place.textContent ?? '';
    const input = element('input', { class: 'debug-edit', 'aria-label': label, spellcheck: 'false' });
    input.value = before.replace(/ \(.*/s, '');
    const fault = element('span', { class: 'debug-fault-text', role: 'alert' });
    const close = (focus: boolean): void => {
        if (input.isConnected) {
            place.replaceChildren(before);
        }
        if (focus) {
            place.closest<HTMLElement>('[tabindex]')?.focus();
        }
    };
    input.addEventListener('keydown', (event) => {
        event.stopPropagation();
        if (event.key === 'Escape') {
            close(true);
        } else if (event.key === 'Enter') {
            commit(input.value).then(
                () => close(true),
                (error: Error) => {
                    fault.textContent = error.message;
                    input.focus();
                },
            );
        }
    });
    input.addEventListener('input', () => fault.replaceChildren());
    input.addEventListener('blur', () => close(false));
    place.replaceChildren(input, fault);
    input.select();
    input.focus();
}
