// Where programs are kept: the browser's database, or only memory where it refuses that.

import type { Program } from './program';

// A state of a file that came before.
export interface Version {
    program: string; // its id
    file: string;
    when: number; // in milliseconds
    text: string;
}

export interface Store {
    kept: boolean; // false: all is gone with the page
    about: string; // a sentence on that
    all(): Promise<Program[]>;
    // Changes a program at one go, whatever other tabs do: `change` gets it as it is kept, null for a new one,
    // and returns its next state with versions to be kept beside it, or null for no change.
    update(id: string, change: (stored: Program | null) => Change | null): Promise<void>;
    remove(id: string): Promise<void>;
    versions(id: string): Promise<Version[]>; // the newest first
}

export interface Change {
    program: Program;
    versions: Version[];
}

const MOST_VERSIONS = 20; // of a file
const PATIENCE = 10_000; // milliseconds until the browser has to give its database
const SLOW = 'it does not answer';
const NEWER = 'its programs are those of a newer tovik';

// Fails where the database does.
export function settled<T>(request: IDBRequest<T>): Promise<T> {
    return new Promise((resolve, reject) => {
        request.onsuccess = () => resolve(request.result);
        request.onerror = () => reject(request.error ?? new Error('the database fails'));
    });
}

function finished(transaction: IDBTransaction): Promise<void> {
    return new Promise((resolve, reject) => {
        transaction.oncomplete = () => resolve();
        const fail = (): void => reject(transaction.error ?? new Error('the database fails'));
        transaction.onabort = fail;
        transaction.onerror = fail;
    });
}

function openDatabase(): Promise<IDBDatabase> {
    return new Promise((resolve, reject) => {
        const request = indexedDB.open('tovik', 1);
        let isLate = false;
        const timer = setTimeout(() => {
            isLate = true;
            reject(new Error(SLOW));
        }, PATIENCE);
        request.onupgradeneeded = () => {
            request.result.createObjectStore('programs', { keyPath: 'id' });
            request.result.createObjectStore('versions', { keyPath: ['program', 'file', 'when'] });
        };
        request.onsuccess = () => {
            if (isLate) {
                request.result.close();
                return;
            }
            clearTimeout(timer);
            request.result.onversionchange = () => request.result.close(); // a newer tovik waits for that
            resolve(request.result);
        };
        request.onerror = () => {
            clearTimeout(timer);
            const isNewer = request.error?.name === 'VersionError';
            reject(isNewer ? new Error(NEWER) : (request.error ?? new Error('the database fails')));
        };
    });
}

const ofProgram = (id: string): IDBKeyRange => IDBKeyRange.bound([id], [id, []]);

// Adds a version, and removes those of its file that are too many.
function addVersion(versions: IDBObjectStore, version: Version): void {
    versions.put(version);
    const { program, file } = version;
    const keys = versions.getAllKeys(IDBKeyRange.bound([program, file], [program, file, []]));
    keys.onsuccess = () => keys.result.slice(0, -MOST_VERSIONS).forEach((key) => versions.delete(key));
}

function databaseStore(database: IDBDatabase): Store {
    const open = (mode: IDBTransactionMode): IDBTransaction =>
        database.transaction(['programs', 'versions'], mode, { durability: 'relaxed' });
    const begin = async (mode: IDBTransactionMode): Promise<IDBTransaction> => {
        try {
            return open(mode);
        } catch {
            database = await openDatabase(); // the browser has closed it, as it may at any time
            return open(mode);
        }
    };
    return {
        kept: true,
        about: 'Your programs are kept in this browser, on this computer.',
        all: async () =>
            settled((await begin('readonly')).objectStore('programs').getAll()) as Promise<Program[]>,
        async update(id, change) {
            const transaction = await begin('readwrite');
            const programs = transaction.objectStore('programs');
            const read = programs.get(id) as IDBRequest<Program | undefined>;
            read.onsuccess = () => {
                const made = change(read.result ?? null);
                if (made !== null) {
                    programs.put(made.program);
                    made.versions.forEach((version) =>
                        addVersion(transaction.objectStore('versions'), version),
                    );
                }
            };
            return finished(transaction);
        },
        async remove(id) {
            const transaction = await begin('readwrite');
            transaction.objectStore('programs').delete(id);
            transaction.objectStore('versions').delete(ofProgram(id));
            return finished(transaction);
        },
        async versions(id) {
            const versions = (await begin('readonly')).objectStore('versions');
            const list = settled(versions.getAll(ofProgram(id)));
            return ((await list) as Version[]).sort((a, b) => b.when - a.when);
        },
    };
}

function memoryStore(reason: string): Store {
    const programs = new Map<string, Program>();
    let versions: Version[] = [];
    return {
        kept: false,
        about: `This browser keeps nothing for this page${reason}. Save your programs as files before you close it.`,
        all: () => Promise.resolve([...programs.values()]),
        update(id, change) {
            const made = change(programs.get(id) ?? null);
            if (made !== null) {
                programs.set(id, made.program);
                versions = [...made.versions, ...versions];
            }
            return Promise.resolve();
        },
        remove(id) {
            programs.delete(id);
            versions = versions.filter((version) => version.program !== id);
            return Promise.resolve();
        },
        versions: (id) => Promise.resolve(versions.filter((version) => version.program === id)),
    };
}

export async function openStore(): Promise<Store> {
    try {
        return databaseStore(await openDatabase());
    } catch (error) {
        const reason = error instanceof Error ? error.message : '';
        return memoryStore([SLOW, NEWER].includes(reason) ? `: ${reason}` : '');
    }
}

// Small things that the page remembers, such as the sizes of its parts. They are no loss.
export function remember(name: string, value: string | null): void {
    try {
        if (value === null) {
            localStorage.removeItem(`tovik-${name}`);
        } else {
            localStorage.setItem(`tovik-${name}`, value);
        }
    } catch {
        // Not allowed here, or full.
    }
}

export function remembered(name: string): string | null {
    try {
        return localStorage.getItem(`tovik-${name}`);
    } catch {
        return null;
    }
}

export function rememberedNames(beginning: string): string[] {
    try {
        return Object.keys(localStorage)
            .filter((key) => key.startsWith(`tovik-${beginning}`))
            .map((key) => key.slice('tovik-'.length));
    } catch {
        return [];
    }
}
