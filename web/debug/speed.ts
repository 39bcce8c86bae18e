// How fast the program runs. At the lowest speeds one wants to see each instruction: then the program goes step
// by step, with a stop after each.

import type { Body } from '../page/adapter';
import { element } from '../page/dom';
import { remember, remembered } from '../page/store';
import { makeSignal, type Session, type Signal, type Stop } from './session';

const SPEEDS: [string, string][] = [
    ['max', 'As fast as possible'],
    ['board', 'Real time'],
    ['666667', '1/10 of real time'],
    ['66667', '1/100 of real time'],
    ['6667', '1/1000 of real time'],
    ['1000', '1000 instructions a second'],
    ['100', '100 instructions a second'],
    ['10', '10 steps a second'],
    ['3', '3 steps a second'],
    ['1', '1 step a second'],
];
const MOST_STEPS = 10; // a second

export interface Speed {
    element: HTMLElement;
    launchArguments: () => Body;
    goOn: () => void; // in the way of the speed
    isWalking: () => boolean; // step by step
    rest: () => void; // walks no more
    onWalk: Signal<void>['on']; // it begins or ends
}

export function makeSpeed(session: Session): Speed {
    let timer = 0;
    let walksNext = false; // from the next stop on
    let seen: Stop | null = null;
    const walks = makeSignal<void>();
    const select = element(
        'select',
        { 'aria-label': 'Speed', title: 'How fast the program runs' },
        ...SPEEDS.map(([value, label]) => element('option', { value }, label)),
    );
    const before = remembered('speed');
    select.value = SPEEDS.some(([value]) => value === before) ? (before ?? '') : 'board';

    const steps = (): number => (Number(select.value) <= MOST_STEPS ? Number(select.value) : 0);
    // A call is stepped over at the speed of the board.
    const speed = (): string | number => {
        const number = Number(select.value);
        return steps() > 0 ? 'board' : number || select.value;
    };
    const setWalking = (on: boolean): void => {
        clearInterval(timer);
        timer = on ? window.setInterval(() => session.go('stepIn'), 1000 / steps()) : 0;
        walks.tell();
    };
    const rest = (): void => {
        if (timer !== 0) {
            setWalking(false);
        }
    };
    const goOn = (): void => {
        if (steps() > 0) {
            session.go('stepIn');
            setWalking(true);
        } else {
            session.go('continue');
        }
    };
    session.onLook(() => {
        const stop = session.stop();
        if (stop === seen) {
            return;
        }
        seen = stop;
        if (walksNext && (stop?.reason === 'entry' || stop?.reason === 'pause')) {
            setWalking(true);
        } else if (stop?.reason !== 'step' || stop.isAtBreakpoint) {
            rest();
        }
        walksNext = false;
    });
    session.onState((state) => {
        if (state !== 'stopped' && state !== 'running') {
            rest();
        }
    });
    select.addEventListener('change', () => {
        remember('speed', select.value);
        if (!['running', 'stopped'].includes(session.state())) {
            return;
        }
        session.ask('tovik/speed', { speed: speed() }).catch(session.complain);
        if (timer !== 0) {
            setWalking(steps() > 0);
            if (steps() === 0) {
                session.go('continue');
            }
        } else if (session.state() === 'running' && steps() > 0) {
            walksNext = true;
            session.pause();
        }
    });
    return {
        element: element('label', { class: 'debug-speed' }, element('span', {}, 'Speed'), select),
        launchArguments() {
            walksNext = steps() > 0;
            return { speed: speed(), ...(walksNext ? { stopOnEntry: true } : {}) };
        },
        goOn,
        isWalking: () => timer !== 0,
        rest,
        onWalk: walks.on,
    };
}
