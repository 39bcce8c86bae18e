// What the debugger remembers of a program, by its id: lists that the browser keeps, and which are no loss.

import { remember, remembered } from '../page/store';

const KINDS = ['watches', 'breakpoints'] as const;
type Kind = (typeof KINDS)[number];

const MOST = 1000;

const keyOf = (kind: Kind, program: string): string => `${kind}-${program}`;

export function keep(kind: Kind, program: string, list: readonly unknown[]): void {
    remember(keyOf(kind, program), list.length === 0 ? null : JSON.stringify(list.slice(0, MOST)));
}

// Those that have the wanted form.
export function kept<T>(kind: Kind, program: string, isWanted: (one: unknown) => one is T): T[] {
    try {
        const list: unknown = JSON.parse(remembered(keyOf(kind, program)) ?? '[]');
        return Array.isArray(list) ? list.filter(isWanted).slice(0, MOST) : [];
    } catch {
        return [];
    }
}

// The program is gone.
export function forgetKept(program: string): void {
    KINDS.forEach((kind) => keep(kind, program, []));
}
