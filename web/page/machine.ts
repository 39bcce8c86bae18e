// The board with all that belongs to it: its worker, the debugger, the drawing, and the doors to the computer.

import { makeBoard } from '../board/board';
import { makeConsole } from '../board/console';
import { makeSlots } from '../board/slots';
import { makeDebugger } from '../debug/debugger';
import type { Debugger } from '../debug/debugger';
import type { FromWorker, ToWorker } from '../worker/protocol';
import { makeAdapter } from './adapter';
import type { Adapter, Body } from './adapter';
import { pathOf } from './documents';
import type { Files } from './program';
import type { TabPanel } from './parts';
import type { Question } from './wanted';
import type { Server } from './workers';

const PATIENCE = 3000; // milliseconds for what belongs to the computer

export interface Machine {
    debug: Debugger;
    board: HTMLElement;
    panels: TabPanel[];
    resetSwitches(): void; // while there is no program
    // A worker for the board that is `ready`.
    connect(server: Server): void;
    take(message: FromWorker): void;
    failed(reason: string): void;
}

export interface MachineOptions {
    sources(): { files: Files; main: string };
    library: ReadonlyMap<string, string>;
    show(path: string): void;
    seeSource(): void;
    say(sentence: string, kind: 'note' | 'warning' | 'fault'): void;
    started(): void; // a program begins
    refused(): void; // it did not
    revive(): void; // a worker has to be there
    seePanel(id: string): void; // something in it wants to be seen
}

// Keeps the files of the program in a worker's file system.
export function makeMirror(server: Server, library: ReadonlyMap<string, string>): (files: Files) => void {
    const there = new Map<string, string>();
    const post = (name: string, text: string | null): void => {
        const bytes = text === null ? null : new TextEncoder().encode(text);
        server.post({ kind: 'file', path: pathOf(name), bytes });
    };
    return (files) => {
        const wanted = new Map([...library, ...files]);
        for (const name of [...there.keys()].filter((old) => !wanted.has(old))) {
            there.delete(name);
            post(name, null);
        }
        for (const [name, text] of wanted) {
            if (there.get(name) !== text) {
                there.set(name, text);
                post(name, text);
            }
        }
    };
}

export function makeMachine(options: MachineOptions): Machine {
    let server: Server | null = null;
    let isAttached = false;
    let asked: Question | null = null;
    let lastFault = ''; // what the board has complained of last, if nothing has been asked since
    let isSpoken = false; // the program has sent something to the serial console
    // What is said before a worker is there waits for it.
    let waiting: { message: ToWorker; transfer: Transferable[] | undefined }[] = [];
    const line: Server = {
        role: 'board',
        post(message, transfer) {
            if (server === null) {
                waiting.push({ message, transfer });
            } else {
                server.post(message, transfer);
            }
        },
        end: () => server?.end(),
    };
    let mirror = makeMirror(line, options.library);

    // What was wrong with an answer may come before the question is there again, or behind it.
    const tellWanted = (): void => {
        slots.wanted(asked, lastFault);
        lastFault = asked === null ? lastFault : '';
    };
    const make = (): Adapter => {
        const made = makeAdapter(line);
        made.on('tovik/board', (body) => board.update(body));
        made.on('tovik/wanted', ({ question }) => {
            asked = question as Question | null;
            if (question !== null) {
                options.seePanel('slots');
            }
            tellWanted();
        });
        made.on('output', ({ category, output }) => {
            if (category === 'stderr' && typeof output === 'string') {
                lastFault = output.trim();
                tellWanted();
            }
            if (category === 'stdout' && typeof output === 'string') {
                serial.append(output);
                if (!isSpoken) {
                    isSpoken = true;
                    options.seePanel('serial');
                }
            }
        });
        const { request } = made;
        return {
            ...made,
            async request(command, arguments_) {
                const answer = await request(command, arguments_);
                if (command === 'launch') {
                    setLive(true); // before the first instruction, for what the doors have to bring
                }
                return answer;
            },
        };
    };
    const setLive = (on: boolean): void => {
        board.setLive(on);
        serial.setLive(on);
        slots.setLive(on);
    };
    const ask = (command: string, arguments_: Body): void => {
        debug.change(command, arguments_).catch((error: Error) => options.say(error.message, 'warning'));
    };
    // The loudspeaker is opened by a press of a button, as browsers want it. One that does not open holds nobody up.
    const attach = async (): Promise<void> => {
        if (!isAttached) {
            isAttached = true;
            await Promise.race([slots.attach(line), new Promise((resolve) => setTimeout(resolve, PATIENCE))]);
        }
    };
    const start = async (): Promise<void> => {
        options.revive();
        await attach();
        const { files, main } = options.sources();
        mirror(files);
        serial.clear();
        asked = null;
        lastFault = '';
        isSpoken = false;
        options.started();
        const isBegun = await debug.launch(pathOf(main), {
            ...slots.answersForLaunch(),
            switches: board.switches(),
            board: true,
            screen: false,
            waits: true,
        });
        if (!isBegun) {
            options.refused();
        }
    };

    const board = makeBoard(ask);
    const serial = makeConsole(ask);
    const slots = makeSlots((command, arguments_) => debug.change(command, arguments_));
    let adapter = make();
    const debug = makeDebugger({
        adapter,
        start: () => void start().catch((error: Error) => options.say(error.message, 'fault')),
        show: options.show,
        seeSource: options.seeSource,
    });
    debug.onState((state) => {
        document.body.classList.toggle('running', state === 'running');
        if (state === 'idle' || state === 'ended') {
            setLive(false);
        }
    });
    return {
        debug,
        board: board.element,
        resetSwitches: board.resetSwitches,
        panels: [
            ...debug.panels,
            { id: 'slots', title: 'Devices', element: slots.element },
            { id: 'serial', title: 'Serial', element: serial.element },
        ],
        connect(made) {
            server = made;
            waiting.forEach(({ message, transfer }) => made.post(message, transfer));
            waiting = [];
        },
        take(message) {
            if (message.kind === 'message') {
                adapter.take(message.text);
            } else if (message.kind === 'screen') {
                board.paint(message);
            } else {
                slots.take(message);
            }
        },
        failed(reason) {
            server = null;
            isAttached = false;
            mirror = makeMirror(line, options.library);
            waiting = [];
            adapter.end(reason);
            setLive(false);
            debug.failed(reason);
            adapter = make();
            debug.use(adapter);
        },
    };
}
