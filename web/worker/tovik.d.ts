// What Emscripten makes of web/wasm/worker.cpp, as far as the worker uses it.

declare module '*/tovik-tail.js' {
    type Stream = { readonly fd: number };

    interface StreamOperations {
        write(
            stream: Stream,
            from: Uint8Array,
            offset: number,
            length: number,
            position: number,
            canOwn: boolean,
        ): number;
    }

    interface Tovik {
        HEAPU8: Uint8Array<ArrayBuffer>;
        FS: {
            mkdirTree(path: string): void;
            writeFile(path: string, bytes: Uint8Array): void;
            readFile(path: string): Uint8Array;
            unlink(path: string): void;
            rmdir(path: string): void;
            open(path: string, flags: 'r'): Stream;
            read(stream: Stream, into: Uint8Array, offset: number, length: number, position: number): number;
            close(stream: Stream): void;
            lookupPath(path: string): { node: { stream_ops: StreamOperations } };
            analyzePath(path: string): { exists: boolean; object: { mode: number } | null };
            isFile(mode: number): boolean;
        };
        UTF8ToString(pointer: number): string;
        stringToUTF8(text: string, pointer: number, most: number): void;
        lengthBytesUTF8(text: string): number;
        _malloc(bytes: number): number;
        _free(pointer: number): void;
        _language_take(message: number): number;
        _board_take(message: number): number;
        _board_run(nowUs: number, speakerUs: number): number;
        _board_next_ms(): number;
        _board_waits(): number;
        _screen_take(): number;
        _screen_box(): number;
        _screen_pixels(): number;
        _speaker_hear(on: boolean): void;
        _speaker_samples(): number;
        _speaker_count(): number;
        _speaker_clear(): void;
        _microphone_attach(on: boolean): void;
        _microphone_put(samples: number, count: number): void;
        _camera_attach(on: boolean): void;
        _camera_put(yuyv: number, count: number): void;
        _camera_keeps(): number;
        _line_wanted(): number;
        _line_wanted_name(): number;
        _line_times(): number;
        _line_opened(partner: number): void;
        _line_failed(reason: number): void;
        _line_put(bytes: number, count: number): void;
        _line_sent(): number;
        _line_sent_count(): number;
        _line_clear(): void;
    }

    export default function createTovik(options: {
        instantiateWasm(
            imports: WebAssembly.Imports,
            receive: (instance: WebAssembly.Instance) => void,
        ): Record<string, never>;
        print(line: string): void;
        printErr(line: string): void;
    }): Promise<Tovik>;
}
