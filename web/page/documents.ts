// The texts of the open program and of the built-in library, each with its editor once it has been shown. They are
// the workspace of the language client, which reads and changes them here.

import type { EditorView } from '@codemirror/view';
import { ChangeSet, Text } from '@codemirror/state';
import type { TransactionSpec } from '@codemirror/state';
import { LSPPlugin, Workspace } from '@codemirror/lsp-client';
import type { LSPClient, WorkspaceFile } from '@codemirror/lsp-client';
import type { Diagnostic as ServerDiagnostic } from 'vscode-languageserver-protocol';
import type { Files } from './program';

const FOLDER = '/program/';

export const pathOf = (name: string): string => FOLDER + name;
const uriOf = (name: string): string =>
    `file://${FOLDER}${name.split('/').map(encodeURIComponent).join('/')}`;
const nameOfPath = (path: string): string => path.slice(FOLDER.length);
export const nameOfUri = (uri: string): string => nameOfPath(decodeURIComponent(uri.slice('file://'.length)));

export interface Document extends WorkspaceFile {
    name: string;
    own: boolean; // of the program; otherwise of the library
    open: boolean; // for the server
    view: EditorView | null;
    problems: ServerDiagnostic[];
    isChecked: boolean; // the server has said so, or else that there are none
}

export interface Documents {
    all: Map<string, Document>;
    client: LSPClient | null; // the language client, once there is one
    shown(document: Document): void; // by the editor: puts its editor in front
    owned(document: Document): void; // by the editor: it can be typed into now
    changed(): void; // the texts or the names
}

let nextVersion = 0;

export function makeDocument(name: string, text: string, own: boolean): Document {
    nextVersion += 1;
    const document: Document = {
        name,
        uri: uriOf(name),
        languageId: 'k24',
        version: nextVersion,
        doc: Text.of(text.split(/\r\n?|\n/)),
        own,
        open: false,
        view: null,
        problems: [],
        isChecked: false,
        getView: () => document.view,
    };
    return document;
}

export const textOf = (document: Document): string => (document.view?.state.doc ?? document.doc).toString();

export const ownFiles = (documents: Documents): Files =>
    new Map(
        [...documents.all.values()]
            .filter(({ own }) => own)
            .map((document) => [document.name, textOf(document)]),
    );

function openForServer(documents: Documents, document: Document): void {
    if (!document.open && documents.client !== null) {
        document.open = true;
        documents.client.didOpen(document);
    }
}

export function addDocument(documents: Documents, document: Document): void {
    documents.all.set(document.name, document);
    if (document.own) {
        openForServer(documents, document);
    }
}

export function removeDocument(documents: Documents, name: string): void {
    const document = documents.all.get(name);
    if (document !== undefined) {
        documents.all.delete(name);
        closeDocument(documents, document);
    }
}

// One that is no longer among them: its editor goes, and the server forgets it.
export function closeDocument(documents: Documents, document: Document): void {
    document.view?.destroy();
    if (document.open) {
        documents.client?.didClose(document.uri);
    }
}

// Puts others in the place of all of them, at one go. Neither editors nor the server are told: returns those that were
// there, which are to be closed.
export function replaceDocuments(documents: Documents, made: readonly Document[]): Document[] {
    const before = [...documents.all.values()];
    documents.all.clear();
    made.forEach((document) => documents.all.set(document.name, document));
    return before;
}

// Applies a change of text, whether the document has an editor or not.
function changeDocument(documents: Documents, document: Document, change: TransactionSpec): void {
    if (document.view !== null) {
        document.view.dispatch(change);
        return;
    }
    nextVersion += 1;
    document.doc = ChangeSet.of(change.changes ?? [], document.doc.length).apply(document.doc);
    document.version = nextVersion;
    if (document.open) {
        documents.client?.notification('textDocument/didChange', {
            textDocument: { uri: document.uri, version: document.version },
            contentChanges: [{ text: document.doc.toString() }],
        });
    }
    documents.changed();
}

// Gives it another text by the smallest change, so that the cursor and what can be undone stay.
export function setText(documents: Documents, document: Document, text: string): void {
    const old = textOf(document);
    let from = 0;
    while (from < old.length && from < text.length && old[from] === text[from]) {
        from += 1;
    }
    let [to, end] = [old.length, text.length];
    while (to > from && end > from && old[to - 1] === text[end - 1]) {
        to -= 1;
        end -= 1;
    }
    if (to > from || end > from) {
        changeDocument(documents, document, { changes: { from, to, insert: text.slice(from, end) } });
    }
}

// A file of the library becomes one of the program, so that it can be changed.
export function ownCopy(documents: Documents, document: Document): void {
    document.own = true;
    openForServer(documents, document);
    documents.owned(document);
    documents.changed();
}

export class ProgramWorkspace extends Workspace {
    constructor(
        client: LSPClient,
        private readonly documents: Documents,
    ) {
        super(client);
    }

    get files(): Document[] {
        return [...this.documents.all.values()];
    }

    override getFile(uri: string): Document | null {
        return this.documents.all.get(nameOfUri(uri)) ?? null;
    }

    syncFiles(): { file: Document; prevDoc: Text; changes: ChangeSet }[] {
        const updates = [];
        for (const file of this.files) {
            const plugin = file.view === null ? null : LSPPlugin.get(file.view);
            if (plugin !== null && !plugin.unsyncedChanges.empty) {
                updates.push({ file, prevDoc: file.doc, changes: plugin.unsyncedChanges });
                nextVersion += 1;
                file.doc = plugin.view.state.doc;
                file.version = nextVersion;
                plugin.clear();
            }
        }
        return updates;
    }

    openFile(uri: string): void {
        const file = this.getFile(uri);
        if (file !== null) {
            openForServer(this.documents, file);
        }
    }

    closeFile(uri: string, view: EditorView): void {
        const file = this.getFile(uri);
        if (file?.view === view) {
            file.doc = view.state.doc;
            file.view = null;
        }
    }

    override connected(): void {
        for (const file of this.files.filter(({ own, open }) => own || open)) {
            file.open = false;
            openForServer(this.documents, file);
        }
    }

    override updateFile(uri: string, update: TransactionSpec): void {
        const file = this.getFile(uri);
        if (file !== null) {
            if (!file.own) {
                ownCopy(this.documents, file);
            }
            changeDocument(this.documents, file, update);
        }
    }

    override displayFile(uri: string): Promise<EditorView | null> {
        const file = this.getFile(uri);
        if (file !== null) {
            this.documents.shown(file);
        }
        return Promise.resolve(file?.view ?? null);
    }
}
