// What runs in the page's workers: one of the servers of the WebAssembly program, and, beside that of the
// board, the doors between it and the page.

import { makeBoard } from './board';
import { readFile, takeFile } from './files';
import { withText } from './memory';
import { reasonOf, startProgram, type Tovik } from './program';
import type { FromWorker, Role, ToWorker } from './protocol';

interface Server {
    take(message: ToWorker): void; // all but files
}

const scope = self as unknown as {
    onmessage: ((event: MessageEvent<ToWorker>) => void) | null;
    postMessage(message: FromWorker, transfer: Transferable[]): void;
};

function tell(message: FromWorker, transfer: Transferable[] = []): void {
    scope.postMessage(message, transfer);
}

function makeLanguageServer(tovik: Tovik): Server {
    return {
        take(message) {
            if (message.kind === 'message') {
                const answers = withText(tovik, message.text, (text) => tovik._language_take(text));
                tellLines(tovik.UTF8ToString(answers));
            }
        },
    };
}

function tellLines(lines: string): void {
    for (const text of lines.split('\n')) {
        if (text !== '') {
            tell({ kind: 'message', text });
        }
    }
}

function fail(error: unknown): void {
    scope.onmessage = null;
    tell({ kind: 'failed', reason: reasonOf(error) });
}

// What comes while the program is being started waits.
async function start(role: Role, program: WebAssembly.Module): Promise<void> {
    const waiting: ToWorker[] = [];
    scope.onmessage = (event) => waiting.push(event.data);
    const tovik = await startProgram(program);
    const server = role === 'language' ? makeLanguageServer(tovik) : makeBoard(tovik, tell, tellLines, fail);
    const take = (message: ToWorker): void => {
        try {
            if (message.kind === 'file') {
                takeFile(tovik, message.path, message.bytes);
            } else if (message.kind === 'read') {
                tell({ kind: 'file', path: message.path, bytes: readFile(tovik, message.path) });
            } else {
                server.take(message);
            }
        } catch (error) {
            fail(error);
        }
    };
    scope.onmessage = (event) => take(event.data);
    tell({ kind: 'ready' });
    waiting.forEach(take);
}

scope.onmessage = (event) => {
    if (event.data.kind === 'start') {
        start(event.data.role, event.data.program).catch(fail);
    }
};
