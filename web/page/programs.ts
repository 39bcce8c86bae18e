// What the user does with programs and files: opening, making, deleting, saving, sharing.

import { forgetKept } from '../debug/kept';
import { ask, showExamples, showLink, showPrograms, showSavePage, showVersions } from './dialogs';
import type { Examples } from './dialogs';
import { chooseFiles, download, placeKey, rememberOrigins, saveFile, saveFolder } from './disk';
import { textOf } from './documents';
import { readFiles } from './filebar';
import { attempt } from './parts';
import type { Messages } from './parts';
import { newProgram } from './program';
import type { Files, Given, Program } from './program';
import { faultOf, givenInLink, givenInPage, linkOf, markOf, pageWith } from './share';
import { sameFiles } from './files';
import { remembered } from './store';
import type { Store } from './store';
import { isLong } from './task';
import type { Workspace } from './workspace';

const FIRST = 'counter.k'; // the example of the first visit

export interface Programs {
    // Opens what the page has to begin with. True: it is the first visit.
    begin(store: Store): Promise<boolean>;
    openLink(): Promise<boolean>;
    openFiles(files: readonly File[]): Promise<void>; // as a new program
    addFiles(files: readonly File[]): Promise<void>; // to this one
    choosePrograms(): Promise<void>;
    chooseExample(): void;
    chooseFiles(): Promise<void>;
    create(): void;
    saveFile(elsewhere: boolean): Promise<void>; // where it is not yet, or where it is known to be
    saveFolder(): Promise<void>;
    savePage(): void;
    share(): Promise<void>;
    versions(): Promise<void>;
    startAgain: (() => void) | null; // from the program that came with the page
}

export interface ProgramsOptions {
    workspace: Workspace;
    messages: Messages;
    examples: Examples;
    stop(): Promise<void>; // ends the program that runs
}

const BLANK: Given = { name: 'Program', files: new Map([['main.k', '']]), main: 'main.k', text: '' };

