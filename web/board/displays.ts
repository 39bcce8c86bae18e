// The displays of the board: lamps, digits and the LCD. Each is a group of shapes, and shows a new value.

import { shape } from '../page/dom';
import { ALL_DOTS, DOT_COLUMNS, DOT_ROWS, dots } from './font';

export interface Display<Value> {
    group: SVGGElement;
    show(value: Value): void;
}

export const LAMP_PITCH = 49;

// A row of lamps, the one with the highest number at the left, at x 0. `light` names its color.
export function makeLamps(count: number, light: 'red' | 'green'): Display<number> {
    const lamps: SVGGElement[] = [];
    for (let i = 0; i < count; i += 1) {
        const x = (count - 1 - i) * LAMP_PITCH;
        const place = { transform: `translate(${x} 0)`, class: `lamp lamp-${light}` };
        lamps.push(
            shape(
                'g',
                place,
                shape('circle', { r: 23, class: 'glow', fill: `url(#board-glow-${light})` }),
                shape('rect', { x: -11, y: -11, width: 22, height: 22, rx: 4, class: 'socket' }),
                shape('circle', { r: 9, class: 'lens' }),
                shape('ellipse', { cx: -2.5, cy: -3.5, rx: 3.5, ry: 2.2, class: 'shine' }),
            ),
        );
    }
    const group = shape('g', { role: 'img' }, ...[...lamps].reverse());
    const show = (value: number): void => {
        lamps.forEach((lamp, i) => lamp.classList.toggle('lit', ((value >> i) & 1) === 1));
        const lit = lamps.map((_, i) => i).filter((i) => ((value >> i) & 1) === 1);
        const which = lit.length === 0 ? 'all off' : `${lit.reverse().join(', ')} on`;
        group.setAttribute('aria-label', `${light === 'red' ? 'Red' : 'Green'} lamps: ${which}`);
    };
    show(0);
    return { group, show };
}

// Which of the segments a to g make a hexadecimal digit; bit 0 is a, the upper one, then clockwise, g in the
// middle.
const SEGMENTS = [
    0x3f, 0x06, 0x5b, 0x4f, 0x66, 0x6d, 0x7d, 0x07, 0x7f, 0x6f, 0x77, 0x7c, 0x39, 0x5e, 0x79, 0x71,
];

export const DIGIT_PITCH = 53;
const [DIGIT_WIDTH, DIGIT_HEIGHT, THICK] = [32, 64, 7.5];

// A bar with pointed ends, from one point to another.
function bar(x1: number, y1: number, x2: number, y2: number): string {
    const [gap, half] = [0.9, THICK / 2];
    return x1 === x2
        ? `M${x1} ${y1 + gap}l${half} ${half}V${y2 - gap - half}l${-half} ${half}l${-half} ${-half}V${y1 + gap + half}z`
        : `M${x1 + gap} ${y1}l${half} ${-half}H${x2 - gap - half}l${half} ${half}l${-half} ${half}H${x1 + gap + half}z`;
}

const [W, MIDDLE, H] = [DIGIT_WIDTH, DIGIT_HEIGHT / 2, DIGIT_HEIGHT];
const BARS = [
    bar(0, 0, W, 0),
    bar(W, 0, W, MIDDLE),
    bar(W, MIDDLE, W, H),
    bar(0, H, W, H),
    bar(0, MIDDLE, 0, H),
    bar(0, 0, 0, MIDDLE),
    bar(0, MIDDLE, W, MIDDLE),
];

// Four digits, HEX7 to HEX4 or HEX3 to HEX0; `first` is the number of the left one. A space is a dark digit.
export function makeDigits(first: number): Display<string> {
    const digits = [0, 1, 2, 3].map(() => BARS.map((d) => shape('path', { d, class: 'segment' })));
    const width = 4 * DIGIT_PITCH;
    const group = shape(
        'g',
        { role: 'img' },
        shape('rect', { width, height: 88, rx: 5, class: 'digit-body' }),
        ...digits.map((bars, i) =>
            shape(
                'g',
                { transform: `translate(${i * DIGIT_PITCH + 14} 12) skewX(-5)` },
                ...bars,
                shape('circle', { cx: W + 9, cy: H, r: 3.2, class: 'segment' }),
            ),
        ),
        ...digits.map((_, i) =>
            shape('text', { x: (i + 0.5) * DIGIT_PITCH, y: 103, class: 'silk' }, `HEX${first - i}`),
        ),
    );
    let shown = '';
    const show = (value: string): void => {
        digits.forEach((bars, i) => {
            if (shown[i] !== value[i]) {
                const segments = SEGMENTS[parseInt(value[i] ?? ' ', 16)] ?? 0;
                bars.forEach((path, k) => path.classList.toggle('lit', ((segments >> k) & 1) === 1));
            }
        });
        shown = value;
        group.setAttribute('aria-label', `HEX${first} to HEX${first - 3}: ${value.trim() || 'dark'}`);
    };
    show('    ');
    return { group, show };
}

const LCD_COLUMNS = 16;
const DOT = 4; // size of a dot with the gap beside it
const [CELL_WIDTH, CELL_HEIGHT] = [(DOT_COLUMNS + 1) * DOT, (DOT_ROWS + 1.5) * DOT];

export const LCD_WIDTH = LCD_COLUMNS * CELL_WIDTH - DOT;
export const LCD_HEIGHT = 2 * CELL_HEIGHT - 1.5 * DOT;

// The two lines of the LCD.
export function makeLcd(): Display<readonly string[]> {
    const paths: SVGPathElement[] = [];
    const cells: SVGGElement[] = [];
    for (let i = 0; i < 2 * LCD_COLUMNS; i += 1) {
        const [x, y] = [(i % LCD_COLUMNS) * CELL_WIDTH, Math.floor(i / LCD_COLUMNS) * CELL_HEIGHT];
        const path = shape('path', { class: 'dot-lit' });
        const place = { transform: `translate(${x} ${y}) scale(${DOT})` };
        paths.push(path);
        cells.push(shape('g', place, shape('path', { d: ALL_DOTS, class: 'dot-unlit' }), path));
    }
    const group = shape('g', { role: 'img' }, ...cells);
    let shown = '';
    const show = (lines: readonly string[]): void => {
        const text = lines.map((line) => line.padEnd(LCD_COLUMNS).slice(0, LCD_COLUMNS)).join('');
        paths.forEach((path, i) => {
            if (text[i] !== shown[i]) {
                path.setAttribute('d', dots(text[i] ?? ' '));
            }
        });
        shown = text;
        group.setAttribute('aria-label', `LCD: ${lines.map((line) => `"${line.trimEnd()}"`).join(', ')}`);
    };
    show(['', '']);
    return { group, show };
}
