// The board, drawn and operated: its screen, and the circuit board with switches, lamps and displays.

import type { Body, Json } from '../page/adapter';
import { element } from '../page/dom';
import { makePanel, SWITCHES, type Panel } from './panel';
import { makeScreen, type ScreenPart } from './screen';

// A request of the debug adapter's whose answer the board does not need.
export type Ask = (command: string, arguments_: Body) => void;

export interface Board {
    element: HTMLElement;
    // The body of an event `tovik/board`.
    update(body: Body): void;
    paint(part: ScreenPart): void;
    // Whether there is a program that takes what the user does, which is from the answer to `launch` to the
    // end. Otherwise the switches can be turned for the next launch.
    setLive(on: boolean): void;
    // For the launch: bit i is switch i.
    switches(): number;
    resetSwitches(): void; // while there is no program
}

// A change of a text is told to a screen reader once it has been there so long.
const REST_MS = 1500;

// What the displays say, in words, for those who do not see them.
function makeTeller(): { region: HTMLElement; tell(text: string): void } {
    const region = element('p', { class: 'board-unseen', role: 'status' });
    let timer = 0;
    const tell = (text: string): void => {
        clearTimeout(timer);
        timer = window.setTimeout(() => (region.textContent = text), REST_MS);
    };
    return { region, tell };
}

function isText(value: Json | undefined): value is string {
    return typeof value === 'string';
}

export function makeBoard(ask: Ask): Board {
    let live = false;
    let switches = 0;
    let waiting: Body = {}; // what has changed and is not drawn yet
    let isPlanned = false;

    const turn = (number: number): void => {
        if (live) {
            ask('tovik/switch', { number });
        } else {
            update({ switches: switches ^ (1 << number) });
        }
    };
    const panel: Panel = makePanel(turn);
    const screen = makeScreen(ask, panel.focus);
    const digits = makeTeller();
    const text = makeTeller();

    const draw = (): void => {
        const { ledRed, ledGreen, hex, lcd, mouseActive } = waiting;
        if (typeof waiting['switches'] === 'number') {
            panel.switches.show(waiting['switches']);
        }
        if (typeof ledRed === 'number') {
            panel.red.show(ledRed);
        }
        if (typeof ledGreen === 'number') {
            panel.green.show(ledGreen);
        }
        if (isText(hex)) {
            panel.highDigits.show(hex.slice(0, 4));
            panel.lowDigits.show(hex.slice(4));
            digits.tell(`HEX: ${hex.slice(0, 4)} ${hex.slice(4)}`);
        }
        if (Array.isArray(lcd)) {
            const lines = lcd.filter(isText);
            panel.lcd.show(lines);
            text.tell(
                `LCD: ${
                    lines
                        .map((line) => line.trim())
                        .join(' ')
                        .trim() || 'empty'
                }`,
            );
        }
        if (typeof mouseActive === 'boolean') {
            screen.setMouseActive(mouseActive);
        }
        waiting = {};
        isPlanned = false;
    };
    const update = (body: Body): void => {
        waiting = { ...waiting, ...body };
        switches =
            typeof waiting['switches'] === 'number' ? waiting['switches'] & ((1 << SWITCHES) - 1) : switches;
        if (!isPlanned) {
            isPlanned = true;
            requestAnimationFrame(draw);
        }
    };
    return {
        element: element(
            'section',
            { class: 'board', 'aria-label': 'Board' },
            element('div', { class: 'board-parts' }, screen.frame, panel.drawing),
            digits.region,
            text.region,
        ),
        update,
        paint: screen.paint,
        setLive(on) {
            live = on;
            screen.setLive(on);
        },
        switches: () => switches,
        resetSwitches: () => update({ switches: 0 }),
    };
}
