// The two workers of the page, and messages to and from their servers.

import type { FromWorker, Role, ToWorker } from '../worker/protocol';

export interface Server {
    role: Role;
    post(message: ToWorker, transfer?: Transferable[]): void;
    end(): void;
}

// Starts a worker. `heard` gets all that it says, `failed` among it; after that it is at its end.
export function startServer(
    role: Role,
    program: WebAssembly.Module,
    source: string, // of the worker, as a URL
    heard: (message: FromWorker) => void,
): Server {
    const worker = new Worker(source);
    let over = false;
    const end = (): void => {
        over = true;
        worker.terminate();
    };
    const fail = (reason: string): void => {
        if (!over) {
            end();
            heard({ kind: 'failed', reason });
        }
    };
    worker.onmessage = (event: MessageEvent<FromWorker>) => {
        if (event.data.kind === 'failed') {
            fail(event.data.reason);
        } else if (!over) {
            heard(event.data);
        }
    };
    worker.onerror = (event) => fail(event.message || 'the worker could not be started');
    const post = (message: ToWorker, transfer: Transferable[] = []): void => {
        if (!over) {
            worker.postMessage(message, transfer);
        }
    };
    post({ kind: 'start', role, program });
    return { role, post, end };
}
