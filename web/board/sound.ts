// Sound files for the board's microphone.

const RATE = 8000;
export const HEADER_BYTES = 68;

// Whether a file has a WAV header of the length that the board's kind has. If anything in it is wrong, the board
// says what.
function isForTheBoard(bytes: Uint8Array): boolean {
    const text = String.fromCharCode(...bytes.subarray(0, 16));
    return text.startsWith('RIFF') && text.slice(8) === 'WAVEfmt ' && bytes[16] === 40;
}

// One channel of signed samples of 32 bits, 8000 a second; those of `samples` lie from -1 to 1.
export function wavOf(samples: Float32Array): Uint8Array {
    const view = new DataView(new ArrayBuffer(HEADER_BYTES + samples.length * 4));
    const text = (at: number, value: string): void =>
        [...value].forEach((c, i) => view.setUint8(at + i, c.charCodeAt(0)));
    text(0, 'RIFF');
    view.setUint32(4, view.byteLength - 8, true);
    text(8, 'WAVEfmt ');
    [40, 0x1fffe, RATE, RATE * 4, 0x200004, 0x200016, 4, 1, 0x100000, 0xaa000080, 0x719b3800].forEach(
        (value, i) => view.setUint32(16 + i * 4, value, true),
    );
    text(60, 'data');
    view.setUint32(64, samples.length * 4, true);
    samples.forEach((sample, i) =>
        view.setInt32(HEADER_BYTES + i * 4, Math.round(Math.min(Math.max(sample, -1), 1) * 0x7fffffff), true),
    );
    return new Uint8Array(view.buffer);
}

// Any sound that the browser can play, as the board takes it.
export async function boardSound(bytes: Uint8Array<ArrayBuffer>): Promise<Uint8Array> {
    if (isForTheBoard(bytes)) {
        return bytes;
    }
    const decoder = new OfflineAudioContext(1, 1, RATE);
    const sound = await decoder.decodeAudioData(bytes.buffer);
    const mixed = new Float32Array(sound.length);
    for (let channel = 0; channel < sound.numberOfChannels; channel += 1) {
        sound.getChannelData(channel).forEach((sample, i) => {
            mixed[i] = (mixed[i] ?? 0) + sample / sound.numberOfChannels;
        });
    }
    return wavOf(mixed);
}
