// Why the program has stopped, and what has to be said or asked otherwise.

import { element } from '../page/dom';
import { WANTED, type Question } from '../page/wanted';
import type { State } from './debugger';
import type { Marks } from './marks';
import type { Notice, Session } from './session';
import { button } from './ui';

const PLACE = /(\S+\.k)(?::| at line number )(\d+)/;

// A text in which places such as average.k:7 are links.
export function withPlaces(text: string, reveal: (path: string, line: number) => void): Node[] {
    const nodes: Node[] = [];
    let rest = text;
    for (let found = PLACE.exec(rest); found; found = PLACE.exec(rest)) {
        const [whole, path = '', line = ''] = found;
        const name = `${path.slice(path.lastIndexOf('/') + 1)}:${line}`;
        nodes.push(
            document.createTextNode(rest.slice(0, found.index)),
            button(name, () => reveal(path, Number(line)), 'debug-link'),
        );
        rest = rest.slice(found.index + whole.length);
    }
    return [...nodes, document.createTextNode(rest)];
}

// A line that is always there lets nothing jump up and down.
const STATES: { [state: string]: string } = {
    starting: 'The program starts.',
    running: 'The program runs.',
    ended: 'The program is over.',
};

export function makeMessage(
    session: Session,
    reveal: (path: string, line: number) => void,
    marks: Marks,
    start: () => void,
): HTMLElement {
    const why = element('div', { class: 'debug-why', role: 'status', hidden: true });
    const notice = element('div', { class: 'debug-notice', role: 'alert', hidden: true });
    const changed = element(
        'div',
        { class: 'debug-notice', role: 'status', hidden: true },
        element('p', {}, 'The program was changed since it was started. What runs is the old one.'),
        button('Start again', start),
    );
    const paragraphs = (text: string): HTMLElement[] => {
        const [first = '', ...rest] = text.trim().split('\n');
        const details = rest.join('\n');
        return [
            element('p', { class: 'debug-first' }, ...withPlaces(first, reveal)),
            ...(details ? [element('p', { class: 'debug-details' }, ...withPlaces(details, reveal))] : []),
        ];
    };
    let wanted: Question | null = null; // a device for which the program waits
    const sayState = (state: State): string =>
        (state === 'running' && wanted ? WANTED[wanted] : STATES[state]) ?? '';
    const sayWhy = (): void => {
        const stop = session.stop();
        const frame = session.frame();
        why.hidden = session.state() === 'idle';
        why.dataset['reason'] = stop?.reason ?? '';
        if (!stop) {
            why.replaceChildren(...paragraphs(sayState(session.state())));
            return;
        }
        const isAtEnd = stop.reason === 'halt' || stop.reason === 'exception';
        const sentence = stop.text && !/[.:!?]$/.test(stop.text) ? `${stop.text}.` : stop.text;
        why.replaceChildren(...(sentence ? paragraphs(sentence) : []));
        // Of a step it is enough to say where it led.
        if (frame?.source && !isAtEnd) {
            const { path, name } = frame.source;
            const { line } = frame;
            const link = button(
                `${name}:${marks.lineNow(path, line)}`,
                () => reveal(path, line),
                'debug-link',
            );
            const first = why.firstElementChild ?? why.appendChild(element('p', { class: 'debug-first' }));
            first.append(sentence ? ' Next is ' : 'Next is ', link, '.');
        }
    };
    let shown: Notice | null = null;
    const show = (next: Notice | null): void => {
        shown = next;
        notice.hidden = next === null;
        notice.classList.toggle('debug-fault', next?.isFault ?? false);
        notice.replaceChildren(
            ...(next ? paragraphs(next.text) : []),
            ...(next?.actions ?? []).map((action) => button(action.label, action.act)),
        );
        if (next && next.actions.length === 0) {
            notice.append(button('Close', () => show(null), 'debug-close'));
        }
    };
    const sayChanged = (): void => {
        changed.hidden = !(['running', 'stopped'].includes(session.state()) && marks.isChanged());
    };
    session.onFrame(sayWhy);
    session.onState((state) => {
        sayChanged();
        if (state !== 'stopped') {
            sayWhy();
        }
    });
    session.onLaunched(() => {
        wanted = null;
        sayChanged();
    });
    session.onEvent('tovik/wanted', ({ question }) => {
        wanted = question as Question | null;
        sayWhy();
    });
    marks.onEdit(sayChanged);
    marks.onEdit(sayWhy);
    marks.onEdit(() => {
        // Why it did not start may be mended.
        if (shown?.isFault && ['idle', 'ended'].includes(session.state())) {
            show(null);
        }
    });
    session.onNotice(show);
    return element('div', { class: 'debug-message' }, notice, changed, why);
}
