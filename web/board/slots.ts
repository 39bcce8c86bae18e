// What is plugged into the board: card, sound, movie, the serial line, and the computer's own devices.

import type { Body } from '../page/adapter';
import { element } from '../page/dom';
import { button } from '../page/parts';
import { WANTED, type Question } from '../page/wanted';
import type { Server } from '../page/workers';
import type { FromWorker } from '../worker/protocol';
import { makeDoors, type DoorName } from '../host/doors';
import { makeCardSlot } from './card';
import { makeSerialRow } from './line';
import { download, makeFileSlot, makeRow, makeToggle, type FileSlot, type Row } from './rows';
import { boardSound, HEADER_BYTES } from './sound';

// The lists of a launch.
export type Answers = { sd: string[]; microphone: string[]; camera: string[]; serial: string[] };

export interface Slots {
    element: HTMLElement;
    // For each new worker of the board, after it is `ready`: puts the files of the slots into it, and attaches
    // what leads to the computer. The launch comes after that. The first time it comes by a gesture of the
    // user's, so that there is sound.
    attach(server: Server): Promise<void>;
    // All that the worker says, but for `message`; what does not concern the slots is ignored.
    take(message: FromWorker): void;
    answersForLaunch(): Answers;
    // True with the answer to `launch`, before `configurationDone`, so that microphone and camera are there
    // when the program begins; false when the program has ended.
    setLive(on: boolean): void;
    // From the event `tovik/wanted`; the slot comes into view. `why`: what was wrong with the answer before, or
    // empty.
    wanted(question: Question | null, why?: string): void;
}

type Request = (command: string, arguments_: Body) => Promise<Body>;

const MIB = 1024 * 1024;
const PICTURE_BYTES = 614400;
const RECORDING = '/speaker.wav'; // in the worker

function sentenceOf(text: string): string {
    return /[.!?]$/.test(text) ? text : `${text}.`;
}

// A shorter one has no picture for the program.
async function checkMovie(file: File): Promise<Blob> {
    if (file.size < PICTURE_BYTES) {
        throw new Error(`a picture has ${PICTURE_BYTES} bytes, and there is not one in it.`);
    }
    return file;
}

async function convertSound(file: File): Promise<Blob> {
    const sound = await boardSound(new Uint8Array(await file.arrayBuffer()));
    if (sound.size <= HEADER_BYTES) {
        throw new Error('there is no sound in it.');
    }
    return sound;
}