// The file that no other one includes, or the first one.
function mainOf(files: Files): string {
    const included = [...files.values()].flatMap((text) =>
        [...text.matchAll(/^#include\s+(\S+)/gm)].map(([, name]) => name),
    );
    const names = [...files.keys()];
    return names.find((name) => !included.includes(name)) ?? names[0] ?? '';
}

export function makePrograms({ workspace, messages, examples, stop }: ProgramsOptions): Programs {
    const { editor } = workspace;
    let store: Store | null = null;
    const all = async (): Promise<Program[]> => (await store?.all()) ?? [];
    // Those that are not deleted, the one that was changed last first.
    const present = async (): Promise<Program[]> =>
        (await all()).filter(({ deleted }) => deleted === null).sort((a, b) => b.changed - a.changed);

    const open = async (program: Program): Promise<void> => {
        await stop().catch(() => undefined);
        await workspace.open(program);
    };
    const openNew = async (given: Given, from: string | null = null): Promise<void> => {
        const names = (await present()).map(({ name }) => name);
        await open(newProgram(given, from, names));
    };
    // The same in answer to a press.
    const choose = (given: Given, from: string | null = null): void =>
        attempt(messages, () => openNew(given, from));
    const create = (): void => {
        ask(
            'New program',
            'Name',
            'My program',
            'Make it',
            (name) => (name === '' ? 'It needs a name.' : null),
            (name) => {
                attempt(messages, async () => {
                    await openNew({ ...BLANK, name });
                    editor.current()?.view?.focus();
                });
            },
        );
    };
    const exampleOf = ({ name, text }: { name: string; text: string }): Given => ({
        name: name.replace(/\.k$/, ''),
        files: new Map([[name, text]]),
        main: name,
        text: '',
    });

    // Opens what came with a link or a page: the user's own, if there is one that came with it.
    const openGiven = async (
        given: Given,
        mark: string,
        known: (program: Program) => boolean,
    ): Promise<void> => {
        const mine = (await present()).find((program) => program.from === mark && known(program));
        await (mine === undefined ? openNew(given, mark) : open(mine));
    };
    const openLink = async (): Promise<boolean> => {
        const given = await givenInLink(location.hash);
        if (given === null) {
            return false;
        }
        history.replaceState(null, '', location.href.split('#')[0]);
        if (typeof given === 'string') {
            messages.say(given, 'fault');
            return false;
        }
        // One that has not been touched since is the same.
        await openGiven(given, markOf(given), (program) => sameFiles(program.files, given.files));
        messages.say(`“${workspace.program().name}” comes with the link. It is beside your own programs.`);
        return true;
    };
    const openPage = async (): Promise<boolean> => {
        const given = givenInPage();
        if (given === null) {
            return false;
        }
        if (typeof given === 'string') {
            messages.say(given, 'fault');
            return false;
        }
        const mark = markOf(given);
        const before = (await present()).some(({ from }) => from === mark);
        programs.startAgain = () => choose(given, mark);
        await openGiven(given, mark, () => true);
        if (before) {
            const again = {
                text: 'Start again from the given program',
                chosen: () => choose(given, mark),
            };
            messages.say('You go on with your own work on this page.', 'note', [again]);
        }
        return true;
    };

    const programs: Programs = {
        startAgain: null,
        async begin(opened) {
            store = opened;
            const kept = await present();
            if (!store.kept) {
                messages.say(store.about, 'warning');
                addEventListener('beforeunload', (event) => event.preventDefault());
            }
            if ((await openLink()) || (await openPage())) {
                return false;
            }
            const last = kept.find(({ id }) => id === remembered('last')) ?? kept[0];
            const first = examples.examples.find(({ name }) => name === FIRST);
            await (last !== undefined ? open(last) : openNew(first === undefined ? BLANK : exampleOf(first)));
            return last === undefined;
        },
        openLink,
        async openFiles(list) {
            const files = await readFiles(list, messages);
            if (files.size > 0) {
                const main = mainOf(files);
                await openNew({ name: main.replace(/\.k$/, ''), files, main, text: '' });
                rememberOrigins(workspace.program().id, list);
            }
        },
        async addFiles(list) {
            workspace.addFiles(await readFiles(list, messages));
        },
        async choosePrograms() {
            const current = workspace.program();
            await workspace.save();
            const change = async (program: Program, deleted: number | null): Promise<void> =>
                store?.update(program.id, (stored) =>
                    stored === null
                        ? null
                        : { program: { ...stored, deleted, revision: stored.revision + 1 }, versions: [] },
                );
            const restore = (program: Program): void =>
                attempt(messages, async () => {
                    await change(program, null);
                    await open({ ...program, deleted: null });
                });
            const remove = async (program: Program): Promise<void> => {
                await change(program, Date.now());
                if (program.id === workspace.program().id) {
                    const [other] = await present();
                    await (other === undefined ? openNew(BLANK) : open(other));
                }
                const undo = { text: 'Undo', chosen: () => restore(program) };
                messages.say(`“${program.name}” is among the recently deleted programs now.`, 'note', [undo]);
            };
            showPrograms({
                all: await all(),
                current: current.id,
                about: store?.about ?? '',
                open: (program) => attempt(messages, () => open(program)),
                create,
                fromDisk: () => attempt(messages, programs.chooseFiles),
                remove: (program) => attempt(messages, () => remove(program)),
                restore,
                destroy: (program, done) =>
                    attempt(messages, async () => {
                        await store?.remove(program.id);
                        forgetKept(program.id);
                        done();
                    }),
            });
        },
        chooseExample: () => showExamples(examples, (example) => choose(exampleOf(example))),
        chooseFiles: async () => programs.openFiles(await chooseFiles()),
        create,
        async saveFile(elsewhere) {
            const document = editor.current();
            const key = placeKey(workspace.program().id, document?.name ?? '');
            if (document !== null && (await saveFile(key, document.name, textOf(document), elsewhere))) {
                messages.say(`${document.name} is saved as a file.`);
            }
        },
        async saveFolder() {
            const { files } = workspace.program();
            if (await saveFolder(files)) {
                messages.say(`${files.size} ${files.size === 1 ? 'file is' : 'files are'} saved.`);
            }
        },
        savePage() {
            const asked = workspace.program();
            showSavePage(asked, (name, text) => {
                const now = workspace.program();
                const isOpen = now.id === asked.id; // a link may have opened another one
                const given = { ...(isOpen ? now : asked), name, text };
                const fault = faultOf(given);
                if (fault !== null) {
                    return `It cannot be saved as a page: ${fault}.`;
                }
                if (isLong(text)) {
                    return 'An assignment has at most 32 KiB, and pictures in it.';
                }
                if (isOpen) {
                    workspace.setTask(text);
                }
                download(`${name.replace(/[\\/:*?"<>|]/g, '-')}.html`, pageWith(given), 'text/html');
                return null;
            });
        },
        async share() {
            const fault = faultOf(workspace.program());
            if (fault !== null) {
                messages.say(`There is no link to this program: ${fault}.`, 'warning');
                return;
            }
            const link = await linkOf(workspace.program());
            if (link === null) {
                messages.say('A link carries at most 1 MiB. Save this program as a page instead.', 'warning');
                return;
            }
            const copied = await (navigator.clipboard?.writeText(link) ?? Promise.reject(new Error())).then(
                () => true,
                () => false,
            );
            showLink(link, copied, programs.savePage);
        },
        async versions() {
            await workspace.save();
            const versions = (await store?.versions(workspace.program().id)) ?? [];
            showVersions(versions, (version) => workspace.restore(version));
        },
    };
    return programs;
}
