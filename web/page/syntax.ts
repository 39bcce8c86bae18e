// The colours of the language before, and besides, what the language server knows.

import { HighlightStyle, StreamLanguage, syntaxHighlighting } from '@codemirror/language';
import type { Extension } from '@codemirror/state';
import { tags } from '@lezer/highlight';

export const OPERATIONS = new Set(
    'halt add sub mult div cp and or not sl sr cpfa cpta be bne blt call ret cpdata .data'.split(' '),
);
const WORD = /^(?:(?!\/\/)\S)+/; // a word ends at white space or at a comment
const NUMBER = /^-?(?:0x[0-9a-f]+|[0-9]+)$/;

interface LineState {
    place: 'begin' | 'operation' | 'operands' | 'file';
}

const language = StreamLanguage.define<LineState>({
    name: 'k24',
    startState: () => ({ place: 'begin' }),
    token(stream, state) {
        if (stream.sol()) {
            state.place = 'begin';
        }
        if (stream.eatSpace()) {
            state.place = state.place === 'begin' ? 'operation' : state.place;
            return null;
        }
        if (stream.match('//')) {
            stream.skipToEnd();
            return 'comment';
        }
        const found = stream.match(WORD) as RegExpMatchArray | null;
        const word = found?.[0] ?? '';
        switch (state.place) {
            case 'begin':
                state.place = word === '#include' ? 'file' : 'operation';
                return word === '#include' ? 'include' : /^[-+0-9]/.test(word) ? 'number' : 'label';
            case 'operation':
                state.place = 'operands';
                return OPERATIONS.has(word) ? 'operation' : null;
            case 'operands':
                return NUMBER.test(word) ? 'number' : null;
            case 'file':
                return 'file';
        }
    },
    languageData: {
        commentTokens: { line: '//' },
        // All that a word may have: it ends at white space.
        wordChars: '!"#$%&\'()*+,-.:;<=>?@[\\]^_`{|}~',
    },
    tokenTable: {
        comment: tags.lineComment,
        include: tags.processingInstruction,
        file: tags.string,
        label: tags.labelName,
        operation: tags.keyword,
        number: tags.number,
    },
});

const style = HighlightStyle.define([
    { tag: tags.lineComment, color: 'var(--code-comment)', fontStyle: 'italic' },
    { tag: tags.processingInstruction, color: 'var(--code-include)' },
    { tag: tags.string, color: 'var(--code-string)' },
    { tag: tags.labelName, color: 'var(--code-label)', fontWeight: '600' },
    { tag: tags.keyword, color: 'var(--code-operation)' },
    { tag: tags.number, color: 'var(--code-number)' },
]);

export function syntax(): Extension {
    return [language, syntaxHighlighting(style)];
}
