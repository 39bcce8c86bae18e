// The client of the language server: faults while one writes, with what can be done about them, and all that the
// language client of CodeMirror does by itself.

import { EditorView, ViewPlugin, keymap } from '@codemirror/view';
import type { ViewUpdate } from '@codemirror/view';
import { LSPClient, LSPPlugin } from '@codemirror/lsp-client';
import * as lsp from '@codemirror/lsp-client';
import { closeLintPanel, setDiagnostics } from '@codemirror/lint';
import type { Action, Diagnostic } from '@codemirror/lint';
import type { Extension, Text } from '@codemirror/state';
import type {
    CodeAction,
    Diagnostic as ServerDiagnostic,
    Position,
    PublishDiagnosticsParams,
    Range,
} from 'vscode-languageserver-protocol';
import type { Server } from './workers';
import type { Document, Documents } from './documents';
import { element } from './dom';
import { ProgramWorkspace, nameOfUri } from './documents';
import { tokenColours, wantColours } from './tokens';
import { sanitize } from './sanitize';

const SYNC_PAUSE = 30; // milliseconds without a key until the server gets what was typed
const FIX_PAUSE = 150; // and until it is asked what can be done about the faults
const PATIENCE = 20000; // milliseconds for an answer; the first ones wait for the program to start

export interface Language {
    extension(document: Document): Extension;
    connect(server: Server): void;
    take(text: string): void; // a message of the server's
    disconnect(): void;
}

const severities = ['error', 'error', 'warning', 'info', 'hint'] as const;

function offset(doc: Text, position: Position): number {
    const line = doc.line(Math.min(position.line + 1, doc.lines));
    return Math.min(line.from + position.character, line.to);
}

function askForFixes(client: LSPClient, document: Document, range: Range): Promise<CodeAction[]> {
    const params = { textDocument: { uri: document.uri }, range, context: { diagnostics: [] } };
    return client
        .request<typeof params, CodeAction[] | null>('textDocument/codeAction', params)
        .then((actions) => actions ?? []);
}

// Asks anew for the fix with this title and applies it, to all files that it is about.
async function applyFix(
    view: EditorView,
    document: Document,
    from: number,
    to: number,
    title: string,
): Promise<void> {
    const plugin = LSPPlugin.get(view);
    if (plugin === null) {
        return;
    }
    const { client } = plugin;
    client.sync();
    const range = { start: plugin.toPosition(from), end: plugin.toPosition(to) };
    await client.withMapping(async (mapping) => {
        const actions = await askForFixes(client, document, range);
        const changes = actions.find((action) => action.title === title)?.edit?.changes ?? {};
        for (const [uri, edits] of Object.entries(changes)) {
            client.workspace.updateFile(uri, {
                changes: edits.map((edit) => ({
                    from: mapping.mapPosition(uri, edit.range.start),
                    to: mapping.mapPosition(uri, edit.range.end),
                    insert: edit.newText,
                })),
                userEvent: 'input.fix',
            });
        }
    });
}

const about = (diagnostic: ServerDiagnostic): string =>
    JSON.stringify([diagnostic.range.start, diagnostic.message]);

// In the list of faults with its line; code stands between backquotes.
function renderProblem(line: number, message: string): HTMLElement {
    const parts = message.split('`').map((part, i) => (i % 2 === 1 ? element('code', {}, part) : part));
    return element('span', {}, element('span', { class: 'fault-line' }, `Line ${line}: `), ...parts);
}

// A list with nothing in it gives its place back to the editor.
function closeEmptyList(view: EditorView): void {
    const hadFocus = view.dom.querySelector('.cm-panel-lint')?.contains(document.activeElement) ?? false;
    if (closeLintPanel(view) && hadFocus) {
        view.focus();
    }
}