// `request` is that of the debug adapter.
export function makeSlots(request: Request): Slots {
    let server: Server | null = null;
    let live = false;
    const written = new Set<string>(); // files in the worker

    const write = async (slot: FileSlot): Promise<void> => {
        const held = slot.held();
        if (held && server) {
            const bytes = new Uint8Array(await held.content.arrayBuffer());
            written.add(slot.path());
            server.post({ kind: 'file', path: slot.path(), bytes }, [bytes.buffer]);
        }
    };
    // Between two programs: while one runs it may still be given a file that is in its slot no more.
    const removeOld = (): void => {
        const held = [card, microphone, camera].flatMap(pathsOf);
        for (const path of [...written].filter((one) => !held.includes(one))) {
            written.delete(path);
            server?.post({ kind: 'file', path, bytes: null });
        }
    };
    const ask = (row: Row, command: string, arguments_: Body): Promise<Body | null> =>
        request(command, arguments_).catch((error: Error) => {
            row.say(sentenceOf(error.message));
            return null;
        });
    const giveFor =
        (question: Question) =>
        (slot: FileSlot): void => {
            const give = async (): Promise<void> => {
                await write(slot);
                if (live) {
                    await ask(slot, 'tovik/answer', { question, answer: slot.path() });
                }
            };
            give().catch(() => slot.say('The file cannot be read any more.'));
        };

    const card = makeCardSlot(giveFor('sd'));
    const rows: Record<DoorName, () => Row> = {
        speaker: () => speaker,
        microphone: () => microphone,
        camera: () => camera,
        line: () => serial,
    };
    const doors = makeDoors((door, sentence, closed) => {
        if (closed && (door === 'microphone' || door === 'camera')) {
            void turn(door, false);
        }
        rows[door]().say(sentence);
    });
    const show = (door: 'speaker' | 'microphone' | 'camera', on: boolean): void => {
        toggles[door].set(on);
        if (door !== 'speaker') {
            (door === 'camera' ? camera : microphone).setComputer(on);
        }
    };
    // The switches show what has come of it.
    const plug = async (door: 'microphone' | 'camera', on: boolean): Promise<void> => {
        if (live) {
            const answer = await ask(rows[door](), `tovik/${door}`, { on });
            show(door, answer?.['on'] === true);
        }
    };
    const perform = async (door: 'speaker' | 'microphone' | 'camera', on: boolean): Promise<void> => {
        show(door, on);
        try {
            if (on) {
                await doors[door].open();
            }
            if (door !== 'speaker') {
                await plug(door, on);
            }
            if (!on) {
                doors[door].close();
            }
        } catch (error) {
            show(door, false);
            rows[door]().say(error instanceof Error ? error.message : String(error));
        }
    };
    const turned = { speaker: Promise.resolve(), microphone: Promise.resolve(), camera: Promise.resolve() };
    const turn = (door: 'speaker' | 'microphone' | 'camera', on: boolean): Promise<void> => {
        rows[door]().say('');
        toggles[door].set(on);
        // One after the other: what is switched off while it still opens is closed as soon as it is open.
        turned[door] = turned[door].then(() => perform(door, on));
        return turned[door];
    };
    const toggles = {
        speaker: makeToggle('Sound', (on) => turn('speaker', on)),
        microphone: makeToggle('Microphone of this computer', (on) => turn('microphone', on)),
        camera: makeToggle('Camera of this computer', (on) => turn('camera', on)),
    };
    const microphone = makeFileSlot(
        {
            name: 'Microphone',
            prefix: 'sound',
            kinds: 'audio/*,.wav',
            most: 64 * MIB,
            mostText: 'A sound file has at most 64 MB.',
            convert: convertSound,
        },
        giveFor('microphone'),
        toggles.microphone.element,
    );
    const camera = makeFileSlot(
        {
            name: 'Camera',
            prefix: 'movie',
            kinds: '.kmovie',
            most: 256 * MIB,
            mostText: 'A movie has at most 256 MB, which is 14 seconds.',
            convert: checkMovie,
        },
        giveFor('camera'),
        toggles.camera.element,
    );
    const serial = makeSerialRow(
        (answer) => void ask(serial, 'tovik/answer', { question: 'serial', answer }),
    );
    const setRecord = async (on: boolean): Promise<void> => {
        record.set(on);
        if (live && (await ask(speaker, 'tovik/record', { on })) && live) {
            saveRecording.disabled &&= !on;
        }
    };
    const record = makeToggle('Record', setRecord);
    const saveRecording = button('Save the recording', () => {
        void ask(speaker, 'tovik/saveRecording', { file: RECORDING }).then((answer) => {
            if (answer) {
                server?.post({ kind: 'read', path: RECORDING });
            }
        });
    });
    const speaker = makeRow('Speaker', toggles.speaker.element, record.element, saveRecording);
    toggles.speaker.set(true);
    saveRecording.disabled = true;

    const rowOf: Record<Question, Row> = {
        sd: card,
        microphone,
        microphoneStream: microphone,
        camera,
        cameraStream: camera,
        serial,
        line: serial,
    };
    const wanted = (question: Question | null, why = ''): void => {
        [card, microphone, camera, serial].forEach((row) => row.want(''));
        if (question) {
            rowOf[question].want(WANTED[question]);
            if (why !== '') {
                rowOf[question].say(sentenceOf(why));
            }
        }
        card.wantsFile(question === 'sd');
        microphone.wantsFile(question === 'microphone');
        camera.wantsFile(question === 'camera');
        serial.wantsAnswer(question === 'serial');
    };
    const pathsOf = (slot: FileSlot): string[] => (slot.held() ? [slot.path()] : []);
    const all = [card, microphone, camera, serial, speaker].map((row) => row.element);
    return {
        element: element('section', { class: 'slots', 'aria-label': 'Devices' }, ...all),
        async attach(to) {
            await card.loaded;
            server = to;
            written.clear();
            doors.attach(to);
            if (toggles.speaker.isOn()) {
                await turn('speaker', true);
            }
            for (const slot of [card, microphone, camera]) {
                await write(slot).catch(() => {
                    slot.put(null);
                    slot.say('The file cannot be read any more.');
                });
            }
        },
        take(message) {
            doors.take(message);
            if (message.kind === 'changed') {
                card.changed(message);
            } else if (message.kind === 'file' && message.path === RECORDING && message.bytes) {
                download('speaker.wav', message.bytes as Uint8Array<ArrayBuffer>);
            }
        },
        answersForLaunch() {
            const line = serial.answer();
            return {
                sd: pathsOf(card),
                microphone: pathsOf(microphone),
                camera: pathsOf(camera),
                serial: line === null ? [] : [line],
            };
        },
        setLive(on) {
            live = on;
            saveRecording.disabled = true;
            removeOld();
            if (!on) {
                wanted(null);
                return;
            }
            serial.say('');
            for (const door of ['microphone', 'camera'] as const) {
                if (toggles[door].isOn()) {
                    void plug(door, true);
                }
            }
            if (record.isOn()) {
                void setRecord(true);
            }
        },
        wanted,
    };
}
