// The life of a program in the debug adapter, and what all views share of it.

import { RequestFailed, type Adapter, type Body } from '../page/adapter';
import type { State } from './debugger';

export interface Signal<T> {
    on: (heard: (value: T) => void) => () => void; // returns what ends it
    tell: (value: T) => void;
}

export function makeSignal<T>(): Signal<T> {
    const listeners = new Set<(value: T) => void>();
    return {
        on(heard) {
            listeners.add(heard);
            return () => void listeners.delete(heard);
        },
        tell: (value) => listeners.forEach((heard) => heard(value)),
    };
}

export interface Frame {
    id: number;
    name: string;
    line: number; // 0: the sources say nothing of it
    source?: { name: string; path: string };
    instructionPointerReference: string;
}

export interface Variable {
    name: string;
    value: string;
    variablesReference: number; // 0: one word
    indexedVariables?: number;
    evaluateName?: string;
    memoryReference?: string;
    presentationHint?: { attributes?: string[] };
}

export interface Stop {
    reason: string; // of the event `stopped`
    text: string; // empty for a step
    isAtBreakpoint: boolean; // a step may end at one, too
}

// A long way through the history.
export interface Way {
    id: string;
    title: string;
    share: number; // in percent
}

// Something to be said until something else is, or the program goes on.
export interface Notice {
    text: string;
    isFault: boolean;
    actions: { label: string; act: () => void }[];
}

export interface Session {
    state: () => State;
    stop: () => Stop | null; // while stopped
    frame: () => Frame | null; // the one that is looked at; the first one, unless another was selected
    isTopFrame: () => boolean;
    selectFrame: (frame: Frame) => void;
    launchNumber: () => number; // counts the programs
    ask: <T = Body>(command: string, arguments_?: Body) => Promise<T>;
    // For what is asked at each stop, by several or by one: null when the program has gone on since.
    look: <T = Body>(command: string, arguments_?: Body) => Promise<T | null>;
    change: <T = Body>(command: string, arguments_: Body) => Promise<T>;
    go: (command: string, arguments_?: Body) => void; // a request that sets the program in motion
    pause: () => void;
    goTo: (moment: number) => Promise<void>;
    launch: (mainPath: string, launchArguments: Body) => Promise<boolean>;
    end: () => Promise<void>;
    failed: (reason: string) => void;
    use: (adapter: Adapter) => void;
    cancelWay: () => void;
    lookAgain: () => void; // what is shown may be otherwise, for another reason than a stop
    say: (notice: Notice | null) => void;
    complain: (error: unknown) => void;
    onState: Signal<State>['on']; // a step that takes no time is no change
    onLook: Signal<void>['on']; // values may be others: after a stop, and after a change
    onFrame: Signal<void>['on'];
    onLaunched: Signal<void>['on'];
    onNotice: Signal<Notice | null>['on'];
    onWay: Signal<Way | null>['on'];
    onEvent: (event: string, heard: (body: Body) => void) => void;
    // Done between the launch and the first instruction.
    beforeBegin: (() => Promise<unknown>)[];
}

// Without the ways up and down again that an include may have.
export function plainPath(path: string): string {
    const names: string[] = [];
    for (const name of path.split('/')) {
        if (name === '..' && names.length > 1) {
            names.pop();
        } else if (name !== '.') {
            names.push(name);
        }
    }
    return names.join('/');
}

export function withPlainPath(frame: Frame): Frame {
    const { source } = frame;
    return source ? { ...frame, source: { ...source, path: plainPath(source.path) } } : frame;
}

const CARD_QUESTION = 2;
const CANCELLED = 3;
const THREAD = { threadId: 1 };

// So long nobody is told that the program runs: a step would make everything flicker.
const RUNNING_IS_TOLD_MS = 120;

export function sentenceOf(error: unknown): string {
    const text = error instanceof Error ? error.message : String(error);
    return text.charAt(0).toUpperCase() + text.slice(1);
}

