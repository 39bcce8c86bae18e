// The whole memory, word by word; only the lines that are seen exist.

import { element } from '../page/dom';
import type { Session, Variable } from './session';
import { button, editInPlace, openMenu, onContext, whenSeen, type Choice } from './ui';

const WORDS = 16384;
const BYTES = 4; // in a word
const LINE = 24; // the height of a line in pixels
const BEYOND = 8; // lines that are drawn above and below
const STRETCH_BITS = 8; // the adapter gives memory in parts of 256 words
const MEMORY = { variablesReference: 2 };

interface Instruction {
    address: string;
    instruction: string;
    symbol?: string;
    line?: number; // of the source; what is none of it looks like an instruction by chance
}

export interface Memory {
    element: HTMLElement;
    show: (address: number) => void;
}

export function makeMemory(
    session: Session,
    choices: (variable: Variable, parent: number) => Choice[],
): Memory {
    let stretches: number[] = []; // the references of the parts of memory
    let pc = -1;
    let isPrepared = false; // for this program
    let current = 0; // the word with the focus
    const words = new Map<number, Variable>(); // those that are seen
    const texts = new Map<number, Instruction>();
    const rows = new Map<number, HTMLElement>();
    const space = element('div', { class: 'debug-memory-space' });
    space.style.height = `${WORDS * LINE}px`;
    const scroller = element(
        'div',
        { class: 'debug-memory', role: 'table', 'aria-label': 'Memory', 'aria-rowcount': WORDS, tabindex: 0 },
        space,
    );
    const follow = element('input', { type: 'checkbox' });
    follow.checked = true;
    const place = element('input', {
        'aria-label': 'Go to an address or a label',
        placeholder: 'Address or label',
        spellcheck: 'false',
    });
    const go = element(
        'form',
        { class: 'debug-line' },
        place,
        element('button', { type: 'submit' }, 'Go'),
        element('label', { class: 'debug-check' }, follow, 'Follow'),
    );
    const head = element(
        'div',
        { class: 'debug-memory-row debug-memory-head', 'aria-hidden': 'true' },
        ...['Address', 'Label', 'Decimal', 'Hex', 'Char', 'Instruction'].map((name) =>
            element('span', {}, name),
        ),
    );
    const panel = element('div', { class: 'debug-panel debug-memory-panel' }, go, head, scroller);

    const seen = (): [number, number] => {
        const first = Math.floor(scroller.scrollTop / LINE);
        const count = Math.ceil(scroller.clientHeight / LINE);
        return [Math.max(first - BEYOND, 0), Math.min(first + count + BEYOND, WORDS)];
    };
    const cells = (address: number): string[] => {
        const [, decimal = '', hex = '', char = ''] =
            /^(-?\d+) \((0x[0-9a-f]+)(?:, '(.)')?\)$/s.exec(words.get(address)?.value ?? '') ?? [];
        const text = texts.get(address);
        const instruction = text?.instruction.replace(/^\d+: /, '') ?? '';
        const code = text?.line === undefined || instruction.startsWith('.data') ? '' : instruction;
        return [String(address), text?.symbol ?? '', decimal, hex, char, code];
    };
    const rowOf = (address: number): HTMLElement => {
        const known = rows.get(address);
        if (known) {
            return known;
        }
        const row = element(
            'div',
            { class: 'debug-memory-row', role: 'row', 'aria-rowindex': address + 1, tabindex: -1 },
            ...cells(address).map(() => element('span', { role: 'cell' })),
        );
        row.style.top = `${address * LINE}px`;
        row.addEventListener('click', () => focusWord(address));
        row.addEventListener('dblclick', () => edit(address));
        onContext(row, (event) => {
            event.preventDefault();
            menu(address, event.clientX, event.clientY);
        });
        rows.set(address, row);
        space.append(row);
        return row;
    };
    const draw = (): void => {
        const [first, end] = seen();
        rows.forEach((row, address) => {
            if (address < first || address >= end) {
                row.remove();
                rows.delete(address);
            }
        });
        for (let address = first; address < end; address += 1) {
            const row = rowOf(address);
            const attributes = words.get(address)?.presentationHint?.attributes ?? [];
            row.classList.toggle('debug-changed', attributes.includes('changed'));
            row.classList.toggle('debug-memory-next', address === pc);
            cells(address).forEach((text, i) => {
                const cell = row.children[i];
                if (cell && cell.textContent !== text && !cell.querySelector('input')) {
                    cell.textContent = text;
                }
            });
        }
    };
    // What is seen, from the parts in which it is.
    const load = async (): Promise<void> => {
        const [first, end] = seen();
        const parts: [number, number][] = [];
        for (let at = first; at < end;) {
            const partEnd = Math.min(((at >> STRETCH_BITS) + 1) << STRETCH_BITS, end);
            parts.push([at, partEnd]);
            at = partEnd;
        }
        const [code] = await Promise.all([
            session.look<{ instructions: Instruction[] }>('disassemble', {
                memoryReference: `0x${(first * BYTES).toString(16)}`,
                instructionCount: end - first,
            }),
            ...parts.map(async ([from, to]) => {
                const body = await session.look<{ variables: Variable[] }>('variables', {
                    variablesReference: stretches[from >> STRETCH_BITS] ?? 0,
                    filter: 'indexed',
                    start: from % (1 << STRETCH_BITS),
                    count: to - from,
                });
                body?.variables.forEach((word, i) => words.set(from + i, word));
            }),
        ]);
        code?.instructions.forEach((one) => texts.set(Number(one.address) / BYTES, one));
        draw();
    };
    const refresh = async (): Promise<void> => {
        if (!isPrepared) {
            const body = await session.look<{ variables: Variable[] }>('variables', MEMORY);
            stretches = body?.variables.map((one) => one.variablesReference) ?? [];
            isPrepared = stretches.length > 0;
        }
        words.clear();
        texts.clear();
        const frame = session.frame();
        pc = frame ? Number(frame.instructionPointerReference) / BYTES : -1;
        if (follow.checked && pc >= 0) {
            scrollTo(pc);
        }
        await load();
    };
    const loadAgain = (): void => {
        draw();
        if (session.state() === 'stopped' && isPrepared) {
            load().catch(session.complain);
        }
    };
    const scrollTo = (address: number): void => {
        const top = address * LINE;
        const { scrollTop, clientHeight } = scroller;
        if (top < scrollTop || top + 5 * LINE > scrollTop + clientHeight) {
            scroller.scrollTop = top - 2 * LINE;
        }
    };
    const focusWord = (address: number): void => {
        current = Math.min(Math.max(address, 0), WORDS - 1);
        scrollTo(current);
        draw();
        rows.get(current)?.focus({ preventScroll: true });
    };
    const show = (address: number): void => {
        follow.checked = false;
        scroller.scrollTop = (address - 2) * LINE;
        focusWord(address);
        loadAgain();
    };
    const edit = (address: number): void => {
        const cell = rows.get(address)?.children[2];
        if (cell instanceof HTMLElement && session.state() === 'stopped') {
            editInPlace(cell, `Word at address ${address}`, async (value) => {
                await session.change('setExpression', { expression: `[${address}]`, value });
            });
        }
    };
    const menu = (address: number, x: number, y: number): void => {
        const word = words.get(address);
        if (word) {
            const parent = stretches[address >> STRETCH_BITS] ?? 0;
            const change = { label: 'Change the word', act: () => edit(address) };
            openMenu(x, y, [change, ...choices({ ...word, name: `word ${address}` }, parent)]);
        }
    };
    scroller.addEventListener('keydown', (event) => {
        const page = Math.max(Math.floor(scroller.clientHeight / LINE) - 1, 1);
        const target = {
            ArrowDown: current + 1,
            ArrowUp: current - 1,
            PageDown: current + page,
            PageUp: current - page,
            Home: 0,
            End: WORDS - 1,
        }[event.key];
        if (target !== undefined) {
            event.preventDefault();
            focusWord(target);
        } else if (event.key === 'Enter' || event.key === 'F2') {
            event.preventDefault();
            edit(current);
        }
    });
    let isPlanned = false;
    scroller.addEventListener('scroll', () => {
        if (!isPlanned) {
            isPlanned = true;
            requestAnimationFrame(() => {
                isPlanned = false;
                loadAgain();
            });
        }
    });
    go.addEventListener('submit', (event) => {
        event.preventDefault();
        const text = place.value.trim();
        const expression = /^(\d|0x)/.test(text) ? text : `&${text.replace(/^&/, '')}`;
        session.ask<{ result: string }>('evaluate', { expression }).then(({ result }) => {
            const address = parseInt(result, 10);
            if (address >= 0 && address < WORDS) {
                show(address);
            }
        }, session.complain);
    });
    const toPc = button('Next', () => show(Math.max(pc, 0)), 'debug-quiet');
    go.append(toPc);
    whenSeen(session, panel, refresh);
    session.onFrame(() => {
        const frame = session.frame();
        const next = frame ? Number(frame.instructionPointerReference) / BYTES : -1;
        if (next !== pc && isPrepared) {
            pc = next;
            if (follow.checked && pc >= 0) {
                scrollTo(pc);
            }
            loadAgain();
        }
    });
    session.onLaunched(() => {
        isPrepared = false;
    });
    session.onState((state) => {
        panel.classList.toggle('debug-old', state === 'running');
        if (state === 'idle' || state === 'starting') {
            words.clear();
            texts.clear();
            draw();
        }
    });
    return { element: panel, show };
}
