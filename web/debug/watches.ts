// Expressions whose values are shown at each stop.

import { element } from '../page/dom';
import { keep, kept } from './kept';
import { sentenceOf, type Session } from './session';
import { button, whenSeen } from './ui';

const MOST = 100;

export interface Watches {
    element: HTMLElement;
    add: (expression: string) => void;
    open: (program: string) => void; // those of this one, by its id
}

export function makeWatches(session: Session): Watches {
    let program = '';
    let expressions: string[] = [];
    const values = new Map<string, string>();
    const list = element('ul', { class: 'debug-list', 'aria-label': 'Watches' });
    const input = element('input', {
        'aria-label': 'Expression to watch',
        placeholder: 'Watch, such as list[i] or last write sum',
        spellcheck: 'false',
    });
    const form = element(
        'form',
        { class: 'debug-line' },
        input,
        element('button', { type: 'submit' }, 'Watch'),
    );
    const cells = new Map<string, HTMLElement>();
    const watch = (next: string[]): void => {
        expressions = next;
        keep('watches', program, expressions);
        cells.clear();
        const rows = expressions.map((expression) => {
            const value = element('span', { class: 'debug-value' }, values.get(expression) ?? '');
            cells.set(expression, value);
            const remove = button(
                '×',
                () => watch(expressions.filter((one) => one !== expression)),
                'debug-more',
            );
            remove.setAttribute('aria-label', `Watch ${expression} no more`);
            const name = element('span', { class: 'debug-name' }, expression);
            return element('li', { class: 'debug-row' }, name, value, remove);
        });
        list.replaceChildren(...rows);
    };
    const refresh = async (): Promise<void> => {
        const valueOf = (expression: string) =>
            session.look<{ result: string }>('evaluate', { expression, context: 'watch' }).then(
                (body) => body && { text: body.result, isFault: false },
                (error: unknown) => ({ text: sentenceOf(error), isFault: true }),
            );
        await Promise.all(
            expressions.map(async (expression) => {
                const value = await valueOf(expression);
                const cell = cells.get(expression);
                if (value && cell) {
                    const before = values.get(expression);
                    cell.textContent = value.text;
                    cell.classList.toggle('debug-fault-text', value.isFault);
                    cell.parentElement?.classList.toggle(
                        'debug-changed',
                        before !== undefined && before !== value.text,
                    );
                    values.set(expression, value.text);
                }
            }),
        );
    };
    const add = (expression: string): void => {
        if (expression !== '' && !expressions.includes(expression) && expressions.length < MOST) {
            watch([...expressions, expression]);
            if (session.state() === 'stopped') {
                refresh().catch(session.complain);
            }
        }
    };
    form.addEventListener('submit', (event) => {
        event.preventDefault();
        add(input.value.trim());
        input.value = '';
    });
    const panel = element('div', { class: 'debug-panel' }, list, form);
    whenSeen(session, panel, refresh);
    session.onState((state) => {
        panel.classList.toggle('debug-old', state === 'running');
        if (state === 'starting' || state === 'idle') {
            values.clear();
            cells.forEach((cell) => cell.replaceChildren());
        }
    });
    const open = (id: string): void => {
        program = id;
        watch(kept('watches', id, (one) => typeof one === 'string'));
    };
    return { element: panel, add, open };
}
