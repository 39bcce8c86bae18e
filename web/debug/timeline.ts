// The moments of the program, to go to; and how far a long way has come.

import type { Body } from '../page/adapter';
import { element } from '../page/dom';
import type { Session } from './session';
import { button, whenSeen } from './ui';

const NS_PER_INSTRUCTION = 150;

// "1.234 s" of the board's own time.
function boardTime(moment: number): string {
    const ns = moment * NS_PER_INSTRUCTION;
    if (ns < 1e6) {
        return `${(ns / 1e3).toFixed(2)} µs`;
    }
    return ns < 1e9 ? `${(ns / 1e6).toFixed(3)} ms` : `${(ns / 1e9).toFixed(3)} s`;
}

function grouped(number: number): string {
    return String(number).replace(/\B(?=(\d{3})+$)/g, '\u202f');
}

export function makeTimeline(session: Session): HTMLElement {
    const slider = element('input', {
        type: 'range',
        min: 0,
        max: 0,
        step: 1,
        value: 0,
        disabled: true,
        'aria-label': 'Moment of the program',
        title: 'Drag to go to another moment; the arrow keys go by one instruction',
    });
    const text = element('span', { class: 'debug-moment' });
    const title = element('span');
    const bar = element('progress', { max: 100, 'aria-label': 'How far it has come' });
    const way = element(
        'div',
        { class: 'debug-way', hidden: true, role: 'status' },
        title,
        bar,
        button('Cancel', session.cancelWay),
    );
    let wish: number | null = null;
    let isGoing = false;

    const say = (moment: number): void => {
        const unit = moment === 1 ? 'instruction' : 'instructions';
        const words = `${grouped(moment)} ${unit}, ${boardTime(moment)}`;
        text.textContent = words;
        slider.setAttribute('aria-valuetext', words);
        const newest = Number(slider.max);
        text.title = moment < newest ? `The newest moment is ${grouped(newest)}.` : '';
    };
    // Some times a second: a slider that looks the same is not touched, since the page would be laid out anew.
    const sayRunning = (moment: number): void => {
        const newest = Number(slider.max);
        const isAtEnd = newest > 0 && Number(slider.value) === newest && moment >= newest;
        if (!isAtEnd) {
            slider.max = String(Math.max(moment, newest));
            slider.value = String(moment);
        }
        say(moment);
    };
    const goToWish = async (): Promise<void> => {
        if (isGoing) {
            session.cancelWay(); // which is shown only if it is a long one
            return;
        }
        isGoing = true;
        while (wish !== null && session.state() === 'stopped') {
            const moment = wish;
            wish = null;
            await session.goTo(moment).catch(session.complain);
        }
        isGoing = false;
    };
    slider.addEventListener('input', () => {
        wish = Number(slider.value);
        say(wish);
        void goToWish();
    });
    const element_ = element('div', { class: 'debug-timeline' }, slider, text, way);
    whenSeen(session, element_, async () => {
        const history = await session.look<{ first: number; now: number; newest: number }>('tovik/history');
        if (history) {
            slider.min = String(history.first);
            slider.max = String(history.newest);
            if (wish === null) {
                slider.value = String(history.now);
                say(history.now);
            }
        }
    });
    session.onState((state) => {
        slider.disabled = state !== 'stopped';
        if (state === 'idle') {
            text.textContent = '';
            slider.removeAttribute('aria-valuetext');
            slider.value = slider.min = slider.max = '0';
        }
    });
    session.onEvent('tovik/board', (body: Body) => {
        if (session.state() === 'running') {
            sayRunning(Number(body['moment']));
        }
    });
    session.onWay((next) => {
        way.hidden = next === null;
        text.hidden = next !== null; // so that nothing below moves
        title.textContent = next ? `${next.title}: ${next.share} %` : '';
        bar.value = next?.share ?? 0;
    });
    return element_;
}
