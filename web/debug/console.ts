// Expressions to evaluate, and what the adapter says.

import { element } from '../page/dom';
import { withPlaces } from './message';
import { sentenceOf, type Session } from './session';

const MOST_LINES = 2000;
const MOST_SHOWN = 8; // completions at once

interface Target {
    label: string;
    start: number; // of the word in the text, from 1
}

export function makeConsole(session: Session, reveal: (path: string, line: number) => void): HTMLElement {
    const output = element('div', {
        class: 'debug-output',
        role: 'log',
        'aria-label': 'Console',
        tabindex: 0,
    });
    const list = element('div', { class: 'debug-completions', role: 'listbox', id: 'debug-completions' });
    const input = element('input', {
        'aria-label': 'Expression',
        role: 'combobox',
        'aria-autocomplete': 'list',
        'aria-controls': 'debug-completions',
        'aria-expanded': 'false',
        placeholder: 'Expression, such as list[i + 1], sum = 0 or last write sum',
        spellcheck: 'false',
        autocomplete: 'off',
    });
    const form = element('form', { class: 'debug-line debug-prompt' }, list, input);
    const history: string[] = [];
    let at = 0; // in the history
    let targets: Target[] = [];
    let chosen = -1;
    let asked = 0;

    const write = (kind: string, text: string): void => {
        const isAtEnd = output.scrollHeight - output.scrollTop - output.clientHeight < 30;
        const lines = text.replace(/\n$/, '').split('\n').slice(-MOST_LINES);
        output.append(
            ...lines.map((line) => element('div', { class: `debug-${kind}` }, ...withPlaces(line, reveal))),
        );
        while (output.childElementCount > MOST_LINES) {
            output.firstElementChild?.remove();
        }
        if (isAtEnd) {
            output.scrollTop = output.scrollHeight;
        }
    };
    const drawList = (): void => {
        list.replaceChildren(
            ...targets.map((target, i) => {
                const isChosen = i === chosen;
                const option = element(
                    'div',
                    { role: 'option', id: `debug-completion-${i}`, 'aria-selected': String(isChosen) },
                    target.label,
                );
                option.addEventListener('pointerdown', (event) => {
                    event.preventDefault();
                    complete(target);
                });
                return option;
            }),
        );
        list.hidden = targets.length === 0;
        input.setAttribute('aria-expanded', String(targets.length > 0));
        input.setAttribute('aria-activedescendant', chosen >= 0 ? `debug-completion-${chosen}` : '');
    };
    const closeList = (): void => {
        asked += 1;
        targets = [];
        chosen = -1;
        drawList();
    };
    const complete = ({ label, start }: Target): void => {
        const text = input.value;
        // More may have been typed since the list was asked for.
        input.value = text.slice(0, start - 1) + label + text.slice(input.selectionStart ?? text.length);
        input.setSelectionRange(start - 1 + label.length, start - 1 + label.length);
        closeList();
    };
    const askForTargets = async (): Promise<void> => {
        asked += 1;
        const number = asked;
        const text = input.value;
        const column = (input.selectionStart ?? text.length) + 1;
        const isWord = /[\w.]$/.test(text.slice(0, column - 1));
        const hasProgram = ['running', 'stopped'].includes(session.state());
        const body =
            isWord && hasProgram
                ? await session.ask<{ targets: Target[] }>('completions', { text, column }).catch(() => null)
                : null;
        if (number === asked) {
            targets = (body?.targets ?? []).slice(0, MOST_SHOWN);
            chosen = -1;
            drawList();
        }
    };
    const evaluate = async (expression: string): Promise<void> => {
        write('asked', expression);
        try {
            const body = await session.change<{ result: string }>('evaluate', {
                expression,
                context: 'repl',
            });
            write('result', body.result);
        } catch (error) {
            write('stderr', sentenceOf(error));
        }
    };
    input.addEventListener('input', () => void askForTargets());
    input.addEventListener('blur', closeList);
    input.addEventListener('keydown', (event) => {
        const step = { ArrowDown: 1, ArrowUp: -1 }[event.key];
        if (step && targets.length > 0) {
            chosen = (chosen + step + targets.length + 1) % (targets.length + 1);
            chosen = chosen === targets.length ? -1 : chosen;
            drawList();
        } else if (step) {
            at = Math.min(Math.max(at + step, 0), history.length);
            input.value = history[at] ?? '';
        } else if (event.key === 'Tab' && targets.length > 0 && !event.shiftKey) {
            const target = targets[Math.max(chosen, 0)];
            if (target) {
                complete(target);
            }
        } else if (event.key === 'Escape' && targets.length > 0) {
            closeList();
        } else {
            return;
        }
        event.preventDefault();
    });
    form.addEventListener('submit', (event) => {
        event.preventDefault();
        const target = targets[chosen];
        const expression = input.value.trim();
        if (target) {
            complete(target);
        } else if (expression !== '') {
            closeList();
            history.push(expression);
            at = history.length;
            input.value = '';
            void evaluate(expression);
        }
    });
    session.onEvent('output', (body) => {
        const category = String(body['category'] ?? 'console');
        if (['console', 'stderr', 'important'].includes(category)) {
            write(category, String(body['output']));
        }
    });
    session.onState((state) => {
        if (state === 'starting') {
            output.replaceChildren();
        }
    });
    closeList();
    return element('div', { class: 'debug-panel debug-console' }, output, form);
}
