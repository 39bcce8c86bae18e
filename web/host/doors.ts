// All doors of the board to the computer.

import type { Server } from '../page/workers';
import { openCable, type Line, type LineEvents } from './cable';
import { makeCamera } from './camera';
import type { Door, SwitchedDoor, Tell } from './door';
import { makeMicrophone } from './microphone';
import { openDeviceLine } from './serial';
import { makeSpeaker } from './speaker';

export interface Doors extends Door {
    speaker: SwitchedDoor;
    microphone: SwitchedDoor;
    camera: SwitchedDoor;
}

// The serial line: a device, or the cable to another tab.
function makeLine(tell: Tell): Door {
    let server: Server | null = null;
    let line: Line | null = null;
    const close = (): void => {
        line?.close();
        line = null;
    };
    const events = (isCable: boolean): LineEvents => ({
        opened(partner) {
            server?.post({ kind: 'lineOpened', partner });
            if (isCable) {
                const alone = 'Nobody is at the other end of the cable yet: open this page in another tab.';
                tell(partner === '' ? alone : `The cable leads to ${partner}.`, false);
            }
        },
        came: (bytes) => server?.post({ kind: 'lineIn', bytes }),
        failed(reason) {
            line = null;
            server?.post({ kind: 'lineFailed', reason });
            tell(reason, true);
        },
    });
    return {
        attach(to) {
            close();
            server = to;
        },
        take(message) {
            if (message.kind === 'lineOut') {
                line?.send(message.bytes);
            } else if (message.kind === 'lineOpen') {
                close();
                if (message.line === 'device') {
                    line = openDeviceLine(events(false));
                } else if (message.line === 'cable') {
                    line = openCable(message.name, events(true));
                } else {
                    tell('', false);
                }
            }
        },
    };
}

export type DoorName = 'speaker' | 'microphone' | 'camera' | 'line';

// `tell` gets the door's name before what a `Tell` gets.
export function makeDoors(tell: (door: DoorName, ...what: Parameters<Tell>) => void): Doors {
    const speaker = makeSpeaker((...what) => tell('speaker', ...what));
    const microphone = makeMicrophone((...what) => tell('microphone', ...what));
    const camera = makeCamera((...what) => tell('camera', ...what));
    const line = makeLine((...what) => tell('line', ...what));
    const all = [speaker, microphone, camera, line];
    return {
        speaker,
        microphone,
        camera,
        attach: (server) => all.forEach((door) => door.attach(server)),
        take: (message) => all.forEach((door) => door.take(message)),
    };
}
