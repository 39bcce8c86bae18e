// The board in its worker: when it runs, and what goes through its doors.

import { takeWritten } from './files';
import { bytesAt, withBytes, withText } from './memory';
import type { Tovik } from './program';
import type { FromWorker, ToWorker } from './protocol';

// So long it runs before it looks at what has come.
const TURN_MS = 8;

const SCREEN_MS = 30;
const CARD_MS = 1000;
const CARD_PART = 4 * 1024 * 1024; // bytes that are handed on at once,
const CARD_PART_MS = 50; // and how long until the next ones are

const WAITING_MS = 1000; // for what comes as a message

const US_PER_MS = 1000;
const US_PER_SAMPLE = 125;

// A loudspeaker that asks for nothing is switched off, and keeps no time.
const SPEAKER_MS = 400;

const LINES = ['closed', 'device', 'cable'] as const;

type Tell = (message: FromWorker, transfer?: Transferable[]) => void;

export function makeBoard(
    tovik: Tovik,
    tell: Tell,
    tellLines: (lines: string) => void,
    fail: (error: unknown) => void,
): { take(message: ToWorker): void } {
    const turns = makeTurns(turn);
    const screen = makeScreen(tovik, tell);
    const speaker = makeSpeaker(tovik, turns.now);
    const microphone = makeMicrophone(tovik, turns.begin);
    const line = makeLine(tovik, tell);
    const card = makeCard(tovik, tell, fail);
    let isFrameThere = false;

    function turn(): void {
        try {
            const nextMs = runForAWhile();
            const screenMs = screen.tell();
            turns.next(nextMs < 0 || (screenMs > 0 && screenMs < nextMs) ? screenMs : nextMs);
            speaker.send();
            line.tell();
            card.tell(nextMs < 0);
            tellFrame();
        } catch (error) {
            fail(error);
        }
    }

    // Returns after how many milliseconds to go on; -1: when something comes.
    function runForAWhile(): number {
        const begin = performance.now();
        for (;;) {
            const now = performance.now();
            tellLines(tovik.UTF8ToString(tovik._board_run(now * US_PER_MS, speaker.timeUs(now))));
            const next = tovik._board_next_ms();
            if (next === 0 && tovik._board_waits()) {
                return WAITING_MS;
            }
            if (next !== 0 || performance.now() - begin >= TURN_MS) {
                return next;
            }
        }
    }

    function putFrame(yuyv: Uint8Array): void {
        withBytes(tovik, yuyv, (pointer) => tovik._camera_put(pointer, yuyv.length));
        isFrameThere = true;
    }

    function tellFrame(): void {
        if (isFrameThere && !tovik._camera_keeps()) {
            isFrameThere = false;
            tell({ kind: 'frameTaken' });
        }
    }

    return {
        take(message) {
            switch (message.kind) {
                case 'message':
                    tellLines(
                        tovik.UTF8ToString(withText(tovik, message.text, (text) => tovik._board_take(text))),
                    );
                    break;
                case 'speaker':
                    speaker.attach(message.port);
                    break;
                case 'microphone':
                    microphone.attach(message.port);
                    break;
                case 'camera':
                    tovik._camera_attach(message.on);
                    break;
                case 'frame':
                    putFrame(message.yuyv);
                    break;
                case 'lineOpened':
                    withText(tovik, message.partner, (partner) => tovik._line_opened(partner));
                    break;
                case 'lineIn':
                    withBytes(tovik, message.bytes, (bytes) => tovik._line_put(bytes, message.bytes.length));
                    break;
                case 'lineFailed':
                    withText(tovik, message.reason, (reason) => tovik._line_failed(reason));
                    break;
                default:
                    break;
            }
            turns.begin();
        },
    };
}

interface Turns {
    now(): void;
    begin(): void; // a turn comes next
    next(ms: number): void; // or after so long; -1: not by itself
}

// A timer would not fire sooner than after some milliseconds; a message to oneself comes behind those that
// wait already.
function makeTurns(turn: () => void): Turns {
    const channel = new MessageChannel();
    let isPosted = false;
    let timer = 0;
    const now = (): void => {
        clearTimeout(timer);
        turn();
    };
    channel.port2.onmessage = () => {
        isPosted = false;
        now();
    };
    const begin = (): void => {
        if (!isPosted) {
            isPosted = true;
            channel.port1.postMessage(null);
        }
    };
    const next = (ms: number): void => {
        clearTimeout(timer);
        if (ms === 0) {
            begin();
        } else if (ms > 0) {
            timer = self.setTimeout(begin, ms);
        }
    };
    return { now, begin, next };
}

