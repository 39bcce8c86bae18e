// All of the page that shows and steers a running program, as a client of the debug adapter.

import type { Extension } from '@codemirror/state';
import type { Adapter, Body } from '../page/adapter';
import { makeConsole } from './console';
import { makeControls } from './controls';
import { makeData } from './data';
import { makeEditors } from './editor';
import { makeMarks } from './marks';
import { makeMemory } from './memory';
import { makeMessage } from './message';
import { makeSession, plainPath, type Session, type Variable } from './session';
import { makeSpeed } from './speed';
import { makeStack } from './stack';
import { makeTimeline } from './timeline';
import { makeTree, type TreeOptions } from './tree';
import type { Choice } from './ui';
import { makeWatches } from './watches';

// starting: from the call of launch until the program runs. ended: the program is over, and there is nothing
// left to look at.
export type State = 'idle' | 'starting' | 'running' | 'stopped' | 'ended';

export interface DebuggerOptions {
    // To the worker; after `disconnect` a new adapter has to begin there.
    adapter: Adapter;
    // Start and Restart were pressed: the page writes the sources to the worker and calls launch().
    start: () => void;
    // The file has to be seen: the page shows its editor, if another one is there. The debugger scrolls.
    show: (path: string) => void;
    // The user has asked for a place in the source, which may be behind another part of the page.
    seeSource: () => void;
}

export interface Panel {
    id: 'variables' | 'watches' | 'stack' | 'memory' | 'ports' | 'console';
    title: string;
    element: HTMLElement; // fills the height that it is given; what is not seen asks the adapter for nothing
}

export interface Debugger {
    controls: HTMLElement; // the buttons and the speed: one row
    timeline: HTMLElement; // the moments of the program, and how far a long way has come
    message: HTMLElement; // why the program has stopped, and what it has to be asked; empty when there is nothing
    panels: Panel[];
    // For the editor of a file; at most one editor of a file at a time.
    extension: (path: string) => Extension;
    // Starts a program, in place of another one. The arguments are those of `launch`, without the program and
    // the speed. Resolves to whether it has begun; if not, its sentence stands in `message`.
    launch: (mainPath: string, launchArguments: Body) => Promise<boolean>;
    // Ends the program, if there is one.
    stop: () => Promise<void>;
    // A request that may change what the program did in the past, such as tovik/switch. If it has to be asked
    // first whether the SD card goes back, it is, and the request is made again.
    change: (command: string, arguments_: Body) => Promise<Body>;
    state: () => State;
    onState: (heard: (state: State) => void) => void;
    // The worker is at its end; `use` comes with the next one.
    failed: (reason: string) => void;
    use: (adapter: Adapter) => void;
    // A file is no longer part of the program, or has another name: its breakpoints go, or go with it.
    forget: (path: string) => void;
    renamed: (path: string, newPath: string) => void;
    // Another program is open, with this id: its labels are others, even where they have the same names, and what was
    // said is not about it.
    opened: (id: string) => void;
}

// The registers of devices; their addresses never change.
function registerNotes(session: Session): TreeOptions['note'] {
    const known = new Map<string, string>();
    return async ({ name, evaluateName }, variablesReference) => {
        const key = evaluateName ?? '';
        const note = known.get(key);
        if (note !== undefined) {
            return note;
        }
        const { dataId } = await session.ask<{ dataId: string | null }>('dataBreakpointInfo', {
            variablesReference,
            name,
        });
        // It is the address, as a number with a sign.
        const address = dataId === null ? '' : `0x${(Number(dataId) >>> 0).toString(16)}`;
        known.set(key, address);
        return address;
    };
}

export function makeDebugger({ adapter, start, show, seeSource }: DebuggerOptions): Debugger {
    const session = makeSession(adapter);
    const marks = makeMarks(session);
    const editors = makeEditors(session, marks, show);
    const data = makeData(session);
    const watches = makeWatches(session);
    const speed = makeSpeed(session);
    const reveal = (path: string, line: number): void => {
        seeSource();
        editors.reveal(plainPath(path), line);
    };
    const watch = ({ name, evaluateName, variablesReference }: Variable): Choice[] =>
        // An array is called by its label, its words by expressions.
        evaluateName
            ? [
                  {
                      label: `Watch ${name}`,
                      act: () =>
                          watches.add(
                              variablesReference === 0 ? evaluateName : evaluateName.replace(/\[0\]$/, ''),
                          ),
                  },
              ]
            : [];
    const memory = makeMemory(session, (variable) => [...data.choices(variable), ...watch(variable)]);
    const isDevice = (scope: { presentationHint?: string }): boolean =>
        scope.presentationHint === 'registers';
    const variables = makeTree(session, {
        label: 'Variables',
        has: (scope) => !isDevice(scope),
        isOpen: (scope) => scope.presentationHint === 'locals',
        note: async () => '',
        choices: (variable) => [...data.choices(variable), ...watch(variable)],
        mark: data.mark,
    });
    const ports = makeTree(session, {
        label: 'Ports',
        has: isDevice,
        isOpen: () => true,
        note: registerNotes(session),
        choices: (variable) => [...data.choices(variable), ...watch(variable)],
        mark: data.mark,
    });
    return {
        controls: makeControls(session, speed, start),
        timeline: makeTimeline(session),
        message: makeMessage(session, reveal, marks, start),
        panels: [
            { id: 'variables', title: 'Variables', element: variables },
            { id: 'watches', title: 'Watches', element: watches.element },
            { id: 'stack', title: 'Calls', element: makeStack(session) },
            { id: 'memory', title: 'Memory', element: memory.element },
            { id: 'ports', title: 'Ports', element: ports },
            { id: 'console', title: 'Console', element: makeConsole(session, reveal) },
        ],
        extension: editors.extension,
        launch: (mainPath, launchArguments) =>
            session.launch(mainPath, { ...launchArguments, ...speed.launchArguments() }),
        stop: session.end,
        change: session.change,
        state: session.state,
        onState: (heard) => void session.onState(heard),
        failed: session.failed,
        use: session.use,
        forget: marks.forget,
        renamed: marks.renamed,
        opened(id) {
            data.forget();
            marks.open(id);
            watches.open(id);
            session.say(null);
        },
    };
}
