// What the page and its two workers say to each other. Both workers run the same program: one is the language
// server, the other is the board with its debug adapter. What these two understand as text stands in
// docs/tovik-dap.md and in the Language Server Protocol; here is what goes past them.

export type Role = 'language' | 'board';

// A file in the worker's own file system; paths are absolute. `bytes` of null: it is not there.
export interface FileMessage {
    kind: 'file';
    path: string;
    bytes: Uint8Array | null;
}

// Some of what the program has written to a file. Its parts belong together once no more comes.
export interface FileChange {
    kind: 'changed';
    path: string;
    parts: FilePart[];
    more: boolean;
}

// Bytes of a file, from a place on.
export interface FilePart {
    at: number;
    bytes: Uint8Array<ArrayBuffer>;
}

export type ToWorker =
    // Comes first. `program` is the WebAssembly program.
    | { kind: 'start'; role: Role; program: WebAssembly.Module }
    // For the server, as JSON.
    | { kind: 'message'; text: string }
    // Writes or removes a file.
    | FileMessage
    // Asks for a file; the answer is a `file`.
    | { kind: 'read'; path: string }
    // The loudspeaker, or null for none. Through the port it says how many samples it wants next, as a number;
    // the worker sends them as Int16Array, 8000 a second.
    | { kind: 'speaker'; port: MessagePort | null }
    // The microphone, or null for none. It sends its samples as Int16Array, 8000 a second.
    | { kind: 'microphone'; port: MessagePort | null }
    // Whether there is a camera; its newest frame, 640x480 in YUYV.
    | { kind: 'camera'; on: boolean }
    | { kind: 'frame'; yuyv: Uint8Array }
    // The serial line: who is at its other end, once it is open (empty: nobody yet); what has come; why it
    // cannot be opened, or is no longer there.
    | { kind: 'lineOpened'; partner: string }
    | { kind: 'lineIn'; bytes: Uint8Array }
    | { kind: 'lineFailed'; reason: string };

export type FromWorker =
    | { kind: 'ready' }
    // Of the server, as JSON.
    | { kind: 'message'; text: string }
    // A file that was asked for.
    | FileMessage
    // What the program has written to a file that came: to the SD card.
    | FileChange
    // What has changed on the screen: its pixels row by row, in RGBA.
    | {
          kind: 'screen';
          x: number;
          y: number;
          width: number;
          height: number;
          rgba: Uint8ClampedArray<ArrayBuffer>;
      }
    // The program has taken the frame: the next one may come.
    | { kind: 'frameTaken' }
    // What the program wants of the serial line.
    | { kind: 'lineOpen'; line: 'device' | 'cable' | 'closed'; name: string }
    | { kind: 'lineOut'; bytes: Uint8Array }
    // The worker is at its end; nothing more comes from it.
    | { kind: 'failed'; reason: string };
