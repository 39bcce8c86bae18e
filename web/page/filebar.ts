// The files of the program: their tabs, and what is done with the one in front.

import { ask } from './dialogs';
import { chooseFiles, readSources } from './disk';
import { element } from './dom';
import { attempt, menu } from './parts';
import type { Choice, Messages } from './parts';
import { freeName, wrongName } from './program';
import type { Files } from './program';
import type { Workspace } from './workspace';

const MOST_SAID = 4;

// Reads files from the disk, and says which ones are no sources.
export async function readFiles(list: readonly File[], messages: Messages): Promise<Files> {
    const { files, refused } = await readSources(list);
    refused.slice(0, MOST_SAID).forEach((sentence) => messages.say(sentence, 'fault'));
    if (refused.length > MOST_SAID) {
        messages.say(`${refused.length - MOST_SAID} more files could not be read.`, 'fault');
    }
    return files;
}

export function makeFileBar(workspace: Workspace, messages: Messages): HTMLElement {
    const { editor, documents } = workspace;
    const taken = (name: string): boolean => documents.all.get(name)?.own ?? false;
    const askName = (title: string, value: string, done: (name: string) => void): void => {
        const wrong = (name: string): string | null =>
            wrongName(name) ?? (name !== value && taken(name) ? 'There is a file of this name.' : null);
        ask(title, 'Name', value, title, wrong, done);
    };
    const create = (): void =>
        askName('New file', freeName('part.k', taken), (name) => workspace.addFiles(new Map([[name, '']])));
    const add = (): void =>
        attempt(messages, async () => workspace.addFiles(await readFiles(await chooseFiles(), messages)));
    const choices = (): Choice[] => {
        const document = editor.current();
        const always = [
            { text: 'New file…', chosen: create },
            { text: 'Add files from the disk…', chosen: add },
            ...editor.tools,
        ];
        if (document === null) {
            return always;
        }
        if (!document.own) {
            return [...always, { text: 'Close', chosen: () => editor.closeTab(document.name) }];
        }
        const rename = (name: string): void => {
            if (name !== document.name) {
                workspace.rename(document, name);
            }
        };
        const begins = { text: 'The program begins here', chosen: () => workspace.setMain(document) };
        return [
            ...always,
            { text: 'Rename the file…', chosen: () => askName('Rename', document.name, rename) },
            ...(document.name === workspace.main() ? [] : [begins]),
            { text: 'Delete the file', chosen: () => attempt(messages, () => workspace.remove(document)) },
        ];
    };
    return element('div', { class: 'file-bar' }, editor.tabs, menu('⋯', 'This file', choices));
}
