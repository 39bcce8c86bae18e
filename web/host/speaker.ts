// The loudspeaker. What the board plays goes from its worker straight to the browser's thread for sound, past
// the page, which may have other things to do.

import type { Server } from '../page/workers';
import { loadWorklet, SAMPLES_PER_SECOND, type SwitchedDoor, type Tell } from './door';

const AHEAD = SAMPLES_PER_SECOND * 0.1; // samples that wait to be played
const LEAST_ASKED = SAMPLES_PER_SECOND * 0.032; // at once: each time wakes the board and paints its screen
const LATENCY = 0.032; // seconds; browsers would wake this thread twice as often
const WATCH_MS = 1000;
const BEGIN_MS = 500; // in which the browser usually begins to play

// The port that it is given leads to the worker: it says how many samples it wants, and gets them, or more from
// a program that runs faster than the board. A wish that is not fulfilled in time is given up, and told once more: the
// board forgets wishes when its pace begins anew. After a gap it first gathers a few. Says 1 when it begins to play.
const PLAYER = `
registerProcessor('tovik-speaker', class extends AudioWorkletProcessor {
    constructor() {
        super();
        this.waiting = new Float32Array(${3 * AHEAD});
        this.start(null);
        this.port.onmessage = ({ data }) => this.start(data);
    }
    start(worker) {
        this.worker = worker;
        this.asked = this.silent = this.first = this.count = this.place = this.last = this.next = 0;
        this.gathers = true;
        this.gaveUp = false;
        if (worker) {
            worker.onmessage = ({ data }) => {
                this.asked = Math.max(this.asked - data.length, 0);
                this.silent = 0;
                this.gaveUp = false;
                for (const sample of data) {
                    if (this.count < this.waiting.length) {
                        this.waiting[(this.first + this.count) % this.waiting.length] = sample / 32768;
                        this.count += 1;
                    }
                }
            };
        }
    }
    step() {
        this.last = this.next;
        if (this.count > 0) {
            this.next = this.waiting[this.first];
            this.first = (this.first + 1) % this.waiting.length;
            this.count -= 1;
        } else {
            this.next *= 0.99;
            this.gathers = true;
        }
    }
    process(inputs, [[output]]) {
        if (!this.hasBegun) {
            this.hasBegun = true;
            this.port.postMessage(1);
        }
        this.silent += output.length * ${SAMPLES_PER_SECOND} / sampleRate;
        if (this.silent > ${AHEAD} && !this.gaveUp) {
            this.asked = 0;
            this.gaveUp = true;
        }
        const wanted = ${AHEAD} - this.count - this.asked;
        if (this.worker && wanted >= ${LEAST_ASKED}) {
            this.asked += wanted;
            this.worker.postMessage(wanted);
        }
        this.gathers = this.gathers && this.count < ${AHEAD} / 2;
        for (let i = 0; i < output.length; i += 1) {
            if (this.gathers) {
                output[i] = this.next *= 0.99;
                continue;
            }
            for (this.place += ${SAMPLES_PER_SECOND} / sampleRate; this.place >= 1; this.place -= 1) {
                this.step();
            }
            output[i] = this.last + (this.next - this.last) * this.place;
        }
        return true;
    }
});`;

function makeContext(): AudioContext {
    try {
        return new AudioContext({ sampleRate: SAMPLES_PER_SECOND, latencyHint: LATENCY });
    } catch {
        return new AudioContext(); // one that does not know the board's rate
    }
}

interface Player {
    context: AudioContext;
    node: AudioWorkletNode;
}

async function makePlayer(): Promise<Player> {
    const context = makeContext();
    try {
        await loadWorklet(context, PLAYER);
        const node = new AudioWorkletNode(context, 'tovik-speaker', { outputChannelCount: [1] });
        node.connect(context.destination);
        return { context, node };
    } catch (error) {
        void context.close();
        throw new Error(`The browser plays no sound here: ${String(error)}. The board runs by its clock.`);
    }
}

export function makeSpeaker(tell: Tell): SwitchedDoor {
    let server: Server | null = null;
    let player: Player | null = null;
    let plays: boolean | null = null; // which a browser does not let it before the user has done something
    let timer = 0;

    // As long as the speaker plays, it sets the board's pace; otherwise the board must not wait for it.
    const connect = (on: boolean): void => {
        if (!server || !player || !on) {
            server?.post({ kind: 'speaker', port: null });
            return;
        }
        const { port1, port2 } = new MessageChannel();
        player.node.port.postMessage(port1, [port1]);
        server.post({ kind: 'speaker', port: port2 }, [port2]);
    };
    const setPlays = (on: boolean): void => {
        if (plays !== on) {
            plays = on;
            connect(on);
            tell(on ? '' : 'The browser plays no sound at the moment. The board runs by its clock.', false);
        }
    };
    const wake = (): void => {
        if (player?.context.state !== 'running') {
            void player?.context.resume();
        }
    };
    const gestures = ['pointerdown', 'keydown'];
    const close = (): void => {
        gestures.forEach((gesture) => removeEventListener(gesture, wake, true));
        clearInterval(timer);
        plays = null;
        connect(false);
        if (player) {
            player.context.onstatechange = null;
            void player.context.close();
        }
        player = null;
    };
    return {
        attach(to) {
            server = to;
            connect(plays === true);
        },
        take() {},
        async open() {
            if (player) {
                return;
            }
            player = await makePlayer();
            const { context, node } = player;
            gestures.forEach((gesture) => addEventListener(gesture, wake, true));
            wake();
            const begun = new Promise<void>((resolve) => {
                node.port.onmessage = () => {
                    setPlays(context.state === 'running');
                    resolve();
                };
            });
            context.onstatechange = () => setPlays(context.state === 'running' && context.currentTime > 0);
            // A loudspeaker that is unplugged may only stand still.
            let before = -1;
            timer = window.setInterval(() => {
                setPlays(context.state === 'running' && context.currentTime > before);
                before = context.currentTime;
            }, WATCH_MS);
            await Promise.race([begun, new Promise((resolve) => setTimeout(resolve, BEGIN_MS))]);
        },
        close,
    };
}
