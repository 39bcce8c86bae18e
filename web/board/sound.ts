// Sound files for the board's microphone.

const RATE = 8000;
export const HEADER_BYTES = 68;
const MOST_MINUTES = 30;
const PIECE = 60 * RATE; // samples that are converted at a time

// Whether a file has a WAV header of the length that the board's kind has. If anything in it is wrong, the board
// says what.
function isForTheBoard(bytes: Uint8Array): boolean {
    const text = String.fromCharCode(...bytes.subarray(0, 16));
    return text.startsWith('RIFF') && text.slice(8) === 'WAVEfmt ' && bytes[16] === 40;
}

// Of a file with one channel of signed samples of 32 bits, 8000 a second.
function headerOf(samples: number): ArrayBuffer {
    const view = new DataView(new ArrayBuffer(HEADER_BYTES));
    const text = (at: number, value: string): void =>
        [...value].forEach((c, i) => view.setUint8(at + i, c.charCodeAt(0)));
    text(0, 'RIFF');
    view.setUint32(4, HEADER_BYTES + samples * 4 - 8, true);
    text(8, 'WAVEfmt ');
    [40, 0x1fffe, RATE, RATE * 4, 0x200004, 0x200016, 4, 1, 0x100000, 0xaa000080, 0x719b3800].forEach(
        (value, i) => view.setUint32(16 + i * 4, value, true),
    );
    text(60, 'data');
    view.setUint32(64, samples * 4, true);
    return view.buffer;
}

// The mean of the channels, which lie from -1 to 1.
function mix(channels: readonly Float32Array[]): Int32Array<ArrayBuffer> {
    const mixed = new Float32Array(channels[0]?.length ?? 0);
    for (const channel of channels) {
        channel.forEach((sample, i) => (mixed[i] = (mixed[i] ?? 0) + sample / channels.length));
    }
    return Int32Array.from(mixed, (sample) => Math.round(Math.min(Math.max(sample, -1), 1) * 0x7fffffff));
}

// Any sound that the browser can play, as the board takes it. Fails with a sentence for the user.
export async function boardSound(bytes: Uint8Array<ArrayBuffer>): Promise<Blob> {
    if (isForTheBoard(bytes)) {
        // The board would only ask for another one.
        if (String.fromCharCode(...bytes.subarray(60, HEADER_BYTES)) === 'data\0\0\0\0') {
            throw new Error('there is no sound in it.');
        }
        return new Blob([bytes]);
    }
    const decoder = new OfflineAudioContext(1, 1, RATE);
    const sound = await decoder.decodeAudioData(bytes.buffer).catch(() => {
        throw new Error('the browser does not know this kind of sound.');
    });
    // A small file may have hours of silence.
    if (sound.duration > MOST_MINUTES * 60) {
        throw new Error(`it is longer than ${MOST_MINUTES} minutes.`);
    }
    const channels = Array.from({ length: sound.numberOfChannels }, (_, i) => sound.getChannelData(i));
    const parts: BlobPart[] = [headerOf(sound.length)];
    for (let at = 0; at < sound.length; at += PIECE) {
        await new Promise((resolve) => setTimeout(resolve)); // the page goes on meanwhile
        parts.push(mix(channels.map((channel) => channel.subarray(at, at + PIECE))));
    }
    return new Blob(parts);
}
