// The WebAssembly program in this worker. Both kinds of it, with and without tail calls, have the same glue.

import createTovik from '../../build/web/wasm/tovik-tail.js';

export type Tovik = Awaited<ReturnType<typeof createTovik>>;

let lastWords = '';

// Starts it.
export function startProgram(program: WebAssembly.Module): Promise<Tovik> {
    return new Promise((resolve, reject) => {
        const instantiateWasm = (
            imports: WebAssembly.Imports,
            receive: (instance: WebAssembly.Instance) => void,
        ): Record<string, never> => {
            WebAssembly.instantiate(program, imports).then(receive, reject);
            return {};
        };
        const printErr = (line: string): void => {
            lastWords = line;
        };
        createTovik({ instantiateWasm, print: () => {}, printErr }).then(resolve, reject);
    });
}

// Why it has come to its end, as far as can be said. An exception of C++ is only a number here.
export function reasonOf(error: unknown): string {
    const said = error instanceof Error ? error.message : '';
    return [said, lastWords].filter((text) => text !== '').join(': ') || 'the program has failed';
}
