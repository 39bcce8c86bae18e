// The serial cable between two tabs of the same browser that have given it the same name.

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
    const channel = new BroadcastChannel(`tovik-cable-${name}`);
    const self = `${Math.random()}`;
    const since = Date.now();
    const there = new Set<string>();
    let partner = '';
    const say = (said: Said): void => channel.postMessage(said);
    const leave = (): void => {
        if (partner !== '') {
            say({ kind: 'leave', from: self, to: partner });
        }
        removeEventListener('pagehide', leave);
        channel.close();
        clearTimeout(timer);
    };
    const timer = window.setTimeout(() => {
        if (there.size > 1) {
            leave();
            events.failed(`Two tabs are connected by the cable "${name}" already. Choose another name.`);
            return;
        }
        if (partner !== '') {
            return; // it has joined in the meantime
        }
        [partner = ''] = there;
        if (partner !== '') {
            say({ kind: 'join', from: self, to: partner });
        }
        events.opened(partner === '' ? '' : PARTNER);
    }, ANSWER_MS);
    channel.onmessage = ({ data }: MessageEvent<Said>) => {
        if (data.kind === 'hello') {
            if (since < data.since || (since === data.since && self < data.from)) {
                say({ kind: 'here', from: self, to: data.from });
            }
        } else if (data.to !== self) {
            return;
        } else if (data.kind === 'here') {
            there.add(data.from);
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
    addEventListener('pagehide', leave);
    say({ kind: 'hello', from: self, since });
    return {
        // What is sent while nobody is at the other end is lost, as with any cable.
        send(bytes) {
            if (partner !== '') {
                say({ kind: 'bytes', from: self, to: partner, bytes });
            }
        },
        close: leave,
    };
}
