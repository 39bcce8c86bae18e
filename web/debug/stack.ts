// The calls that have not returned.

import { element } from '../page/dom';
import { withPlainPath, type Frame, type Session } from './session';
import { whenSeen } from './ui';

const ASKED_AFTER_MS = 80;

export function makeStack(session: Session): HTMLElement {
    let frames: Frame[] = [];
    const list = element('div', { class: 'debug-list', role: 'listbox', 'aria-label': 'Call stack' });
    const empty = element('p', { class: 'debug-empty' }, 'The calls are shown when a program has stopped.');
    const panel = element('div', { class: 'debug-panel' }, empty, list);
    const draw = (): void => {
        empty.hidden = frames.length > 0;
        const selected = session.frame()?.id ?? 0;
        const hadFocus = list.contains(document.activeElement);
        list.replaceChildren(
            ...frames.map((frame) => {
                const isSelected = frame.id === selected;
                const place = frame.source ? `${frame.source.name}:${frame.line}` : '';
                const row = element(
                    'div',
                    {
                        class: 'debug-row',
                        role: 'option',
                        'aria-selected': String(isSelected),
                        tabindex: isSelected ? 0 : -1,
                    },
                    element('span', { class: 'debug-name' }, frame.name),
                    element('span', { class: 'debug-note' }, place),
                );
                row.addEventListener('click', () => session.selectFrame(frame));
                return row;
            }),
        );
        if (hadFocus) {
            list.querySelector<HTMLElement>('[tabindex="0"]')?.focus();
        }
    };
    list.addEventListener('keydown', (event) => {
        const step = { ArrowDown: 1, ArrowUp: -1 }[event.key];
        const at = frames.findIndex((frame) => frame.id === session.frame()?.id);
        const next = frames[at + (step ?? 0)];
        if (step && next) {
            event.preventDefault();
            session.selectFrame(next);
        }
    });
    whenSeen(session, panel, async () => {
        // It may take long, so the others are asked before; and who steps fast does not wait for it.
        await new Promise((resolve) => setTimeout(resolve, ASKED_AFTER_MS));
        const body = await session.look<{ stackFrames: Frame[] }>('stackTrace', { threadId: 1 });
        if (body) {
            frames = body.stackFrames.map(withPlainPath);
            draw();
        }
    });
    session.onFrame(draw);
    session.onState((state) => {
        panel.classList.toggle('debug-old', state === 'running');
        if (state !== 'stopped' && state !== 'running') {
            frames = [];
            draw();
        }
    });
    return panel;
}
