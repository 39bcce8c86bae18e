// A door of the board to the computer, inside a browser.

import type { Server } from '../page/workers';
import type { FromWorker } from '../worker/protocol';

export interface Door {
    // For each new worker of the board.
    attach(server: Server): void;
    // All that the worker says; what does not concern the door is ignored.
    take(message: FromWorker): void;
}

// One that the user switches on and off. `open` is called by a gesture of the user's where the browser wants
// one; it fails with a sentence for the user.
export interface SwitchedDoor extends Door {
    open(): Promise<void>;
    close(): void;
}

// A sentence for the user, as something happens at the door; empty when there is no more to say. `closed` is
// true when the door has closed by itself.
export type Tell = (sentence: string, closed: boolean) => void;

export const SAMPLES_PER_SECOND = 8000;

// What a browser says when it gives no device, in a sentence. `device` is 'microphone' or 'camera'.
export function refusal(device: string, error: unknown): Error {
    const reasons: Record<string, string> = {
        NotAllowedError: `The browser does not let this page use the ${device}.`,
        NotFoundError: `There is no ${device}.`,
        NotReadableError: `Another program uses the ${device}, or it does not work.`,
    };
    const name = error instanceof Error ? error.name : '';
    return new Error(reasons[name] ?? `The ${device} cannot be used: ${String(error)}.`);
}

// Asks for a microphone or a camera.
export async function openDevice(device: string, wanted: MediaStreamConstraints): Promise<MediaStream> {
    // Typed as always there, but absent on pages that came over an unprotected line.
    const devices = navigator.mediaDevices as MediaDevices | undefined;
    if (!devices) {
        throw new Error(`The browser gives a ${device} only to pages opened from a file or over https.`);
    }
    try {
        return await devices.getUserMedia(wanted);
    } catch (error) {
        throw refusal(device, error);
    }
}

// A part of the page's sound that runs in the browser's thread for sound. As a data: URL it also loads where
// the page is a file.
export async function loadWorklet(context: AudioContext, source: string): Promise<void> {
    await context.audioWorklet.addModule(`data:text/javascript,${encodeURIComponent(source)}`);
}
