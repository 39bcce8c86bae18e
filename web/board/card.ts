// The SD card. The browser keeps it from one visit to the next.

import { openChannel } from '../page/channel';
import { element } from '../page/dom';
import { button } from '../page/parts';
import { settled } from '../page/store';
import type { FileChange, FilePart } from '../worker/protocol';
import { download, makeFileSlot, type FileSlot, type Held } from './rows';

const STORE = 'cards';
const KEY = 'inserted';

async function withStore<Result>(use: (store: IDBObjectStore) => IDBRequest<Result>): Promise<Result> {
    const opening = indexedDB.open('tovik-card', 1);
    opening.onupgradeneeded = () => opening.result.createObjectStore(STORE);
    const database = await settled(opening);
    try {
        return await settled(use(database.transaction(STORE, 'readwrite').objectStore(STORE)));
    } finally {
        database.close();
    }
}

// Both fail where the browser keeps nothing.
async function loadCard(): Promise<Held | null> {
    const card: Held | undefined = await withStore((store) => store.get(KEY));
    return card ?? null;
}

async function storeCard(card: Held | null): Promise<void> {
    await (card ? withStore((store) => store.put(card, KEY)) : withStore((store) => store.delete(KEY)));
}

// Only what is new is copied.
function withParts(content: Blob, parts: readonly FilePart[]): Blob {
    const pieces: BlobPart[] = [];
    let end = 0;
    for (const { at, bytes } of parts) {
        pieces.push(content.slice(end, at), bytes);
        end = at + bytes.length;
    }
    return new Blob([...pieces, content.slice(end)]);
}

const MIB = 1024 * 1024;
const SIZES = [1, 8, 64]; // of a new card, in MiB

export interface CardSlot extends FileSlot {
    loaded: Promise<void>; // what was kept is there
    changed(change: FileChange): void; // the program has written to it
}

export function makeCardSlot(give: (slot: FileSlot) => void): CardSlot {
    let former: (Held & { path: string }) | null = null; // that was taken out
    let isKept = true;
    let isBusy = false;
    // There is one card for all tabs.
    const others = openChannel('tovik-card');
    others?.addEventListener('message', () => {
        if (slot.held()) {
            slot.say('The browser keeps the card of another tab now: download this one before you leave.');
        }
    });
    // A program may write faster than the browser keeps.
    const keep = async (): Promise<void> => {
        isKept = false;
        while (!isKept && !isBusy) {
            isKept = isBusy = true;
            try {
                await storeCard(slot.held());
                others?.postMessage(null);
            } catch {
                slot.say('The browser does not keep the card: download it before you leave.');
            }
            isBusy = false;
        }
    };
    const put = (held: Held | null): void => {
        slot.put(held);
        size.hidden = create.hidden = held !== null;
        save.hidden = remove.hidden = held === null;
        back.hidden = held !== null || former === null;
    };
    const size = element(
        'select',
        { 'aria-label': 'Size of a new card' },
        ...SIZES.map((mib) => element('option', { value: mib }, `${mib} MB`)),
    );
    const create = button('New empty card', () => {
        slot.fill({ name: 'card.img', content: new Blob([new Uint8Array(Number(size.value) * MIB)]) });
    });
    const save = button('Download', () => {
        const held = slot.held();
        if (held) {
            download(held.name, held.content);
        }
    });
    const remove = button('Take out', () => {
        const held = slot.held();
        former = held && { ...held, path: slot.path() };
        put(null);
        void keep();
    });
    const back = button('Put it back', () => {
        if (former) {
            const { name, content } = former;
            slot.fill({ name, content }, true);
        }
    });
    const slot = makeFileSlot(
        {
            name: 'SD card',
            prefix: 'card',
            kinds: '',
            most: 64 * MIB,
            mostText: 'A card has at most 64 MB.',
            convert: (file) => Promise.resolve(file),
        },
        () => {
            put(slot.held());
            void keep();
            give(slot);
        },
        create,
        size,
        save,
        remove,
        back,
    );
    put(null);
    const loaded = loadCard().then(
        (kept) => {
            if (kept && !slot.held()) {
                put(kept);
            }
        },
        () => slot.say('This browser keeps no card from one visit to the next.'),
    );
    return {
        ...slot,
        loaded,
        changed({ path, parts, more }) {
            const held = slot.held();
            if (held && path === slot.path()) {
                put({ name: held.name, content: withParts(held.content, parts) });
                if (!more) {
                    void keep();
                }
            } else if (former && path === former.path) {
                former.content = withParts(former.content, parts); // what was written last comes a little later
            }
        },
    };
}
