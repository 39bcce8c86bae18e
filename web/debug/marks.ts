// The breakpoints in the sources, and where a line of the program that was started is in a source that has been
// edited since.

import type { ChangeDesc, Text } from '@codemirror/state';
import type { Body } from '../page/adapter';
import { LONGEST_FILE } from '../page/program';
import { keep, kept } from './kept';
import { makeSignal, type Session, type Signal } from './session';

export interface Breakpoint {
    line: number; // of the source as it is now, from 1
    condition: string;
    hits: string;
    log: string; // what is printed in place of stopping
    // What the adapter says of it, while there is a program.
    at: number; // where it stops, as a line of the program; 0 when nobody has said it
    fault: string;
}

interface File {
    breakpoints: Breakpoint[];
    text: Text | null; // as it is now; null when no editor has shown it
    launched: Text | null; // as it was started, and what has changed since
    changes: ChangeDesc | null; // null: nothing
    asked: number;
}

export interface Marks {
    at: (path: string, line: number) => Breakpoint | undefined;
    // Sets, changes or (null) removes one.
    set: (path: string, line: number, breakpoint: Partial<Breakpoint> | null) => void;
    hasMoved: (path: string, breakpoint: Breakpoint) => boolean;
    opened: (path: string, text: Text) => void;
    edited: (path: string, before: Text, after: Text, changes: ChangeDesc) => void;
    lineNow: (path: string, launchedLine: number) => number;
    isChanged: () => boolean; // a source, since the program was started
    forget: (path: string) => void;
    renamed: (path: string, newPath: string) => void;
    // Only this program, by its id, has files from then on; its breakpoints are those of before.
    open: (program: string) => void;
    onChange: Signal<void>['on'];
    onEdit: Signal<void>['on'];
}

// A breakpoint as it is remembered.
type Kept = Pick<Breakpoint, 'line' | 'condition' | 'hits' | 'log'> & { path: string };

function isKept(one: unknown): one is Kept {
    const { line, ...texts } = (one ?? {}) as Partial<Kept>;
    return (
        Number.isInteger(line) &&
        Number(line) >= 1 &&
        Number(line) <= LONGEST_FILE &&
        [texts.path, texts.condition, texts.hits, texts.log].every((text) => typeof text === 'string')
    );
}

