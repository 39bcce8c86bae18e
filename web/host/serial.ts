// A serial device of the computer: 115200 bits a second, 8 bits, no parity, one stop bit.

import type { Line, LineEvents } from './cable';

// What this needs of Web Serial, which not all browsers have.
interface SerialPort {
    readonly readable: ReadableStream<Uint8Array> | null;
    readonly writable: WritableStream<Uint8Array> | null;
    getInfo(): { usbVendorId?: number; usbProductId?: number };
    open(settings: { baudRate: number; bufferSize: number }): Promise<void>;
    close(): Promise<void>;
}

interface Serial {
    requestPort(): Promise<SerialPort>;
}

const BUFFER_BYTES = 16384;
const CLOSE_MS = 1000; // for what has been sent and has not gone out yet
const NONE = 'The serial device has to be chosen first.';

const serial = (navigator as { serial?: Serial }).serial;
let chosen: SerialPort | null = null;
let closed: Promise<void> = Promise.resolve(); // the line before; a device cannot be opened until then

export const hasSerialDevices = serial !== undefined;

// Lets the user choose a device, which needs a gesture. Returns a name for it, which has a digit.
export async function chooseDevice(): Promise<string> {
    if (!serial) {
        throw new Error('This browser cannot use serial devices.');
    }
    try {
        chosen = await serial.requestPort();
    } catch {
        throw new Error('No serial device is chosen.');
    }
    const { usbVendorId, usbProductId } = chosen.getInfo();
    const number = (id: number | undefined): string => (id ?? 0).toString(16).padStart(4, '0');
    return usbVendorId === undefined ? 'port 1' : `USB ${number(usbVendorId)}:${number(usbProductId)}`;
}

export function openDeviceLine(events: LineEvents): Line {
    const port = chosen;
    let reader: ReadableStreamDefaultReader<Uint8Array> | undefined;
    let writer: WritableStreamDefaultWriter<Uint8Array> | undefined;
    let over = false;
    const before = closed;
    let opened: Promise<void> = before;
    const close = (): void => {
        over = true;
        closed = opened.catch(() => {}).then(release);
    };
    const release = async (): Promise<void> => {
        await reader?.cancel().catch(() => {});
        reader?.releaseLock();
        const patience = new Promise((resolve) => setTimeout(resolve, CLOSE_MS));
        await Promise.race([writer?.close().catch(() => {}), patience]);
        await writer?.abort().catch(() => {});
        writer?.releaseLock();
        await port?.close().catch(() => {});
    };
    const fail = (reason: string): void => {
        if (!over) {
            close();
            events.failed(reason);
        }
    };
    const run = async (): Promise<void> => {
        if (!port) {
            fail(serial ? NONE : 'This browser cannot use serial devices.');
            return;
        }
        try {
            opened = before.then(() => port.open({ baudRate: 115200, bufferSize: BUFFER_BYTES }));
            await opened;
            if (over) {
                return;
            }
            reader = port.readable?.getReader();
            writer = port.writable?.getWriter();
            events.opened('');
            for (;;) {
                const piece = await reader?.read();
                if (!piece || piece.done) {
                    break;
                }
                events.came(piece.value);
            }
            fail('The serial device has ended.');
        } catch (error) {
            fail(`The serial device cannot be used: ${String(error)}.`);
        }
    };
    void run();
    return {
        send: (bytes) =>
            void writer?.write(bytes).catch((error) => fail(`Sending failed: ${String(error)}.`)),
        close,
    };
}
