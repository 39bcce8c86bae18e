// The menus in the head of the page, and the keys for them.

import { canPickFolder, hasPlace, placeKey } from './disk';
import { attempt, button, menu } from './parts';
import type { Choice, Messages } from './parts';
import type { Programs } from './programs';
import type { Workspace } from './workspace';

export function makeMenus(workspace: Workspace, programs: Programs, messages: Messages): HTMLElement[] {
    const run = (work: () => Promise<void>) => (): void => attempt(messages, work);
    const current = (): string => workspace.editor.current()?.name ?? 'the file';
    const save = (elsewhere: boolean): (() => void) => run(() => programs.saveFile(elsewhere));
    addEventListener('keydown', (event) => {
        const work = { s: save(false), o: run(programs.choosePrograms) }[event.key];
        if ((event.ctrlKey || event.metaKey) && !event.shiftKey && !event.altKey && work !== undefined) {
            event.preventDefault();
            work();
        }
    });
    const saving = (): Choice[] => [
        { text: `Save ${current()}`, hint: 'Ctrl+S', chosen: save(false) },
        ...(hasPlace(placeKey(workspace.program().id, current()))
            ? [{ text: `Save ${current()} elsewhere…`, chosen: save(true) }]
            : []),
        ...(canPickFolder
            ? [{ text: 'Save all files into a folder…', chosen: run(programs.saveFolder) }]
            : []),
        { text: 'Save as a page…', hint: 'with an assignment', chosen: programs.savePage },
        { text: 'Earlier versions…', chosen: run(programs.versions) },
    ];
    const opening = (): Choice[] => [
        { text: 'Your programs…', hint: 'Ctrl+O', chosen: run(programs.choosePrograms) },
        { text: 'Files from the disk…', chosen: run(programs.chooseFiles) },
        { text: 'New program…', chosen: programs.create },
        ...(programs.startAgain === null
            ? []
            : [{ text: 'Start again from the given program', chosen: programs.startAgain }]),
    ];
    return [
        menu('Open', 'Open', opening),
        button('Examples', () => programs.chooseExample()),
        menu('Save', 'Save', saving),
        button('Share', run(programs.share)),
    ];
}
