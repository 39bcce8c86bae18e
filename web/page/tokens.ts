// The colours that only the language server knows: labels of code, of data, and addresses of devices.

import { Decoration, EditorView } from '@codemirror/view';
import type { DecorationSet } from '@codemirror/view';
import { RangeSetBuilder, StateEffect, StateField } from '@codemirror/state';
import type { Extension, Text } from '@codemirror/state';
import type { LSPClient } from '@codemirror/lsp-client';
import type { SemanticTokens } from 'vscode-languageserver-protocol';
import type { Document } from './documents';

const setColours = StateEffect.define<DecorationSet>();

const colours = StateField.define<DecorationSet>({
    create: () => Decoration.none,
    update(set, transaction) {
        const fresh = transaction.effects.find((effect) => effect.is(setColours));
        return fresh === undefined ? set.map(transaction.changes) : (fresh.value as DecorationSet);
    },
    provide: (field) => EditorView.decorations.from(field),
});

export const tokenColours = (): Extension => colours;

function decode(
    doc: Text,
    data: readonly number[],
    types: readonly string[],
    modifiers: readonly string[],
): DecorationSet {
    const builder = new RangeSetBuilder<Decoration>();
    const port = 1 << modifiers.indexOf('defaultLibrary');
    let line = 0;
    let character = 0;
    for (let i = 0; i + 4 < data.length; i += 5) {
        const [lines = 0, characters = 0, length = 0, type = 0, flags = 0] = data.slice(i, i + 5);
        character = lines > 0 ? characters : character + characters;
        line += lines;
        const from = doc.line(Math.min(line + 1, doc.lines)).from + character;
        const name = (flags & port) !== 0 ? 'port' : types[type];
        if ((name === 'function' || name === 'variable' || name === 'port') && from + length <= doc.length) {
            builder.add(from, from + length, Decoration.mark({ class: `code-${name}` }));
        }
    }
    return builder.finish();
}

// Asks for the colours of a document and shows them, if nothing has been typed meanwhile.
export function wantColours(view: EditorView, client: LSPClient, document: Document): void {
    const { doc } = view.state;
    const legend = client.serverCapabilities?.semanticTokensProvider?.legend;
    if (legend === undefined || document.doc !== doc) {
        return;
    }
    const params = { textDocument: { uri: document.uri } };
    client.request<typeof params, SemanticTokens | null>('textDocument/semanticTokens/full', params).then(
        (tokens) => {
            if (tokens !== null && document.view === view && view.state.doc === doc) {
                const set = decode(doc, tokens.data, legend.tokenTypes, legend.tokenModifiers);
                view.dispatch({ effects: setColours.of(set) });
            }
        },
        () => undefined, // the worker has ended
    );
}
