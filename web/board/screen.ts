// The board's screen, with keyboard, mouse and touch screen.

import { element } from '../page/dom';
import type { Body } from '../page/adapter';
import { button } from '../page/parts';
import type { FromWorker } from '../worker/protocol';
import type { Ask } from './board';
import { codeOf, isForTheBrowser } from './keys';

export type ScreenPart = Extract<FromWorker, { kind: 'screen' }>;

export interface Screen {
    frame: HTMLElement;
    paint(part: ScreenPart): void;
    setLive(on: boolean): void;
    setMouseActive(on: boolean): void;
}

const [WIDTH, HEIGHT] = [640, 480];

// How quickly the second Escape has to follow the first one to give the keyboard back to the page.
const LEAVE_MS = 700;

// So long the program has to see a motion or a press before the release: it only looks from time to time.
const SEEN_MS = 60;

function connectKeys(
    canvas: HTMLCanvasElement,
    isLive: () => boolean,
    send: (body: Body) => void,
    leave: () => void,
): () => void {
    const held = new Map<string, number>(); // what has gone down, by the place of the key
    let escapedAt = -LEAVE_MS;
    const releaseAll = (): void => {
        held.forEach((code) => send({ code, down: false }));
        held.clear();
    };
    canvas.addEventListener('keydown', (event) => {
        if (!isLive()) {
            return;
        }
        if (event.ctrlKey && event.key.toLowerCase() === 'm') {
            event.preventDefault();
            if (!event.repeat) {
                send({ controlM: true });
            }
            return;
        }
        const code = codeOf(event.key);
        if (event.key === 'Meta') {
            releaseAll(); // beside it, some browsers report no key that goes up
        }
        if (code === 0 || isForTheBrowser(event)) {
            return;
        }
        event.preventDefault();
        if (event.repeat) {
            return;
        }
        held.set(event.code, code);
        send({ code, down: true });
        if (event.key !== 'Escape') {
            escapedAt = -LEAVE_MS;
        } else if (event.timeStamp - escapedAt < LEAVE_MS) {
            leave();
        } else {
            escapedAt = event.timeStamp;
        }
    });
    canvas.addEventListener('keyup', (event) => {
        // The key goes up as the character with which it went down, whatever has become of Shift.
        const code = held.get(event.code);
        if (code !== undefined) {
            held.delete(event.code);
            send({ code, down: false });
        }
    });
    canvas.addEventListener('blur', releaseAll);
    return releaseAll;
}

function connectPointer(canvas: HTMLCanvasElement, send: (body: Body) => void): () => void {
    let moved: { x: number; y: number } | null = null; // and not told yet
    let buttons = 0; // bit i is the board's button i + 1: left, middle, right
    let toldAt = -SEEN_MS;
    let timer = 0;
    const waiting: Body[] = []; // behind a release that comes too early
    const tell = (body: Body): void => {
        if (timer === 0) {
            send(body);
        } else {
            waiting.push(body);
        }
    };
    const flush = (): void => {
        if (moved) {
            tell(moved);
            moved = null;
            toldAt = performance.now();
        }
    };
    const awaitLook = (): void => {
        const rest = toldAt + SEEN_MS - performance.now();
        if (timer === 0 && rest > 0) {
            timer = window.setTimeout(() => {
                timer = 0;
                waiting.splice(0).forEach(send);
            }, rest);
        }
    };
    const place = (event: PointerEvent): { x: number; y: number } => {
        const box = canvas.getBoundingClientRect();
        return {
            x: Math.floor(((event.clientX - box.left) * WIDTH) / box.width),
            y: Math.floor(((event.clientY - box.top) * HEIGHT) / box.height),
        };
    };
    // A second button that goes down or up comes as a motion.
    const heard = (event: PointerEvent): void => {
        if (!event.isPrimary) {
            return;
        }
        const { x, y } = place(event);
        const [left, right, middle] = [event.buttons & 1, (event.buttons >> 1) & 1, (event.buttons >> 2) & 1];
        const now = left | (middle << 1) | (right << 2);
        if (now === buttons) {
            if (!moved) {
                requestAnimationFrame(flush);
            }
            moved = { x, y };
            return;
        }
        flush();
        if ((now & ~buttons) === 0) {
            awaitLook();
        } else {
            toldAt = performance.now();
        }
        [1, 2, 3].forEach((button) => {
            const bit = 1 << (button - 1);
            if ((now & bit) !== (buttons & bit)) {
                tell({ x, y, button, down: (now & bit) !== 0 });
            }
        });
        buttons = now;
    };
    const release = (): void => {
        [1, 2, 3].filter((i) => (buttons >> (i - 1)) & 1).forEach((button) => tell({ button, down: false }));
        buttons = 0;
    };
    canvas.addEventListener('pointerenter', (event) => {
        if (event.isPrimary) {
            tell({ inside: true, ...place(event) });
        }
    });
    canvas.addEventListener('pointerleave', (event) => {
        if (event.isPrimary) {
            flush();
            release();
            tell({ inside: false });
        }
    });
    canvas.addEventListener('pointerdown', (event) => {
        canvas.setPointerCapture(event.pointerId);
        heard(event);
    });
    canvas.addEventListener('pointermove', heard);
    canvas.addEventListener('pointerup', heard);
    canvas.addEventListener('pointercancel', release);
    canvas.addEventListener('contextmenu', (event) => event.preventDefault());
    return release;
}

