// Where everything stands: side by side where there is room, one at a time where there is not.

import { element } from './dom';
import { button, makeBar, makeTabs } from './parts';
import type { TabPanel } from './parts';
import { remember, remembered } from './store';

const NARROW = '(max-width: 900px)';

export interface Pieces {
    name: HTMLElement; // of the program
    menus: HTMLElement[];
    controls: HTMLElement[]; // the row below the head
    notes: HTMLElement[]; // below the editor
    fileBar: HTMLElement;
    editor: HTMLElement;
    status: HTMLElement;
    panels: TabPanel[];
    board: HTMLElement;
    messages: HTMLElement;
}

export interface Shell {
    setTask(task: HTMLElement | null): void;
    seeEditor(): void;
    seeBoard(): void;
    seePanel(id: string): void;
}

// The colours follow the system until a choice is made.
export function themeButton(): HTMLButtonElement {
    const dark = matchMedia('(prefers-color-scheme: dark)');
    const draw = (): void => {
        const theme = remembered('theme') ?? (dark.matches ? 'dark' : 'light');
        document.documentElement.dataset['theme'] = theme;
        made.setAttribute('aria-pressed', String(theme === 'dark'));
    };
    const made = button(
        '◐',
        () => {
            const other = document.documentElement.dataset['theme'] === 'dark' ? 'light' : 'dark';
            // What the system has, too, is no choice: the page follows it again.
            remember('theme', (other === 'dark') === dark.matches ? null : other);
            document.documentElement.dataset['theme'] = other;
            made.setAttribute('aria-pressed', String(other === 'dark'));
        },
        { 'aria-label': 'Dark colors', title: 'Dark or light colors' },
    );
    dark.addEventListener('change', draw);
    draw();
    return made;
}

export function makeShell(pieces: Pieces): Shell {
    const app = document.getElementById('app') ?? document.body;
    const panels = makeTabs('Panels', pieces.panels);
    const task = element('aside', { class: 'task', 'aria-label': 'Assignment', hidden: true });
    const taskBar = makeBar('task-width', 'x', 1, 'Width of the assignment');
    taskBar.hidden = true;
    const notes = element('div', { class: 'notes' }, ...pieces.notes);
    const left = element(
        'section',
        { class: 'left', 'aria-label': 'Source' },
        element('div', { class: 'source' }, pieces.fileBar, pieces.editor, notes, pieces.status),
        makeBar('panel-height', 'y', -1, 'Height of what is below the editor'),
        element('div', { class: 'inside' }, panels.element),
    );
    const right = element(
        'section',
        { class: 'right', 'aria-label': 'Board' },
        element('div', { class: 'board-place' }, pieces.board),
    );
    const work = element(
        'main',
        { class: 'work' },
        task,
        taskBar,
        left,
        makeBar('board-width', 'x', -1, 'Width of the board'),
        right,
    );
    const views: [string, string][] = [
        ['task', 'Assignment'],
        ['source', 'Source'],
        ['inside', 'Panels'],
        ['board', 'Board'],
    ];
    const switcher = element('nav', { class: 'views', 'aria-label': 'Parts of the page' });
    const see = (view: string): void => {
        work.dataset['view'] = view;
        for (const one of switcher.children) {
            one.setAttribute('aria-pressed', String((one as HTMLElement).dataset['view'] === view));
        }
    };
    switcher.append(...views.map(([view, title]) => button(title, () => see(view), { 'data-view': view })));
    app.replaceChildren(
        element(
            'header',
            { class: 'head' },
            element('span', { class: 'brand' }, 'tovik'),
            pieces.name,
            element('div', { class: 'menus' }, ...pieces.menus),
        ),
        element('section', { class: 'run', 'aria-label': 'Running the program' }, ...pieces.controls),
        switcher,
        work,
        pieces.messages,
    );
    const taskButton = switcher.querySelector<HTMLElement>('[data-view=task]');
    // What is to be said about the program is seen with each part.
    const narrow = matchMedia(NARROW);
    const arrange = (): void => (narrow.matches ? switcher : pieces.editor).after(notes);
    narrow.addEventListener('change', arrange);
    arrange();
    const setTask = (content: HTMLElement | null): void => {
        task.replaceChildren(...(content === null ? [] : [content]));
        task.hidden = content === null;
        taskBar.hidden = content === null;
        taskButton?.toggleAttribute('hidden', content === null);
        see(content !== null && narrow.matches ? 'task' : 'source');
    };
    setTask(null);
    return {
        setTask,
        seeEditor: () => see('source'),
        seeBoard: () => see('board'),
        seePanel(id) {
            panels.select(id);
            see('inside');
        },
    };
}
