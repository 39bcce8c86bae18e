// The microphone. What it hears goes from the browser's thread for sound straight to the board's worker.

import type { Server } from '../page/workers';
import { loadWorklet, openDevice, SAMPLES_PER_SECOND, type SwitchedDoor, type Tell } from './door';

const PIECE = SAMPLES_PER_SECOND / 50;
const PATIENCE_MS = 1500;

// Makes 8000 samples a second of those of the device, each the mean of the ones in its time.
const LISTENER = `
registerProcessor('tovik-microphone', class extends AudioWorkletProcessor {
    constructor() {
        super();
        this.worker = null;
        this.piece = [];
        this.sum = this.weight = 0;
        this.port.onmessage = ({ data }) => (this.worker = data);
    }
    add(mean) {
        this.piece.push(Math.max(-32768, Math.min(32767, Math.round(mean * 32768))));
        if (this.piece.length === ${PIECE}) {
            this.worker?.postMessage(Int16Array.from(this.piece));
            this.piece = [];
        }
    }
    process([[input]]) {
        const size = sampleRate / ${SAMPLES_PER_SECOND};
        for (const sample of input ?? []) {
            let rest = 1;
            while (this.weight + rest >= size) {
                const part = size - this.weight;
                this.add((this.sum + sample * part) / size);
                rest -= part;
                this.sum = this.weight = 0;
            }
            this.sum += sample * rest;
            this.weight += rest;
        }
        return true;
    }
});`;

interface Listener {
    stream: MediaStream;
    context: AudioContext;
    node: AudioWorkletNode;
}

export function makeMicrophone(tell: Tell): SwitchedDoor {
    let server: Server | null = null;
    let listener: Listener | null = null;
    const connect = (): void => {
        if (!listener) {
            server?.post({ kind: 'microphone', port: null });
        } else if (server) {
            const { port1, port2 } = new MessageChannel();
            listener.node.port.postMessage(port1, [port1]);
            server.post({ kind: 'microphone', port: port2 }, [port2]);
        }
    };
    const close = (): void => {
        listener?.stream.getTracks().forEach((track) => track.stop());
        void listener?.context.close();
        listener = null;
        connect();
    };
    return {
        attach(to) {
            server = to;
            connect();
        },
        take() {},
        async open() {
            if (listener) {
                return;
            }
            const stream = await openDevice('microphone', {
                audio: { channelCount: 1, echoCancellation: false, noiseSuppression: false },
            });
            const context = new AudioContext(); // at the device's rate: some browsers refuse another one
            try {
                await loadWorklet(context, LISTENER);
                const node = new AudioWorkletNode(context, 'tovik-microphone', { outputChannelCount: [1] });
                context.createMediaStreamSource(stream).connect(node).connect(context.destination);
                listener = { stream, context, node };
            } catch (error) {
                stream.getTracks().forEach((track) => track.stop());
                void context.close();
                throw new Error(`The microphone cannot be used here: ${String(error)}.`);
            }
            void context.resume();
            setTimeout(() => {
                if (listener?.context === context && context.state !== 'running') {
                    tell(
                        'The microphone is on, but the browser takes no sound from it at the moment.',
                        false,
                    );
                }
            }, PATIENCE_MS);
            stream.getAudioTracks()[0]?.addEventListener('ended', () => {
                close();
                tell('The microphone is gone.', true);
            });
            connect();
        },
        close,
    };
}
