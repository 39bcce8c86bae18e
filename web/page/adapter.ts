// A client of the debug adapter: requests that are promises, and events.

import type { Server } from './workers';

export type Json = null | boolean | number | string | Json[] | { [name: string]: Json };
export type Body = { [name: string]: Json };

export class RequestFailed extends Error {
    constructor(
        message: string,
        readonly id: number, // of the error; 2: the question about the card comes first, 3: given up
    ) {
        super(message);
    }
}

export interface Adapter {
    request(command: string, arguments_?: Body): Promise<Body>;
    last(): number; // of the requests
    on(event: string, heard: (body: Body) => void): void;
    take(text: string): void; // a message of the adapter's
    end(reason: string): void; // what was asked fails
}

interface Answer {
    type: 'response';
    request_seq: number;
    success: boolean;
    message?: string;
    body?: Body;
}

interface Happening {
    type: 'event';
    event: string;
    body?: Body;
}

export function makeAdapter(server: Server): Adapter {
    const waiting = new Map<number, { resolve(body: Body): void; reject(error: Error): void }>();
    const listeners = new Map<string, ((body: Body) => void)[]>();
    let seq = 0;
    return {
        request(command, arguments_ = {}) {
            seq += 1;
            const number = seq;
            const promise = new Promise<Body>((resolve, reject) => waiting.set(number, { resolve, reject }));
            const text = JSON.stringify({ seq: number, type: 'request', command, arguments: arguments_ });
            server.post({ kind: 'message', text });
            return promise;
        },
        last: () => seq,
        on(event, heard) {
            listeners.set(event, [...(listeners.get(event) ?? []), heard]);
        },
        take(text) {
            const message = JSON.parse(text) as Answer | Happening;
            if (message.type === 'event') {
                listeners.get(message.event)?.forEach((heard) => heard(message.body ?? {}));
                return;
            }
            const asked = waiting.get(message.request_seq);
            waiting.delete(message.request_seq);
            if (message.success) {
                asked?.resolve(message.body ?? {});
            } else {
                const error = message.body?.['error'] as { id?: number } | undefined;
                asked?.reject(new RequestFailed(message.message ?? 'it failed', error?.id ?? 0));
            }
        },
        end(reason) {
            waiting.forEach((asked) => asked.reject(new RequestFailed(reason, 0)));
            waiting.clear();
        },
    };
}
