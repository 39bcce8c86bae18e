// The circuit board: its displays and slide switches, and what else there is to see on it.

import { shape } from '../page/dom';
import {
    DIGIT_PITCH,
    LAMP_PITCH,
    LCD_HEIGHT,
    LCD_WIDTH,
    makeDigits,
    makeLamps,
    makeLcd,
    type Display,
} from './displays';

export const SWITCHES = 18;
const GREEN_LAMPS = 8;

export interface Panel {
    drawing: SVGSVGElement;
    switches: Display<number>;
    red: Display<number>;
    green: Display<number>;
    highDigits: Display<string>;
    lowDigits: Display<string>;
    lcd: Display<readonly string[]>;
    focus(): void; // gives the keyboard to a switch
}

const [WIDTH, HEIGHT] = [960, 424];
const FIRST_COLUMN = 78; // the middle of lamp and switch 17
const COLUMN_OF_0 = FIRST_COLUMN + (SWITCHES - 1) * LAMP_PITCH;

function column(number: number): number {
    return COLUMN_OF_0 - number * LAMP_PITCH;
}

function makeSwitches(turn: (number: number) => void): Display<number> & { focus(): void } {
    const switches: SVGGElement[] = [];
    let current = 0; // the one that the Tab key reaches
    const goTo = (number: number): void => {
        switches[current]?.setAttribute('tabindex', '-1');
        current = Math.min(Math.max(number, 0), SWITCHES - 1);
        switches[current]?.setAttribute('tabindex', '0');
        switches[current]?.focus();
    };
    const pressed = (event: KeyboardEvent, number: number): void => {
        const goals: Record<string, number> = {
            ArrowLeft: number + 1,
            ArrowRight: number - 1,
            Home: SWITCHES - 1,
            End: 0,
        };
        const goal = goals[event.key];
        if (event.ctrlKey || event.altKey || event.metaKey) {
            return;
        }
        if (goal !== undefined) {
            goTo(goal);
        } else if (event.key === ' ' || event.key === 'Enter') {
            // A key that is held down comes many times, but turns a switch once.
            if (!event.repeat) {
                turn(number);
            }
        } else {
            return;
        }
        event.preventDefault();
    };
    for (let i = 0; i < SWITCHES; i += 1) {
        const one = shape(
            'g',
            {
                role: 'switch',
                class: 'switch',
                tabindex: i === 0 ? 0 : -1,
                transform: `translate(${column(i)} 0)`,
                'aria-label': `SW ${i}`,
            },
            shape('rect', { x: -LAMP_PITCH / 2, y: 336, width: LAMP_PITCH, height: 84, class: 'touch' }),
            shape('rect', { x: -13, y: 362, width: 26, height: 50, rx: 3, class: 'switch-body' }),
            shape('rect', { x: -7, y: 367, width: 14, height: 40, rx: 2, class: 'switch-slit' }),
            shape(
                'g',
                { class: 'lever' },
                shape('rect', { x: -9, y: 387, width: 18, height: 20, rx: 2.5 }),
                shape('path', { d: 'M-5 393h10M-5 397h10M-5 401h10' }),
            ),
            shape('rect', { x: -20, y: 357, width: 40, height: 60, rx: 6, class: 'focus' }),
        );
        one.addEventListener('click', () => {
            goTo(i);
            turn(i);
        });
        one.addEventListener('keydown', (event) => pressed(event, i));
        switches.push(one);
    }
    const name = { role: 'group', 'aria-label': 'Slide switches' };
    const show = (value: number): void =>
        switches.forEach((one, i) => one.setAttribute('aria-checked', String(((value >> i) & 1) === 1)));
    show(0);
    return {
        group: shape('g', name, ...[...switches].reverse()),
        show,
        focus: () => switches[current]?.focus(),
    };
}

function silk(x: number, y: number, text: string, more = ''): SVGTextElement {
    return shape('text', { x, y, class: `silk ${more}` }, text);
}

function gradient(id: string, ...stops: [offset: string, color: string][]): SVGRadialGradientElement {
    return shape(
        'radialGradient',
        { id },
        ...stops.map(([offset, color]) => shape('stop', { offset, 'stop-color': color })),
    );
}

function definitions(): SVGDefsElement {
    return shape(
        'defs',
        {},
        gradient('board-glow-red', ['0.25', '#ff5a3ccc'], ['1', '#ff2a1500']),
        gradient('board-glow-green', ['0.25', '#5dff6acc'], ['1', '#2bff3a00']),
    );
}

// A chip whose pins stand out on two sides or, square, on all four.
function chip(x: number, y: number, width: number, height: number, name: string): SVGGElement {
    let pins = '';
    for (let at = 8; at < height - 5; at += 7) {
        pins += `M${x - 6} ${y + at}h${width + 12}`;
    }
    for (let at = 8; width === height && at < width - 5; at += 7) {
        pins += `M${x + at} ${y - 6}v${height + 12}`;
    }
    return shape(
        'g',
        {},
        shape('path', { d: pins, class: 'pins' }),
        shape('rect', { x, y, width, height, rx: 4, class: 'chip' }),
        shape('circle', { cx: x + 10, cy: y + 10, r: 3, class: 'chip-mark' }),
        shape(
            'text',
            {
                x: x + width / 2,
                y: y + height / 2 + width / 10,
                class: 'chip-name',
                'font-size': width / 3.5,
            },
            name,
        ),
    );
}

