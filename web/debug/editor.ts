// What the editor of a source shows of the program: breakpoints, the line that is next, the values of the
// labels in each line.

import { StateEffect, type Extension, type Range } from '@codemirror/state';
import {
    Decoration,
    EditorView,
    GutterMarker,
    ViewPlugin,
    WidgetType,
    gutter,
    lineNumbers,
    hoverTooltip,
    keymap,
    type DecorationSet,
} from '@codemirror/view';
import { element } from '../page/dom';
import type { Breakpoint, Marks } from './marks';
import type { Session, Variable } from './session';
import { button, openPopup, whenSeen } from './ui';

export interface Editors {
    extension: (path: string) => Extension;
    // Shows a line of the program, and puts the cursor there.
    reveal: (path: string, line: number) => void;
}

const refresh = StateEffect.define<null>();

// The scope of the labels is the first one.
const LABELS = { variablesReference: 1 };

// An expression for a word of the source: a label, or the register with an address.
function expressionOf(word: string): string {
    if (/^[A-Za-z_]\w*$/.test(word)) {
        return word;
    }
    return /^(0x|\d)/.test(word) ? `[${word}]` : `"${word}"`;
}

// The labels that a line may name: its words without the operation and the comment.
function operandsOf(line: string): string[] {
    const [code = ''] = line.split('//');
    const words = code.split(/\s+/);
    const label = words.shift(); // empty when the line is indented
    return [...new Set([label ?? '', ...words.slice(1)])].filter((word) => word !== '');
}

// A library wants a class of each of these.
class Mark extends GutterMarker {
    constructor(
        readonly look: string,
        readonly title: string,
    ) {
        super();
    }
    override eq(other: Mark): boolean {
        return this.look === other.look && this.title === other.title;
    }
    override toDOM(): Node {
        return element('div', { class: this.look, title: this.title });
    }
}

class Values extends WidgetType {
    constructor(readonly values: Variable[]) {
        super();
    }
    private key(): string {
        return JSON.stringify(this.values.map((one) => [one.name, one.value, isChanged(one)]));
    }
    override eq(other: Values): boolean {
        return this.key() === other.key();
    }
    override toDOM(): HTMLElement {
        const shown = this.values.map((one) =>
            element(
                'span',
                { class: isChanged(one) ? 'debug-changed' : '' },
                `${one.name} = ${one.value.replace(/ \(.*/s, '')}`,
            ),
        );
        return element('span', { class: 'debug-values', 'aria-hidden': 'true' }, ...shown);
    }
}

function isChanged(variable: Variable): boolean {
    return variable.presentationHint?.attributes?.includes('changed') ?? false;
}