function showProblems(document: Document, fixes: readonly CodeAction[]): void {
    const { view } = document;
    const plugin = view === null ? null : LSPPlugin.get(view);
    if (view === null || plugin === null) {
        return;
    }
    const place = (position: Position): number =>
        plugin.unsyncedChanges.mapPos(offset(plugin.syncedDoc, position));
    const shown = document.problems.map((problem): Diagnostic => {
        const key = about(problem);
        const actions = fixes
            .filter((fix) => fix.diagnostics?.some((diagnostic) => about(diagnostic) === key) ?? false)
            .map(({ title }): Action => ({
                name: title,
                apply: (_, from, to) => void applyFix(view, document, from, to, title),
            }));
        const message = typeof problem.message === 'string' ? problem.message : problem.message.value;
        return {
            from: place(problem.range.start),
            to: place(problem.range.end),
            severity: severities[problem.severity ?? 1] ?? 'error',
            message,
            renderMessage: () => renderProblem(problem.range.start.line + 1, message),
            actions,
        };
    });
    view.dispatch(setDiagnostics(view.state, shown));
    if (shown.length === 0) {
        closeEmptyList(view);
    }
}

export function makeLanguage(documents: Documents, problemsChanged: () => void): Language {
    let heard: (text: string) => void = () => undefined;
    const fixTimers = new Map<string, number>(); // by the documents' names

    const publish = (client: LSPClient, params: PublishDiagnosticsParams): boolean => {
        const document = documents.all.get(nameOfUri(params.uri));
        if (document === undefined || (params.version !== undefined && params.version !== document.version)) {
            return true; // of an older state: those of the newer one come
        }
        document.problems = params.diagnostics;
        document.isChecked = true;
        showProblems(document, []);
        problemsChanged();
        const { view, version } = document;
        if (view !== null) {
            wantColours(view, client, document);
        }
        clearTimeout(fixTimers.get(document.name));
        if (params.diagnostics.length > 0) {
            const timer = window.setTimeout(() => {
                const end = { line: document.doc.lines, character: 0 };
                askForFixes(client, document, { start: { line: 0, character: 0 }, end }).then(
                    (fixes) => {
                        if (version === document.version && fixes.length > 0) {
                            showProblems(document, fixes);
                        }
                    },
                    () => undefined, // the worker has ended: there is another one soon
                );
            }, FIX_PAUSE);
            fixTimers.set(document.name, timer);
        }
        return true;
    };

    const soon = ViewPlugin.fromClass(
        class {
            timer = 0;
            update(update: ViewUpdate): void {
                if (update.docChanged) {
                    clearTimeout(this.timer);
                    this.timer = window.setTimeout(() => client.sync(), SYNC_PAUSE);
                }
            }
            destroy(): void {
                clearTimeout(this.timer);
            }
        },
    );
    const keys = [
        ...lsp.formatKeymap,
        ...lsp.renameKeymap,
        ...lsp.jumpToDefinitionKeymap,
        ...lsp.findReferencesKeymap,
    ];
    const client = new LSPClient({
        rootUri: 'file:///program',
        timeout: PATIENCE,
        workspace: (made) => new ProgramWorkspace(made, documents),
        sanitizeHTML: sanitize,
        extensions: [
            lsp.serverCompletion({ override: true }),
            lsp.hoverTooltips(),
            lsp.signatureHelp(),
            keymap.of([...keys]),
            tokenColours(),
            {
                clientCapabilities: {
                    textDocument: {
                        publishDiagnostics: { versionSupport: true },
                        codeAction: {
                            codeActionLiteralSupport: { codeActionKind: { valueSet: ['quickfix'] } },
                        },
                    },
                },
                notificationHandlers: { 'textDocument/publishDiagnostics': publish },
                editorExtension: soon,
            },
        ],
    });
    documents.client = client;

    return {
        extension: (document) => client.plugin(document.uri, document.languageId),
        connect(server) {
            client.connect({
                send: (text) => server.post({ kind: 'message', text }),
                subscribe: (handler) => {
                    heard = handler;
                },
                unsubscribe: () => {
                    heard = () => undefined;
                },
            });
            // Those that have been shown already have their faults from the server that is gone.
            documents.all.forEach((document) => {
                document.problems = [];
                document.isChecked = false;
            });
        },
        take: (text) => heard(text),
        disconnect: () => client.disconnect(),
    };
}

// Puts the faults that are known of a document into an editor that has just been made.
export const showKnownProblems = (document: Document): void => showProblems(document, []);
