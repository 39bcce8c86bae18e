// The page begins here: first what one sees, then the user's programs, then the workers.

import { element } from './dom';
import { chooseForDropped, helpButton, showLicenses } from './dialogs';
import type { Examples, Help } from './dialogs';
import { acceptDrops } from './disk';
import { compileProgram, workerSource } from './engine';
import { makeFileBar } from './filebar';
import { keepJournals } from './files';
import { makeMachine, makeMirror } from './machine';
import { makeMenus } from './menus';
import { attempt, button, makeMessages } from './parts';
import { makePrograms } from './programs';
import type { Files } from './program';
import { makeShell, themeButton } from './shell';
import { openStore } from './store';
import { showTask } from './task';
import { startServer } from './workers';
import type { Server } from './workers';
import { makeWorkspace } from './workspace';

const MIRROR_PAUSE = 500; // milliseconds without a key

// Of the page's own text. What stands behind this script is there once the page is read.
const part = (id: string): string => document.getElementById(id)?.textContent ?? '';

const examples = JSON.parse(part('tovik-examples')) as Examples;
const library = new Map(Object.entries(examples.library));
const messages = makeMessages();

const workspace = makeWorkspace({
    library,
    messages,
    extension: (path) => machine.debug.extension(path),
    forgotten: (path) => machine.debug.forget(path),
    renamed: (path, newPath) => machine.debug.renamed(path, newPath),
    opened(program) {
        mirror(program.files);
        document.title = `${program.name} - tovik`;
        if (program.id !== shownId) {
            shownId = program.id;
            hint.hidden = true; // it is about the first one
            machine.debug.opened(program.id);
            machine.resetSwitches();
            shell.seeEditor();
        }
        if (program.text !== shownTask) {
            shownTask = program.text;
            shell.setTask(program.text.trim() === '' ? null : showTask(program.text));
        }
    },
    edited() {
        hint.remove();
        clearTimeout(mirrorTimer);
        mirrorTimer = window.setTimeout(() => mirror(workspace.program().files), MIRROR_PAUSE);
    },
});
let shownId = '';
let shownTask = '';
let mirrorTimer = 0;
let revive: () => void = () => undefined; // starts the board's worker again, if it has ended
let mirror: (files: Files) => void = () => undefined; // into the language server's files

const machine = makeMachine({
    library,
    sources: () => ({ files: workspace.program().files, main: workspace.main() }),
    show: (path) => workspace.show(path),
    seeSource: () => shell.seeEditor(),
    say: (sentence, kind) => messages.say(sentence, kind),
    revive: () => revive(),
    seePanel: (id) => shell.seePanel(id),
    started() {
        hint.remove();
        shell.seeBoard();
    },
    // What can be done about it stands in the list.
    refused() {
        const { editor } = workspace;
        if (editor.current()?.problems.some(({ severity }) => severity === 1)) {
            editor.problems();
        }
    },
});

const programs = makePrograms({ workspace, messages, examples, stop: () => machine.debug.stop() });
const hint = element('p', { class: 'hint-first', hidden: true });
const shell = makeShell({
    name: workspace.nameInput,
    menus: [
        ...makeMenus(workspace, programs, messages),
        helpButton(() => JSON.parse(part('tovik-help')) as Help),
        themeButton(),
    ],
    controls: [machine.debug.controls, machine.debug.timeline],
    notes: [machine.debug.message, hint],
    fileBar: makeFileBar(workspace, messages),
    editor: workspace.editor.element,
    status: workspace.status,
    panels: machine.panels,
    board: machine.board,
    messages: messages.element,
});
workspace.status.append(button('Licenses', () => showLicenses(part('tovik-licenses')), { class: 'quiet' }));

async function begin(): Promise<void> {
    const store = await openStore();
    await keepJournals(store);
    workspace.begin(store);
    if (await programs.begin(store)) {
        hint.textContent =
            'This program counts on the red lamps. Press Start and watch them. ' +
            'The screen shows noise then: the program does not draw on it.';
        hint.hidden = false;
    }
    const openLink = (): void => attempt(messages, programs.openLink);
    addEventListener('hashchange', openLink);
    openLink(); // one that has come while the page began
    acceptDrops((files) => {
        if (document.querySelector('dialog[open]') !== null) {
            messages.say('Close the window first, and drop the files then.', 'warning');
            return;
        }
        chooseForDropped(files, workspace.program().name, {
            openFiles: () => attempt(messages, () => programs.openFiles(files)),
            addFiles: () => attempt(messages, () => programs.addFiles(files)),
        });
    });
}

async function startWorkers(): Promise<void> {
    // The workers' program stands behind this script in the page.
    if (document.readyState === 'loading') {
        await new Promise((resolve) =>
            document.addEventListener('DOMContentLoaded', resolve, { once: true }),
        );
    }
    if (typeof DecompressionStream === 'undefined') {
        throw new Error('this browser is too old. Firefox 113, Chrome 113 and Safari 16.4 are not');
    }
    const source = workerSource();
    const program = await compileProgram();

    const startLanguage = (): void => {
        const server: Server = startServer('language', program, source, (message) => {
            if (message.kind === 'message') {
                workspace.language.take(message.text);
            } else if (message.kind === 'ready') {
                mirror = makeMirror(server, library);
                mirror(workspace.program().files);
                workspace.language.connect(server);
            } else if (message.kind === 'failed') {
                workspace.language.disconnect();
                const text = `The language server has stopped: ${message.reason}. Your program is safe.`;
                messages.say(text, 'fault', [{ text: 'Start it again', chosen: startLanguage }]);
            }
        });
    };
    let board: Server | null = null;
    let closeFault = (): void => undefined;
    const startBoard = (): void => {
        const server: Server = startServer('board', program, source, (message) => {
            if (message.kind === 'ready') {
                closeFault();
                machine.connect(server);
            } else if (message.kind === 'failed') {
                board = null;
                machine.failed(message.reason);
                const text = `The board has stopped working: ${message.reason}. Your program is safe.`;
                closeFault = messages.say(text, 'fault', [{ text: 'Start it again', chosen: revive }]);
            } else {
                machine.take(message);
            }
        });
        board = server;
    };
    revive = () => {
        if (board === null) {
            startBoard();
        }
    };
    startLanguage();
    startBoard();
}

begin()
    .then(startWorkers)
    .catch((error: Error) => {
        const text = `tovik cannot start here: ${error.message}.`;
        messages.say(text, 'fault');
        revive = () => {
            throw new Error(text);
        };
    });