export function makeEditors(session: Session, marks: Marks, show: (path: string) => void): Editors {
    const views = new Map<string, EditorView>();
    let values = new Map<string, Variable>();
    let isShown = false; // the line that is next, and the values

    const refreshAll = (): void => views.forEach((view) => view.dispatch({ effects: refresh.of(null) }));

    // What is not in the page now gets its values when it is seen again. One of them shows the line.
    const refreshSeen = (scrolled?: string): void =>
        views.forEach((view, path) => {
            if (view.dom.isConnected) {
                const line = path === scrolled ? lineIn(path, view) : 0;
                const scroll = line > 0 ? [scrollTo(view, line)] : [];
                view.dispatch({ effects: [refresh.of(null), ...scroll] });
            }
        });

    // The line that is looked at, if it is in this file.
    const lineIn = (path: string, view: EditorView): number => {
        const frame = isShown ? session.frame() : null;
        const line = frame?.source?.path === path ? marks.lineNow(path, frame.line) : 0;
        return line <= view.state.doc.lines ? line : 0;
    };
    const scrollTo = (view: EditorView, line: number, y: 'nearest' | 'center' = 'nearest') =>
        EditorView.scrollIntoView(view.state.doc.line(line).from, { y, yMargin: 60 });
    const showFrame = (): void => {
        const path = session.frame()?.source?.path;
        isShown = session.state() === 'stopped';
        if (path) {
            show(path);
        }
        refreshSeen(path);
    };
    session.onFrame(showFrame);
    session.onState((state) => {
        isShown = state === 'stopped';
        if (!isShown) {
            values = new Map();
        }
        refreshAll();
    });
    marks.onChange(refreshAll);

    const lookAtValues = async (): Promise<void> => {
        const body = await session.look<{ variables: Variable[] }>('variables', LABELS);
        if (body) {
            values = new Map(body.variables.map((one) => [one.name, one]));
            refreshSeen();
        }
    };

    const decorate = (path: string, view: EditorView): DecorationSet => {
        const made: Range<Decoration>[] = [];
        const { doc } = view.state;
        const current = lineIn(path, view);
        for (const { from, to } of view.visibleRanges) {
            for (let at = from; at <= to;) {
                const line = doc.lineAt(at);
                if (line.number === current) {
                    const look = session.isTopFrame() ? 'debug-next' : 'debug-caller';
                    made.push(Decoration.line({ class: look }).range(line.from));
                }
                const named = operandsOf(line.text)
                    .map((word) => values.get(word))
                    .filter((one) => one !== undefined);
                if (isShown && named.length > 0) {
                    made.push(Decoration.widget({ widget: new Values(named), side: 1 }).range(line.to));
                }
                at = line.to + 1;
            }
        }
        return Decoration.set(made);
    };

    const markOf = (path: string, view: EditorView, number: number): Mark | null => {
        const breakpoint = marks.at(path, number);
        const isNext = number === lineIn(path, view);
        const looks = isNext ? [session.isTopFrame() ? 'debug-arrow' : 'debug-arrow debug-arrow-caller'] : [];
        let title = '';
        if (breakpoint) {
            const { condition, hits, log, fault, at } = breakpoint;
            const isMoved = marks.hasMoved(path, breakpoint);
            looks.push('debug-breakpoint', log ? 'debug-log' : condition || hits ? 'debug-conditional' : '');
            looks.push(fault ? 'debug-bad' : isMoved ? 'debug-moved' : '');
            title = [
                log ? `Prints: ${log}` : 'Breakpoint',
                condition && `only if ${condition}`,
                hits && `at hit ${hits}`,
                fault ? `Does not stop: ${fault}` : isMoved && `Stops at line ${marks.lineNow(path, at)}`,
            ]
                .filter(Boolean)
                .join('\n');
        }
        return looks.length > 0 ? new Mark(looks.filter(Boolean).join(' '), title) : null;
    };

    const toggle = (path: string, line: number): void =>
        marks.set(path, line, marks.at(path, line) ? null : {});

    const openForm = (path: string, line: number, x: number, y: number): void => {
        const before = marks.at(path, line);
        const field = (
            key: keyof Breakpoint & ('condition' | 'hits' | 'log'),
            label: string,
            hint: string,
        ) => {
            const input = element('input', { name: key, placeholder: hint, spellcheck: 'false' });
            input.value = before?.[key] ?? '';
            return { input, row: element('label', {}, label, input) };
        };
        const condition = field('condition', 'Only if', "such as list[i + 1] == 'a'");
        const hits = field('hits', 'At which hit', 'such as 5, >= 5 or % 5');
        const log = field('log', 'Print, and go on', 'such as sum is {sum}');
        const form = element(
            'form',
            { class: 'debug-form', role: 'dialog', 'aria-label': `Breakpoint in line ${line}` },
            element('strong', {}, `Breakpoint in line ${line}`),
            condition.row,
            hits.row,
            log.row,
            element(
                'div',
                { class: 'debug-buttons' },
                element('button', { type: 'submit' }, before ? 'Change' : 'Set'),
                before
                    ? button('Remove', () => {
                          close();
                          marks.set(path, line, null);
                      })
                    : null,
                button('Cancel', () => close()),
            ),
        );
        form.addEventListener('submit', (event) => {
            event.preventDefault();
            close();
            const [conditionNow, hitsNow, logNow] = [condition, hits, log].map(({ input }) =>
                input.value.trim(),
            );
            marks.set(path, line, {
                condition: conditionNow ?? '',
                hits: hitsNow ?? '',
                log: logNow ?? '',
            });
        });
        const close = openPopup(x, y, form);
        condition.input.focus();
    };

    const gutterOf = (path: string): Extension => {
        let press = 0;
        let isLong = false;
        const lineOf = (view: EditorView, from: number): number => view.state.doc.lineAt(from).number;
        const domEventHandlers: Parameters<typeof gutter>[0]['domEventHandlers'] = {
            click(view, line) {
                if (!isLong) {
                    toggle(path, lineOf(view, line.from));
                }
                isLong = false;
                return true;
            },
            contextmenu(view, line, event) {
                event.preventDefault();
                const { clientX, clientY } = event as MouseEvent;
                if (!isLong) {
                    openForm(path, lineOf(view, line.from), clientX, clientY);
                }
                return true;
            },
            touchstart(view, line, event) {
                const { clientX = 0, clientY = 0 } = (event as TouchEvent).touches[0] ?? {};
                isLong = false;
                press = window.setTimeout(() => {
                    isLong = true;
                    openForm(path, lineOf(view, line.from), clientX, clientY);
                }, 600);
                return false;
            },
            touchend() {
                clearTimeout(press);
                return false;
            },
            touchmove() {
                clearTimeout(press);
                return false;
            },
        };
        const marksGutter = gutter({
            class: 'debug-gutter',
            renderEmptyElements: true,
            lineMarker: (view, line) => markOf(path, view, lineOf(view, line.from)),
            lineMarkerChange: (update) =>
                update.transactions.some((one) => one.effects.some((effect) => effect.is(refresh))),
            initialSpacer: () => new Mark('debug-breakpoint debug-spacer', ''),
            domEventHandlers,
        });
        return [lineNumbers({ domEventHandlers }), marksGutter];
    };

    const hover = hoverTooltip(
        async (view, position) => {
            const line = view.state.doc.lineAt(position);
            const at = position - line.from;
            const before = /\S*$/.exec(line.text.slice(0, at))?.[0] ?? '';
            const word = before + (/^\S*/.exec(line.text.slice(at))?.[0] ?? '');
            const isPort = /^0x8[0-9a-f]{7}$/i.test(word);
            if (!isShown || !(isPort || (values.has(word) && operandsOf(line.text).includes(word)))) {
                return null;
            }
            const expression = expressionOf(word);
            const body = await session
                .look('evaluate', { expression, context: 'hover' })
                .catch((): null => null);
            if (!body) {
                return null;
            }
            const text = `${word} = ${String(body['result'])}`;
            return {
                pos: position - before.length,
                end: position - before.length + word.length,
                create: () => ({ dom: element('div', { class: 'debug-hover' }, text) }),
            };
        },
        { hideOnChange: true },
    );

    const pluginOf = (path: string): Extension =>
        ViewPlugin.define(
            (view) => {
                views.set(path, view);
                marks.opened(path, view.state.doc);
                const end = whenSeen(session, view.dom, lookAtValues);
                // Its first lines are not drawn yet.
                setTimeout(() => {
                    const line = views.get(path) === view ? lineIn(path, view) : 0;
                    if (line > 0) {
                        view.dispatch({ effects: scrollTo(view, line) });
                    }
                });
                return {
                    decorations: decorate(path, view),
                    update(update) {
                        if (update.docChanged) {
                            const { startState, state, changes } = update;
                            marks.edited(path, startState.doc, state.doc, changes.desc);
                        }
                        const isOld = update.transactions.some((one) =>
                            one.effects.some((effect) => effect.is(refresh)),
                        );
                        if (isOld || update.docChanged || update.viewportChanged) {
                            this.decorations = decorate(path, view);
                        }
                    },
                    destroy() {
                        end();
                        if (views.get(path) === view) {
                            views.delete(path);
                        }
                    },
                };
            },
            { decorations: (plugin) => plugin.decorations },
        );

    const keysOf = (path: string): Extension => {
        const lineOf = (view: EditorView): number =>
            view.state.doc.lineAt(view.state.selection.main.head).number;
        return keymap.of([
            {
                key: 'F9',
                run(view) {
                    toggle(path, lineOf(view));
                    return true;
                },
            },
            {
                key: 'Shift-F9',
                run(view) {
                    const place = view.coordsAtPos(view.state.selection.main.head);
                    openForm(path, lineOf(view), place?.left ?? 0, place?.bottom ?? 0);
                    return true;
                },
            },
        ]);
    };

    return {
        extension: (path) => [pluginOf(path), gutterOf(path), hover, keysOf(path)],
        reveal(path, line) {
            show(path);
            // Its editor may have to be made first.
            setTimeout(() => {
                const view = views.get(path);
                if (view) {
                    const now = Math.min(Math.max(marks.lineNow(path, line), 1), view.state.doc.lines);
                    const anchor = view.state.doc.line(now).from;
                    view.dispatch({ selection: { anchor }, effects: scrollTo(view, now, 'center') });
                    view.focus();
                }
            });
        },
    };
}