function makeScreen(tovik: Tovik, tell: Tell) {
    let toldAt = -SCREEN_MS;

    function tellChange(): void {
        const corners = new Int32Array(tovik.HEAPU8.buffer, tovik._screen_box(), 4);
        const [x = 0, y = 0, x2 = 0, y2 = 0] = corners;
        const width = x2 - x + 1;
        const height = y2 - y + 1;
        const bytes = bytesAt(tovik, tovik._screen_pixels(), width * height * 4);
        const rgba = new Uint8ClampedArray(bytes.buffer);
        tell({ kind: 'screen', x, y, width, height, rgba }, [bytes.buffer]);
    }

    return {
        // Returns after how many milliseconds it is to be called again, for what it has not told; -1: it has
        // told all.
        tell(): number {
            const now = performance.now();
            if (now - toldAt < SCREEN_MS) {
                return SCREEN_MS - (now - toldAt);
            }
            if (tovik._screen_take()) {
                toldAt = now;
                tellChange();
            }
            return -1;
        },
    };
}

function makeSpeaker(tovik: Tovik, run: () => void) {
    let port: MessagePort | null = null;
    let asked = 0; // samples, since there is one
    let askedAt = 0;
    return {
        attach(to: MessagePort | null): void {
            port?.close();
            port = to;
            tovik._speaker_hear(port !== null);
            if (port !== null) {
                port.onmessage = (event: MessageEvent<number>) => {
                    asked += event.data;
                    askedAt = performance.now();
                    run();
                };
            }
        },
        // Of what it has asked for; -1: it keeps no time.
        timeUs(now: number): number {
            return port !== null && now - askedAt < SPEAKER_MS ? asked * US_PER_SAMPLE : -1;
        },
        send(): void {
            const count = tovik._speaker_count();
            if (count > 0) {
                const bytes = bytesAt(tovik, tovik._speaker_samples(), count * 2);
                tovik._speaker_clear();
                port?.postMessage(new Int16Array(bytes.buffer), [bytes.buffer]);
            }
        },
    };
}

function makeMicrophone(tovik: Tovik, begin: () => void) {
    let port: MessagePort | null = null;
    return {
        attach(to: MessagePort | null): void {
            port?.close();
            port = to;
            tovik._microphone_attach(port !== null);
            if (port !== null) {
                port.onmessage = (event: MessageEvent<Int16Array>) => {
                    const samples = event.data;
                    const bytes = new Uint8Array(samples.buffer, samples.byteOffset, samples.byteLength);
                    withBytes(tovik, bytes, (pointer) => tovik._microphone_put(pointer, samples.length));
                    begin();
                };
            }
        },
    };
}

function makeLine(tovik: Tovik, tell: Tell) {
    let times = tovik._line_times();

    function tellSent(): void {
        const count = tovik._line_sent_count();
        if (count > 0) {
            tell({ kind: 'lineOut', bytes: bytesAt(tovik, tovik._line_sent(), count) });
            tovik._line_clear();
        }
    }

    return {
        // What was sent belongs to the line that is open now, or that has just been closed.
        tell(): void {
            const line = LINES[tovik._line_wanted()] ?? 'closed';
            if (line === 'closed') {
                tellSent();
            }
            if (times !== tovik._line_times()) {
                times = tovik._line_times();
                tell({ kind: 'lineOpen', line, name: tovik.UTF8ToString(tovik._line_wanted_name()) });
            }
            tellSent();
        },
    };
}

// The card that the program writes to is one of the page's files. While the program runs, a look at it comes not more
// often than once in CARD_MS, unless there is more; when it rests, at once, since the user may take the card out then.
function makeCard(tovik: Tovik, tell: Tell, fail: (error: unknown) => void) {
    let nextAt = 0;
    let timer = 0;
    const look = (): void => {
        timer = 0;
        try {
            const written = takeWritten(tovik, CARD_PART);
            nextAt = performance.now() + (written?.more ? CARD_PART_MS : CARD_MS);
            if (written) {
                tell(
                    written,
                    written.parts.map(({ bytes }) => bytes.buffer),
                );
                plan();
            }
        } catch (error) {
            fail(error);
        }
    };
    const plan = (): void => {
        if (timer === 0) {
            timer = self.setTimeout(look, Math.max(nextAt - performance.now(), 0));
        }
    };
    return {
        tell(atRest: boolean): void {
            if (atRest) {
                clearTimeout(timer);
                look();
            } else {
                plan();
            }
        },
    };
}
