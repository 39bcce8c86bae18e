// The serial console.

import { element } from '../page/dom';
import type { Ask } from './board';
import { codeOf, isForTheBrowser } from './keys';

export interface SerialConsole {
    element: HTMLElement;
    // What the program has sent: the `output` events of category `stdout`.
    append(text: string): void;
    clear(): void;
    setLive(on: boolean): void;
}

const MOST_SHOWN = 100_000; // characters
const MOST_TYPED = 1024; // at once, and what the board keeps
const PIECE = 4096; // characters of a text node that still grows
const MOST_SPOKEN = 200; // characters that a screen reader hears at once

// The last of what has been appended.
function makeOutput(): { element: HTMLElement; append(text: string): void; clear(): void } {
    const dropped = element('p', { class: 'console-dropped', hidden: true }, 'What came before is dropped.');
    const text = element('div', { class: 'console-text' });
    const output = element(
        'div',
        {
            class: 'console-output',
            tabindex: 0,
            role: 'log',
            'aria-label': 'Serial console: what the program sends',
        },
        dropped,
        text,
    );
    let waiting = '';
    let shown = 0; // characters
    const drop = (node: Node): void => {
        shown -= node.textContent?.length ?? 0;
        node.parentNode?.removeChild(node);
        dropped.hidden = false;
    };
    const draw = (): void => {
        const isAtEnd = output.scrollTop + output.clientHeight >= output.scrollHeight - 4;
        output.setAttribute('aria-live', waiting.length > MOST_SPOKEN ? 'off' : 'polite');
        const last = text.lastChild;
        if (last instanceof Text && last.length < PIECE) {
            last.appendData(waiting);
        } else {
            text.append(waiting);
        }
        shown += waiting.length;
        waiting = '';
        while (shown > MOST_SHOWN && text.firstChild !== text.lastChild && text.firstChild) {
            drop(text.firstChild);
        }
        if (isAtEnd) {
            output.scrollTop = output.scrollHeight;
        }
    };
    const append = (more: string): void => {
        if (waiting === '') {
            requestAnimationFrame(draw);
        }
        waiting += more.replaceAll('\r', '');
        if (waiting.length > MOST_SHOWN) {
            waiting = waiting.slice(-MOST_SHOWN);
            dropped.hidden = false;
        }
    };
    const clear = (): void => {
        waiting = '';
        shown = 0;
        text.replaceChildren();
        dropped.hidden = true;
    };
    return { element: output, append, clear };
}

// The characters of a text as the board has them: one byte each. There may be one more than it keeps.
function bytesOf(text: string): string {
    let bytes = '';
    for (const character of text.replaceAll('\r\n', '\n')) {
        const code = codeOf(character);
        bytes += code === 0 ? '' : String.fromCharCode(code);
        if (bytes.length > MOST_TYPED) {
            break;
        }
    }
    return bytes;
}

export function makeConsole(ask: Ask): SerialConsole {
    const output = makeOutput();
    const input = element('input', {
        type: 'text',
        'aria-label': 'A line to send',
        autocomplete: 'off',
        spellcheck: 'false',
    });
    const send = element('button', { type: 'submit' }, 'Send');
    const clear = element('button', { type: 'button' }, 'Clear');
    const note = element('p', { class: 'console-note', role: 'status' });
    let live = false;
    const type = (text: string): void => {
        const bytes = bytesOf(text);
        note.textContent =
            bytes.length > MOST_TYPED
                ? `The board keeps ${MOST_TYPED} characters that the program has not read yet; more are lost.`
                : '';
        if (live && bytes !== '') {
            ask('tovik/serial', { data: btoa(bytes.slice(0, MOST_TYPED)) });
        }
    };
    output.element.addEventListener('keydown', (event) => {
        const code = codeOf(event.key);
        if (live && code !== 0 && !isForTheBrowser(event) && event.key !== 'Tab') {
            event.preventDefault();
            type(String.fromCharCode(code));
        }
    });
    output.element.addEventListener('paste', (event) => type(event.clipboardData?.getData('text') ?? ''));
    const line = element('form', { class: 'console-line' }, input, send, clear);
    line.addEventListener('submit', (event) => {
        event.preventDefault();
        type(`${input.value}\n`);
        input.value = '';
    });
    clear.addEventListener('click', output.clear);
    const setLive = (on: boolean): void => {
        live = on;
        send.disabled = !on;
        output.element.classList.toggle('live', on);
    };
    setLive(false);
    return {
        element: element(
            'section',
            { class: 'console', 'aria-label': 'Serial console' },
            output.element,
            line,
            note,
        ),
        append: output.append,
        clear: output.clear,
        setLive,
    };
}
