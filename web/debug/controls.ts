// The buttons and keys that steer the program.

import { element } from '../page/dom';
import type { Session } from './session';
import type { Speed } from './speed';
import { icon } from './ui';

const TRIANGLE = 'M4 2.5v11l9.5-5.5z';
const DOT = 'M8 11.2a1.9 1.9 0 1 0 .01 0z';
const ICONS = {
    start: [TRIANGLE],
    restart: [' M12.9 6.1A5.4 5.4 0 1 0 13.4 9', 'M14.4 2v5.2H9.2z'],
    continue: ['M2.5 2.5h2v11h-2z', 'M6.5 2.5v11l8-5.5z'],
    pause: ['M3.5 2.5h3v11h-3z', 'M9.5 2.5h3v11h-3z'],
    stepIn: [' M8 1v7', 'M4.5 5.5h7L8 10z', DOT],
    stepOver: [' M2 9C2.5 2.5 10.5 1.5 13 7', 'M14.9 3.6v5.2l-5-.9z', DOT],
    stepOut: [' M8 10V4', 'M4.5 5.5h7L8 1z', DOT],
    stepBack: [' M14 6H7', 'M8.5 2.5v7L3 6z', DOT],
    backOver: [' M14 9C13.5 2.5 5.5 1.5 3 7', 'M1.1 3.6v5.2l5-.9z', DOT],
    back: ['M13.5 2.5h-2v11h2z', 'M9.5 2.5v11l-8-5.5z'],
    stop: ['M3 3h10v10H3z'],
};

interface Command {
    id: keyof typeof ICONS;
    label: string;
    help: string;
    keys: string; // as they are shown
    isFor: () => boolean;
    act: () => void;
}

export function makeControls(session: Session, speed: Speed, start: () => void): HTMLElement {
    const isStopped = (): boolean => session.state() === 'stopped';
    const isRunning = (): boolean => session.state() === 'running' || speed.isWalking();
    const hasProgram = (): boolean => isStopped() || isRunning();
    const canStart = (): boolean => !hasProgram() && session.state() !== 'starting';
    const canEnd = (): boolean => session.state() !== 'idle' && session.state() !== 'starting';
    // Behind a halt there is nothing; the way back is open.
    const goesOn = (): boolean => isStopped() && session.stop()?.reason !== 'halt';
    const make = (
        id: keyof typeof ICONS,
        label: string,
        help: string,
        keys: string,
        isFor: () => boolean,
        act: () => void,
    ): Command => ({
        id,
        label,
        help,
        keys,
        isFor,
        act() {
            speed.rest();
            act();
        },
    });
    const again = 'Start the program again from the beginning, as it is in the editor';
    const goBack = 'Go backwards to the last breakpoint before, or to the beginning';
    const backOver = 'Go back one instruction; over a call that lies behind, go back as a whole';
    const stepBack = (): void => session.go('stepBack', { granularity: 'instruction' });
    const pause = (): void => {
        if (session.state() === 'running') {
            session.pause();
        }
    };
    const commands: Command[] = [
        make('start', 'Start', 'Start the program', 'F5', canStart, start),
        make('restart', 'Restart', again, 'Ctrl+Shift+F5', hasProgram, start),
        make('stop', 'Stop', 'End the program', 'Shift+F5', canEnd, () => void session.end()),
        make('back', 'Back', goBack, 'Alt+F5', isStopped, () => session.go('reverseContinue')),
        make('backOver', 'Back over', backOver, 'Alt+F10', isStopped, () => session.go('stepBack')),
        make('stepBack', 'Step back', 'Undo one instruction', 'Alt+F11', isStopped, stepBack),
        make('stepIn', 'Step', 'Execute one instruction', 'F11', goesOn, () => session.go('stepIn')),
        make('stepOver', 'Step over', 'Execute one instruction; a call as a whole', 'F10', goesOn, () =>
            session.go('next'),
        ),
        make('stepOut', 'Step out', 'Go on until the subroutine returns', 'Shift+F11', goesOn, () =>
            session.go('stepOut'),
        ),
        make('continue', 'Continue', 'Go on until a breakpoint', 'F5', goesOn, speed.goOn),
        make('pause', 'Pause', 'Stop where the program is now', 'F6', isRunning, pause),
    ];
    const buttons = commands.map((command) => {
        const title = `${command.help} (${command.keys})`;
        const made = element(
            'button',
            { type: 'button', class: 'debug-control', 'data-command': command.id, title },
            icon(ICONS[command.id]),
            element('span', {}, command.label),
        );
        made.addEventListener('click', () => {
            // What is greyed out says so, but keeps the focus.
            if (command.isFor()) {
                command.act();
            }
        });
        return made;
    });
    const named = (...ids: string[]): HTMLElement[] =>
        buttons.filter((made) => ids.includes(made.dataset['command'] ?? ''));
    const group = (label: string, ...members: HTMLElement[]) =>
        element('div', { class: 'debug-group', role: 'group', 'aria-label': label }, ...members);
    const row = element(
        'div',
        { class: 'debug-controls', role: 'toolbar', 'aria-label': 'Program' },
        group('Program', ...named('start', 'restart', 'stop')),
        group('Backwards', ...named('back', 'backOver', 'stepBack')),
        group('Forwards', ...named('stepIn', 'stepOver', 'stepOut', 'continue', 'pause')),
        speed.element,
    );
    const update = (): void => {
        const shown: Record<string, boolean> = {
            start: !hasProgram(),
            restart: hasProgram(),
            continue: !isRunning(),
            pause: isRunning(),
        };
        const focused = document.activeElement;
        commands.forEach((command, i) => {
            const made = buttons[i];
            if (made) {
                made.setAttribute('aria-disabled', String(!command.isFor()));
                made.hidden = shown[command.id] === false;
            }
        });
        // A button that has taken the place of another one takes its focus, too.
        if (focused instanceof HTMLButtonElement && focused.hidden && row.contains(focused)) {
            const partner = { start: 'restart', restart: 'start', continue: 'pause', pause: 'continue' }[
                focused.dataset['command'] ?? ''
            ];
            named(partner ?? '')[0]?.focus();
        }
    };
    session.onState(update);
    session.onLook(update);
    speed.onWalk(update);
    update();

    // The board's screen takes its keys before they come here.
    document.addEventListener('keydown', (event) => {
        if (event.defaultPrevented || event.isComposing) {
            return;
        }
        const ctrl = event.ctrlKey || event.metaKey ? 'Ctrl+' : '';
        const keys = `${ctrl}${event.altKey ? 'Alt+' : ''}${event.shiftKey ? 'Shift+' : ''}${event.key}`;
        const meant = commands.filter((command) => command.keys === keys);
        if (meant.length > 0) {
            // Also when it is not for now: the browser would load the page again, or fill the screen with it.
            event.preventDefault();
            meant.find((command) => command.isFor())?.act();
        }
    });
    return row;
}