// What stands out at the upper edge.
function connectors(): SVGElement[] {
    const jack = (x: number, color: string, name: string): SVGGElement =>
        shape(
            'g',
            {},
            shape('rect', { x: x - 15, y: 4, width: 30, height: 30, rx: 3, class: 'metal' }),
            shape('circle', { cx: x, cy: 19, r: 10, fill: color }),
            shape('circle', { cx: x, cy: 19, r: 4.5, class: 'hole' }),
            silk(x, 50, name),
        );
    const plug = (x: number, width: number, color: string, name: string): SVGGElement => {
        let pins = '';
        for (let row = 0; row < 2; row += 1) {
            for (let at = 14 + row * 5; at < width - 10 - row * 4; at += 10) {
                pins += `M${x + at} ${15 + row * 9}h.1`;
            }
        }
        return shape(
            'g',
            {},
            shape('rect', { x, y: 4, width, height: 31, rx: 3, class: 'metal' }),
            shape('path', {
                d: `M${x + 6} 8h${width - 12}l-4 22h${20 - width}z`,
                fill: color,
            }),
            shape('path', { d: pins, class: 'plug-pins' }),
            silk(x + width / 2, 50, name),
        );
    };
    return [
        jack(110, '#d98aa6', 'MIC'),
        jack(172, '#7fc06a', 'SPEAKER'),
        plug(228, 96, '#2d5fb5', 'VGA'),
        plug(348, 80, '#30353b', 'RS-232'),
        jack(466, '#8d7cc3', 'PS/2'),
    ];
}

// Copper that leads from the chips to what they drive.
function traces(): SVGPathElement {
    let d = '';
    for (let i = 0; i < 10; i += 1) {
        d += `M496 ${78 + i * 8}h12l8 8H550M660 ${94 + i * 7}h54`;
    }
    for (let i = 0; i < 5; i += 1) {
        d += `M774 ${100 + i * 10}h52`;
        d += `M${556 + i * 8} 178V${200 + i * 7}l-7 7H496`;
    }
    for (let i = 0; i < GREEN_LAMPS; i += 1) {
        const [lamp, pin, level] = [column(GREEN_LAMPS - 1 - i), 598 + i * 7, 238 - i * 6];
        const side = lamp < pin ? -4 : 4;
        d += `M${pin} 178V${level - 4}l${side} 4H${lamp - side}l${side} 4V258`;
    }
    return shape('path', { d, class: 'traces' });
}

export function makePanel(turn: (number: number) => void): Panel {
    const switches = makeSwitches(turn);
    const [red, green] = [makeLamps(SWITCHES, 'red'), makeLamps(GREEN_LAMPS, 'green')];
    const [highDigits, lowDigits] = [makeDigits(7), makeDigits(3)];
    const lcd = makeLcd();
    const at = (x: number, y: number, group: SVGGElement): SVGGElement =>
        shape('g', { transform: `translate(${x} ${y})` }, group);
    const numbers = Array.from({ length: SWITCHES }, (_, i) => silk(column(i), 353, String(i), 'number'));
    const greenNumbers = Array.from({ length: GREEN_LAMPS }, (_, i) =>
        silk(column(i), 284, String(i), 'number'),
    );
    const holes = [20, WIDTH - 20].flatMap((x) =>
        [40, HEIGHT - 20].map((y) => shape('circle', { cx: x, cy: y, r: 7, class: 'mount' })),
    );
    const scenery = shape(
        'g',
        { 'aria-hidden': 'true' },
        shape('rect', { x: 2, y: 20, width: WIDTH - 4, height: HEIGHT - 22, rx: 12, class: 'circuit-board' }),
        traces(),
        ...connectors(),
        ...holes,
        chip(552, 70, 104, 104, 'K24'),
        chip(720, 78, 48, 88, 'RAM'),
        shape('rect', { x: 826, y: 66, width: 96, height: 104, rx: 4, class: 'metal' }),
        shape('path', { d: 'M838 66v-4h72v4M840 84h68', class: 'slot-lines' }),
        shape('text', { x: 874, y: 128, class: 'engraved' }, 'SD CARD'),
        shape('rect', { x: 62, y: 62, width: 434, height: 122, rx: 6, class: 'lcd-frame' }),
        shape('rect', { x: 80, y: 76, width: 398, height: 94, rx: 4, class: 'lcd-glass' }),
        silk(column(GREEN_LAMPS - 1) - 41, 263, 'LEDG', 'row'),
        silk(34, 329, 'LEDR', 'row'),
        silk(34, 384, 'SW', 'row'),
        ...numbers,
        ...greenNumbers,
    );
    const drawing = shape(
        'svg',
        {
            viewBox: `0 0 ${WIDTH} ${HEIGHT}`,
            class: 'board-drawing',
            role: 'group',
            'aria-label': 'K24 board',
        },
        definitions(),
        scenery,
        at(279 - LCD_WIDTH / 2, 123 - LCD_HEIGHT / 2, lcd.group),
        at(62, 198, highDigits.group),
        at(62 + 4 * DIGIT_PITCH + 12, 198, lowDigits.group),
        at(column(GREEN_LAMPS - 1), 258, green.group),
        at(FIRST_COLUMN, 324, red.group),
        switches.group,
    );
    return { drawing, switches, red, green, highDigits, lowDigits, lcd, focus: switches.focus };
}