export function makeMarks(session: Session): Marks {
    const files = new Map<string, File>();
    const changes = makeSignal<void>();
    const edits = makeSignal<void>();
    let program = '';
    const keepAll = (): void => {
        const all = [...files].flatMap(([path, { breakpoints }]) =>
            breakpoints.map(({ line, condition, hits, log }) => ({ path, line, condition, hits, log })),
        );
        keep('breakpoints', program, all);
    };
    const hasProgram = (): boolean => ['running', 'stopped'].includes(session.state());

    const fileOf = (path: string): File => {
        const file = files.get(path) ?? {
            breakpoints: [],
            text: null,
            launched: null,
            changes: null,
            asked: 0,
        };
        files.set(path, file);
        return file;
    };
    const mapLine = (line: number, from: Text, to: Text, by: ChangeDesc): number => {
        const start = from.line(Math.min(Math.max(line, 1), from.lines)).from;
        return to.lineAt(Math.min(by.mapPos(start, 1), to.length)).number;
    };
    const lineThen = ({ text, launched, changes: by }: File, line: number): number =>
        text && launched && by ? mapLine(line, text, launched, by.invertedDesc) : line;
    const lineNow = ({ text, launched, changes: by }: File, line: number): number =>
        text && launched && by ? mapLine(line, launched, text, by) : line;

    const send = async (path: string): Promise<void> => {
        const file = fileOf(path);
        const sent = [...file.breakpoints];
        file.asked += 1;
        const number = file.asked;
        const wanted: Body[] = sent.map((breakpoint) => ({
            line: lineThen(file, breakpoint.line),
            condition: breakpoint.condition,
            hitCondition: breakpoint.hits,
            logMessage: breakpoint.log,
        }));
        const body = await session.ask<{
            breakpoints: { verified: boolean; line?: number; message?: string }[];
        }>('setBreakpoints', { source: { path }, breakpoints: wanted });
        if (number === file.asked) {
            body.breakpoints.forEach((answer, i) => {
                const breakpoint = sent[i];
                if (breakpoint) {
                    breakpoint.at = answer.line ?? 0;
                    breakpoint.fault = answer.verified ? '' : (answer.message ?? 'It does not stop here.');
                }
            });
            changes.tell();
        }
    };
    session.beforeBegin.push(async () => {
        files.forEach((file) => {
            file.launched = file.text;
            file.changes = null;
        });
        const paths = [...files].filter(([, file]) => file.breakpoints.length > 0).map(([path]) => path);
        await Promise.all(paths.map(send));
    });
    session.onState(() => {
        if (!hasProgram()) {
            files.forEach((file) => {
                file.launched = file.changes = null;
                file.breakpoints.forEach((one) => Object.assign(one, { at: 0, fault: '' }));
            });
            changes.tell();
        }
    });
    return {
        at: (path, line) => files.get(path)?.breakpoints.find((breakpoint) => breakpoint.line === line),
        set(path, line, values) {
            const file = fileOf(path);
            const before = file.breakpoints.find((breakpoint) => breakpoint.line === line);
            file.breakpoints = file.breakpoints.filter((breakpoint) => breakpoint !== before);
            if (values) {
                const none = { condition: '', hits: '', log: '', at: 0, fault: '' };
                file.breakpoints.push({ ...none, ...before, ...values, line });
            }
            keepAll();
            changes.tell();
            if (hasProgram()) {
                send(path).catch(session.complain);
            }
        },
        hasMoved: (path, { at, line }) => at !== 0 && lineNow(fileOf(path), at) !== line,
        opened(path, text) {
            const file = fileOf(path);
            file.text = text;
            file.breakpoints = file.breakpoints.filter(({ line }) => line <= text.lines);
            if (hasProgram() && !file.launched) {
                file.launched = text;
            }
        },
        edited(path, before, after, by) {
            const file = fileOf(path);
            const count = file.breakpoints.length;
            const lines = new Set<number>();
            file.breakpoints = file.breakpoints.filter((breakpoint) => {
                const old = before.line(Math.min(breakpoint.line, before.lines));
                // A line that is replaced by itself, as by a formatter, stays.
                const same = breakpoint.line <= after.lines ? after.line(breakpoint.line).text.trim() : null;
                const isReplaced = by.touchesRange(old.from, old.to) === 'cover' && old.length > 0;
                if (!isReplaced) {
                    breakpoint.line = mapLine(breakpoint.line, before, after, by);
                } else if (same !== old.text.trim()) {
                    return false;
                }
                const isNew = !lines.has(breakpoint.line);
                lines.add(breakpoint.line);
                return isNew;
            });
            file.text = after;
            if (file.launched) {
                file.changes = file.changes?.composeDesc(by) ?? by;
            }
            if (count > 0) {
                keepAll();
            }
            if (file.breakpoints.length < count && hasProgram()) {
                send(path).catch(session.complain);
            }
            edits.tell();
        },
        lineNow: (path, line) => lineNow(fileOf(path), line),
        isChanged: () =>
            [...files.values()].some(({ text, launched }) => text && launched && !text.eq(launched)),
        forget(path) {
            if (files.delete(path)) {
                keepAll();
            }
        },
        renamed(path, newPath) {
            const file = files.get(path);
            if (file) {
                files.delete(path);
                files.set(newPath, file);
                keepAll();
            }
        },
        open(id) {
            program = id;
            files.clear();
            for (const { path, ...one } of kept('breakpoints', id, isKept)) {
                fileOf(path).breakpoints.push({ ...one, at: 0, fault: '' });
            }
        },
        onChange: changes.on,
        onEdit: edits.on,
    };
}
