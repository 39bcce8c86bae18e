// The serial cable between two tabs of the same browser that have given it the same name.

import { openChannel } from '../page/channel';

// A device at the other end of the line, or the cable. `close` is the program's wish.
export interface Line {
    send(bytes: Uint8Array): void;
    close(): void;
}

export interface LineEvents {
    opened(partner: string): void; // empty: nobody yet
    came(bytes: Uint8Array): void;
    failed(reason: string): void;
}

// Whoever comes says hello; whoever is there, or came before and waits for answers as well, says so. With one
// answer it joins that one, with two it is one too many.
type Said =
    | { kind: 'hello'; from: string; since: number }
    | { kind: 'here'; from: string; to: string }
    | { kind: 'join'; from: string; to: string }
    | { kind: 'leave'; from: string; to: string }
    | { kind: 'bytes'; from: string; to: string; bytes: Uint8Array };

const ANSWER_MS = 300;
const PARTNER = 'another tab';

export function openCable(name: string, events: LineEvents): Line {
    const self = `${Math.random()}`;
    const there = new Set<string>(); // who has answered
    let channel: BroadcastChannel | null = null;
    let partner = '';
    let timer = 0;
    const say = (said: Said): void => channel?.postMessage(said);
    const leave = (): void => {
        if (partner !== '') {
            say({ kind: 'leave', from: self, to: partner });
        }
        partner = '';
        there.clear();
        channel?.close();
        channel = null;
        clearTimeout(timer);
    };
    const connect = (): void => {
        channel = openChannel(`tovik-cable-${name}`);
        if (!channel) {
            fail('The browser does not let this page have a cable to another tab.');
            return;
        }
        const since = Date.now();
        channel.onmessage = ({ data }: MessageEvent<Said>) => hear(data, since);
        timer = window.setTimeout(join, ANSWER_MS);
        say({ kind: 'hello', from: self, since });
    };
    const join = (): void => {
        timer = 0;
        const answers = [...there];
        there.clear();
        if (partner !== '') {
            return; // it has joined in the meantime
        }
        if (answers.length > 1) {
            fail(`Two tabs are connected by the cable "${name}" already. Choose another name.`);
            return;
        }
        [partner = ''] = answers;
        if (partner !== '') {
            say({ kind: 'join', from: self, to: partner });
        }
        events.opened(partner === '' ? '' : PARTNER);
    };
    const hear = (data: Said, since: number): void => {
        if (data.kind === 'hello') {
            if (since < data.since || (since === data.since && self < data.from)) {
                say({ kind: 'here', from: self, to: data.from });
            }
        } else if (data.to !== self) {
            return;
        } else if (data.kind === 'here') {
            // A tab that is busy answers late, and another one may do so as well.
            there.add(data.from);
            timer ||= window.setTimeout(join, ANSWER_MS);
        } else if (data.kind === 'join') {
            // The partner until now, if there was one, has gone without a word.
            const isNew = partner !== data.from;
            partner = data.from;
            if (isNew) {
                events.opened(PARTNER);
            }
        } else if (data.from === partner && data.kind === 'bytes') {
            events.came(data.bytes);
        } else if (data.from === partner && data.kind === 'leave') {
            partner = '';
            events.opened('');
        }
    };
    // A page that is left may come back as it was.
    const comeBack = (event: PageTransitionEvent): void => {
        if (event.persisted) {
            connect();
        }
    };
    const close = (): void => {
        removeEventListener('pagehide', leave);
        removeEventListener('pageshow', comeBack);
        leave();
    };
    const fail = (reason: string): void => {
        close();
        events.failed(reason);
    };
    addEventListener('pagehide', leave);
    addEventListener('pageshow', comeBack);
    connect();
    return {
        // What is sent while nobody is at the other end is lost, as with any cable.
        send(bytes) {
            if (partner !== '') {
                say({ kind: 'bytes', from: self, to: partner, bytes });
            }
        },
        close,
    };
}