export function makeSession(firstAdapter: Adapter): Session {
    let adapter = firstAdapter;
    let phase: 'none' | 'initialized' | 'launched' = 'none';
    let state: State = 'idle';
    let told: State = 'idle';
    let tellLater = 0;
    let stop: Stop | null = null;
    let stopNumber = 0;
    let answered = false; // something since the last stop
    let top: Frame | null = null;
    let selected: Frame | null = null;
    let launchNumber = 0;
    let underWay: Promise<unknown> = Promise.resolve(); // a launch, or an end
    let way: Way | null = null;
    let motion = 0; // the request of the last one
    let giveUpQuestion: (() => void) | null = null;
    const states = makeSignal<State>();
    const looks = makeSignal<void>();
    const frames = makeSignal<void>();
    const launches = makeSignal<void>();
    const notices = makeSignal<Notice | null>();
    const ways = makeSignal<Way | null>();
    const events = new Map<string, ((body: Body) => void)[]>();
    const beforeBegin: (() => Promise<unknown>)[] = [];

    const tellState = (): void => {
        clearTimeout(tellLater);
        tellLater = 0;
        if (told !== state) {
            told = state;
            states.tell(state);
        }
    };
    const setState = (next: State): void => {
        state = next;
        if (next !== 'stopped') {
            stop = null;
        }
        if (next === 'running' && told === 'stopped') {
            tellLater ||= window.setTimeout(tellState, RUNNING_IS_TOLD_MS);
        } else {
            tellState();
        }
        if (next === 'idle' || next === 'ended') {
            setTop(null);
        }
    };
    const setTop = (frame: Frame | null): void => {
        top = selected = frame;
        frames.tell();
    };
    const ask = async <T = Body>(command: string, arguments_: Body = {}): Promise<T> => {
        const asked = adapter;
        try {
            return (await asked.request(command, arguments_)) as unknown as T;
        } finally {
            answered ||= asked === adapter;
        }
    };
    // What one view has been told at this stop, another one need not ask.
    const known = new Map<string, Promise<Body>>();
    const look = async <T = Body>(command: string, arguments_: Body = {}): Promise<T | null> => {
        const number = stopNumber;
        const question = command + JSON.stringify(arguments_);
        const asked = known.get(question) ?? ask(command, arguments_);
        known.set(question, asked);
        const isOver = (): boolean => number !== stopNumber || state !== 'stopped';
        try {
            const body = await asked;
            return isOver() ? null : (body as unknown as T);
        } catch (error) {
            if (isOver()) {
                return null;
            }
            throw error;
        }
    };
    // A question that is not answered is given up.
    const say = (notice: Notice | null): void => {
        giveUpQuestion?.();
        giveUpQuestion = null;
        notices.tell(notice);
    };
    const complain = (error: unknown): void => {
        if (!(error instanceof RequestFailed && error.id === CANCELLED)) {
            say({ text: sentenceOf(error), isFault: true, actions: [] });
        }
    };
    const setWay = (next: Way | null): void => {
        way = next;
        ways.tell(way);
    };
    const cancelWay = (): void => {
        if (way) {
            ask('cancel', { progressId: way.id }).catch(() => {});
        }
    };
    const lookAtTop = async (): Promise<void> => {
        const body = await look<{ stackFrames: Frame[] }>('stackTrace', { ...THREAD, levels: 1 });
        const first = body?.stackFrames[0];
        if (first) {
            setTop(withPlainPath(first));
        }
    };
    const lookAgain = (): void => {
        known.clear();
        looks.tell();
    };
    const stopped = (body: Body): void => {
        stopNumber += 1;
        known.clear();
        answered = false;
        stop = {
            reason: String(body['reason']),
            text: String(body['text'] ?? ''),
            isAtBreakpoint: body['hitBreakpointIds'] !== undefined,
        };
        say(null);
        setState('stopped');
        lookAtTop().catch(complain);
        looks.tell();
    };
    const over = (next: State): void => {
        stopNumber += 1;
        setWay(null);
        setState(next);
    };
    const hear: Record<string, (body: Body) => void> = {
        stopped,
        continued: () => setState('running'),
        // What comes together with a stop says nothing new.
        invalidated: () => {
            if (state === 'stopped' && answered) {
                lookAgain();
            }
        },
        terminated: () => {
            if (state !== 'starting') {
                over('ended');
            }
        },
        progressStart: (body) => {
            setWay({
                id: String(body['progressId']),
                title: String(body['title']),
                share: Number(body['percentage'] ?? 0),
            });
            // The user goes on, and does not wait for what was asked about the place that is left.
            if (state === 'running' && Number(body['requestId']) < motion) {
                cancelWay();
            }
        },
        progressUpdate: (body) => {
            if (way && way.id === body['progressId']) {
                setWay({ ...way, share: Number(body['percentage'] ?? way.share) });
            }
        },
        progressEnd: (body) => {
            if (way?.id === body['progressId']) {
                setWay(null);
            }
        },
    };
    const listen = (event: string): void => {
        const heard = adapter;
        heard.on(event, (body) => {
            // Of a program that is being ended only its last words count.
            if (heard === adapter && (phase === 'launched' || event === 'output')) {
                hear[event]?.(body);
                events.get(event)?.forEach((listener) => listener(body));
            }
        });
    };
    const listenToAll = (): void => new Set([...Object.keys(hear), ...events.keys()]).forEach(listen);
    listenToAll();

    const disconnect = async (): Promise<void> => {
        phase = 'none';
        stopNumber += 1;
        setWay(null);
        await ask('disconnect');
    };
    const begin = async (mainPath: string, launchArguments: Body): Promise<void> => {
        say(null);
        setState('starting');
        setTop(null);
        if (phase === 'launched') {
            await disconnect();
        }
        if (phase === 'none') {
            await ask('initialize', {
                clientID: 'tovik',
                adapterID: 'tovik',
                linesStartAt1: true,
                columnsStartAt1: true,
                pathFormat: 'path',
                supportsProgressReporting: true,
                supportsInvalidatedEvent: true,
            });
            phase = 'initialized';
        }
        await ask('launch', { ...launchArguments, program: mainPath });
        phase = 'launched';
        launchNumber += 1;
        launches.tell();
        await Promise.all(beforeBegin.map((prepare) => prepare()));
        setState('running'); // what follows may come together with the answer
        await ask('configurationDone');
    };
    // One after the other.
    const inTurn = <T>(act: () => Promise<T>): Promise<T> => {
        const done = underWay.then(act, act);
        underWay = done.catch(() => {});
        return done;
    };
    const change = async <T>(command: string, arguments_: Body): Promise<T> => {
        try {
            return await ask<T>(command, arguments_);
        } catch (error) {
            if (!(error instanceof RequestFailed && error.id === CARD_QUESTION)) {
                throw error;
            }
            const goesBack = await new Promise<boolean>((resolve, reject) => {
                const choice = (label: string, choose: () => void) => ({
                    label,
                    act: () => {
                        choose();
                        say(null);
                    },
                });
                say({
                    text:
                        'The program writes to the SD card later than now. With this change it begins another ' +
                        'future. Shall the card get back what it held at this moment?',
                    isFault: false,
                    actions: [
                        choice('The card goes back', () => resolve(true)),
                        choice('The card stays as it is', () => resolve(false)),
                        choice('Change nothing', () => {}),
                    ],
                });
                giveUpQuestion = () => reject(new RequestFailed('cancelled', CANCELLED));
            });
            await ask('tovik/card', { goesBack });
            return ask<T>(command, arguments_);
        }
    };
    return {
        state: () => state,
        stop: () => stop,
        frame: () => selected,
        isTopFrame: () => selected === top,
        selectFrame(frame) {
            // The first one is the same in every answer.
            selected = top && frame.id === top.id ? top : frame;
            frames.tell();
        },
        launchNumber: () => launchNumber,
        ask,
        look,
        change,
        go(command, arguments_ = {}) {
            if (state !== 'stopped') {
                return;
            }
            const before = stop;
            cancelWay();
            setState('running');
            const asked = ask(command, { ...THREAD, ...arguments_ });
            motion = adapter.last();
            asked.catch((error) => {
                if (state === 'running') {
                    setState('stopped');
                    stop = before;
                }
                complain(error);
            });
        },
        pause: () => void ask('pause', THREAD).catch(() => {}), // it may just have stopped
        async goTo(moment) {
            await ask('tovik/goTo', { moment });
        },
        launch: (mainPath, launchArguments) =>
            inTurn(async () => {
                try {
                    await begin(mainPath, launchArguments);
                    return true;
                } catch (error) {
                    if (phase === 'launched') {
                        await disconnect().catch(() => {});
                    }
                    over('idle');
                    complain(error);
                    return false;
                }
            }),
        end: () =>
            inTurn(async () => {
                if (phase === 'launched') {
                    await disconnect().catch(() => {});
                    say(null);
                    over('idle');
                }
            }),
        failed(reason) {
            phase = 'none';
            const was = state;
            over('idle');
            if (was !== 'idle') {
                const text = `The board had to be switched off: ${reason}.`;
                say({ text, isFault: true, actions: [] });
            }
        },
        use(next) {
            adapter = next;
            motion = 0;
            phase = 'none';
            over('idle');
            listenToAll();
        },
        cancelWay,
        lookAgain,
        say,
        complain,
        onState: states.on,
        onLook: looks.on,
        onFrame: frames.on,
        onLaunched: launches.on,
        onNotice: notices.on,
        onWay: ways.on,
        onEvent(event, heard) {
            const known = event in hear || events.has(event);
            events.set(event, [...(events.get(event) ?? []), heard]);
            if (!known) {
                listen(event);
            }
        },
        beforeBegin,
    };
}
