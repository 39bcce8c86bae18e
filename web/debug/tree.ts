// Variables and registers as a tree, loaded as far as it is open.

import type { Body } from '../page/adapter';
import { element } from '../page/dom';
import type { Session, Variable } from './session';
import { editInPlace, onContext, openMenu, whenSeen, type Choice } from './ui';

interface Scope {
    name: string;
    variablesReference: number;
    presentationHint?: string;
}

// What can be opened is a branch.
interface Node {
    key: string; // its names from the top
    level: number;
    name: string;
    note: string;
    value: string;
    reference: number; // of a branch, or 0
    parent: number; // the reference of what it stands in
    indexed: number; // so many words are in it, if it is an array
    variable: Variable | null; // null: a scope, or "more"
    isChanged: boolean;
}

export interface TreeOptions {
    label: string;
    has: (scope: { presentationHint?: string; name: string }) => boolean;
    isOpen: (scope: Scope) => boolean; // at first
    note: (variable: Variable, parent: number) => Promise<string>; // what stands behind a name
    choices: (variable: Variable, parent: number) => Choice[]; // of its menu
    mark: (variable: Variable) => string; // a sign in front, with its meaning, or empty
}

const AT_ONCE = 200; // so many words of an array are shown before one asks for more

export function makeTree(session: Session, options: TreeOptions): HTMLElement {
    const rows = new Map<string, HTMLElement>();
    const opened = new Map<string, boolean>();
    const lengths = new Map<string, number>();
    let scopes: Scope[] = [];
    let launch = 0; // of which they are
    let asked = 0; // how often
    let nodes: Node[] = [];
    let current = '';
    const tree = element('div', { class: 'debug-tree', role: 'tree', 'aria-label': options.label });
    const empty = element('p', { class: 'debug-empty' }, 'They are shown when a program has stopped.');
    const panel = element('div', { class: 'debug-panel' }, empty, tree);

    const childrenOf = async (parent: Node): Promise<Node[]> => {
        const { reference, level, key } = parent;
        const most = lengths.get(key) ?? AT_ONCE;
        const part: Body = parent.indexed > most ? { start: 0, count: most } : {};
        const body = await session.look<{ variables: Variable[] }>('variables', {
            variablesReference: reference,
            ...part,
        });
        const variables = body?.variables ?? [];
        const notes = await Promise.all(variables.map((variable) => options.note(variable, reference)));
        const children = variables.map((variable, i): Node => ({
            key: `${key}/${variable.name}`,
            level: level + 1,
            name: variable.name,
            note: notes[i] ?? '',
            value: variable.value,
            reference: variable.variablesReference,
            parent: reference,
            indexed: variable.indexedVariables ?? 0,
            variable,
            isChanged: variable.presentationHint?.attributes?.includes('changed') ?? false,
        }));
        if (parent.indexed > most) {
            const rest = parent.indexed - most;
            const more = {
                ...parent,
                key: `${key}/…`,
                level: level + 1,
                name: `${rest} more…`,
                variable: null,
            };
            children.push({ ...more, value: '', note: '', reference: 0, isChanged: false });
        }
        return withChildren(children);
    };
    const withChildren = async (parents: Node[]): Promise<Node[]> => {
        const all = parents.map(async (node) => [node, ...(isOpen(node) ? await childrenOf(node) : [])]);
        return (await Promise.all(all)).flat();
    };
    const isOpen = (node: Node): boolean => node.reference !== 0 && (opened.get(node.key) ?? false);

    const refresh = async (): Promise<void> => {
        // They stay the same as long as the program does.
        if (scopes.length === 0 || launch !== session.launchNumber()) {
            launch = session.launchNumber();
            const body = await session.look<{ scopes: Scope[] }>('scopes', { frameId: 1 });
            scopes = body?.scopes.filter(options.has) ?? [];
        }
        const roots = scopes.map((scope): Node => {
            if (!opened.has(scope.name)) {
                opened.set(scope.name, options.isOpen(scope));
            }
            return {
                key: scope.name,
                level: 1,
                name: scope.name,
                note: '',
                value: '',
                reference: scope.variablesReference,
                parent: 0,
                indexed: 0,
                variable: null,
                isChanged: false,
            };
        });
        asked += 1;
        const number = asked;
        const found = await withChildren(roots);
        if (number === asked && session.state() === 'stopped') {
            nodes = found;
            draw();
        }
    };
    const again = (): void => void refresh().catch(session.complain);

    const open = (node: Node, isToBeOpen: boolean): void => {
        if (node.key.endsWith('/…')) {
            const parent = node.key.slice(0, -2);
            lengths.set(parent, (lengths.get(parent) ?? AT_ONCE) + AT_ONCE * 4);
        } else if (node.reference !== 0) {
            opened.set(node.key, isToBeOpen);
        }
        again();
    };
    const edit = (node: Node): void => {
        const place = rows.get(node.key)?.querySelector<HTMLElement>('.debug-value');
        const { variable } = node;
        if (!place || !variable || variable.presentationHint?.attributes?.includes('readOnly')) {
            return;
        }
        if (node.reference === 0) {
            editInPlace(place, `Value of ${node.name}`, async (value) => {
                const { parent: variablesReference, name } = node;
                await session.change('setVariable', { variablesReference, name, value });
            });
        }
    };
    const menu = (node: Node, x: number, y: number): void => {
        const { variable } = node;
        if (variable) {
            const isFixed =
                variable.presentationHint?.attributes?.includes('readOnly') || node.reference !== 0;
            const change = isFixed ? [] : [{ label: 'Change the value', act: () => edit(node) }];
            openMenu(x, y, [...change, ...options.choices(variable, node.parent)]);
        }
    };
    const rowOf = (key: string): HTMLElement => {
        const known = rows.get(key);
        if (known) {
            return known;
        }
        const nodeNow = (): Node | undefined => nodes.find((node) => node.key === key);
        const more = element(
            'button',
            { type: 'button', class: 'debug-more', tabindex: -1, 'aria-label': 'More' },
            '⋯',
        );
        const row = element(
            'div',
            { class: 'debug-row', role: 'treeitem', tabindex: -1 },
            element('span', { class: 'debug-sign' }),
            element('span', { class: 'debug-name' }),
            element('span', { class: 'debug-note' }),
            element('span', { class: 'debug-value' }),
            more,
        );
        row.addEventListener('click', () => {
            focusRow(key);
            const node = nodeNow();
            if (node && (node.reference !== 0 || !node.variable)) {
                open(node, !isOpen(node));
            }
        });
        row.addEventListener('dblclick', () => {
            const node = nodeNow();
            if (node) {
                edit(node);
            }
        });
        onContext(row, (event) => {
            event.preventDefault();
            const node = nodeNow();
            if (node) {
                focusRow(key);
                menu(node, event.clientX, event.clientY);
            }
        });
        more.addEventListener('click', (event) => {
            event.stopPropagation();
            const node = nodeNow();
            const place = more.getBoundingClientRect();
            if (node) {
                focusRow(key);
                menu(node, place.left, place.bottom);
            }
        });
        rows.set(key, row);
        return row;
    };
    const focusRow = (key: string): void => {
        rows.get(current)?.setAttribute('tabindex', '-1');
        current = key;
        const row = rows.get(key);
        row?.setAttribute('tabindex', '0');
        row?.focus();
    };
    // Only what is new is written: the others keep the focus, and what is edited in them.
    const write = (target: Element | null | undefined, text: string): void => {
        if (target && target.textContent !== text && !target.querySelector('input')) {
            target.textContent = text;
        }
    };
    const draw = (): void => {
        empty.hidden = nodes.length > 0;
        const wanted = nodes.map((node) => {
            const row = rowOf(node.key);
            const isBranch = node.reference !== 0;
            row.setAttribute('aria-level', String(node.level));
            row.style.setProperty('--level', String(node.level - 1));
            if (isBranch) {
                row.setAttribute('aria-expanded', String(isOpen(node)));
            }
            const mark = node.variable ? options.mark(node.variable) : '';
            const [sign, name, note, value, more] = row.children;
            write(sign, isBranch ? (isOpen(node) ? '▾' : '▸') : mark ? '●' : '');
            sign?.setAttribute('title', mark);
            sign?.classList.toggle('debug-watched', mark !== '');
            write(name, node.name);
            write(note, node.note);
            write(value, node.value);
            row.classList.toggle('debug-scope', node.level === 1);
            row.classList.toggle('debug-changed', node.isChanged && !(isBranch && isOpen(node)));
            more?.toggleAttribute('hidden', !node.variable);
            return row;
        });
        const kept = new Set(wanted);
        [...tree.children].filter((row) => !kept.has(row as HTMLElement)).forEach((row) => row.remove());
        wanted.forEach((row, i) => {
            if (tree.children[i] !== row) {
                tree.insertBefore(row, tree.children[i] ?? null);
            }
        });
        const alive = new Set(nodes.map((node) => node.key));
        [...rows.keys()].filter((key) => !alive.has(key)).forEach((key) => rows.delete(key));
        if (!alive.has(current) && nodes[0]) {
            current = nodes[0].key;
        }
        rows.get(current)?.setAttribute('tabindex', '0');
    };
    tree.addEventListener('keydown', (event) => {
        const at = nodes.findIndex((node) => node.key === current);
        const node = nodes[at];
        if (!node || event.altKey || event.ctrlKey || event.metaKey) {
            return;
        }
        const goTo = (index: number): void => {
            const target = nodes[Math.min(Math.max(index, 0), nodes.length - 1)];
            if (target) {
                focusRow(target.key);
            }
        };
        const acts: Record<string, () => void> = {
            ArrowDown: () => goTo(at + 1),
            ArrowUp: () => goTo(at - 1),
            Home: () => goTo(0),
            End: () => goTo(nodes.length - 1),
            ArrowRight: () => (isOpen(node) || node.reference === 0 ? goTo(at + 1) : open(node, true)),
            ArrowLeft: () =>
                isOpen(node)
                    ? open(node, false)
                    : goTo(
                          nodes
                              .slice(0, at)
                              .map((one) => one.level < node.level)
                              .lastIndexOf(true),
                      ),
            Enter: () => (node.variable && node.reference === 0 ? edit(node) : open(node, !isOpen(node))),
            F2: () => edit(node),
        };
        const act = acts[event.key];
        if (act) {
            event.preventDefault();
            act();
        }
    });
    whenSeen(session, panel, refresh);
    session.onState((state) => {
        panel.classList.toggle('debug-old', state === 'running');
        if (state === 'idle' || state === 'ended' || state === 'starting') {
            nodes = [];
            draw();
        }
    });
    return panel;
}