// Where there is no keyboard, what is typed here goes to the program's one.
function makeTyping(send: (body: Body) => void): HTMLElement {
    const input = element('input', {
        type: 'text',
        class: 'screen-typing',
        placeholder: 'Type to the program',
        'aria-label': 'Type to the program',
        autocapitalize: 'off',
        autocomplete: 'off',
        spellcheck: 'false',
    });
    const type = (code: number): void => [true, false].forEach((down) => send({ code, down }));
    input.addEventListener('input', () => {
        [...input.value].map(codeOf).forEach(type);
        input.value = '';
    });
    input.addEventListener('keydown', (event) => {
        if (event.key === 'Enter' || event.key === 'Backspace') {
            event.preventDefault();
            type(codeOf(event.key));
        }
    });
    return input;
}

// `leave` gives the keyboard to something else on the page.
export function makeScreen(ask: Ask, leave: () => void): Screen {
    const canvas = element('canvas', {
        width: WIDTH,
        height: HEIGHT,
        tabindex: 0,
        class: 'screen',
        role: 'application',
        'aria-label': 'Screen of the board',
        'aria-describedby': 'board-screen-hint',
    });
    const context = canvas.getContext('2d', { alpha: false, desynchronized: true });
    let live = false;
    const whileLive =
        (command: string) =>
        (body: Body): void => {
            if (live) {
                ask(command, body);
            }
        };
    const sendKey = whileLive('tovik/key');
    const releaseKeys = connectKeys(canvas, () => live, sendKey, leave);
    const releaseButtons = connectPointer(canvas, whileLive('tovik/pointer'));
    const hint = element(
        'p',
        { class: 'screen-hint', id: 'board-screen-hint' },
        'A click gives the program all keys; Escape twice takes them back.',
    );
    // Enlarged points stay sharp; a picture made smaller needs its points mixed.
    new ResizeObserver(() => {
        canvas.classList.toggle('enlarged', canvas.clientWidth * devicePixelRatio >= WIDTH);
    }).observe(canvas);
    const picture = element('div', { class: 'monitor-case' }, canvas);
    const enlarge = button(
        'Full screen',
        () => {
            void picture.requestFullscreen().catch(() => undefined); // which some pages around this one forbid
            canvas.focus();
        },
        { class: 'screen-enlarge', title: 'The screen of the board on all of this one; Escape comes back' },
    );
    enlarge.hidden = !document.fullscreenEnabled;
    return {
        frame: element(
            'div',
            { class: 'monitor' },
            picture,
            element('div', { class: 'screen-below' }, enlarge, hint, makeTyping(sendKey)),
        ),
        paint({ x, y, width, height, rgba }) {
            context?.putImageData(new ImageData(rgba, width, height), x, y);
        },
        setLive(on) {
            live = false; // nobody is told of what is still held
            releaseKeys();
            releaseButtons();
            live = on;
            canvas.classList.toggle('live', on);
        },
        setMouseActive: (on) => canvas.classList.toggle('mouse-active', on),
    };
}
