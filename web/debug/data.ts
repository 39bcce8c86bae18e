// Breakpoints on data, and who wrote a word.

import type { Session, Variable } from './session';
import type { Choice } from './ui';

type Access = 'change' | 'write' | 'read';

const KINDS: [Access, string][] = [
    ['change', 'Stop when it changes'],
    ['write', 'Stop when it is written'],
    ['read', 'Stop when it is read'],
];
const STOPS: Record<Access, string> = {
    change: 'Stops when it changes',
    write: 'Stops when it is written',
    read: 'Stops when it is read',
};

export interface Data {
    choices: (variable: Variable) => Choice[];
    mark: (variable: Variable) => string;
    forget: () => void;
}

interface Found {
    found: boolean;
    moment: number;
    count: number;
    byUser: boolean;
    place: string;
}

export function makeData(session: Session): Data {
    const stops = new Map<string, Access>(); // by the expression

    // A program that has been edited has its words at other addresses.
    const send = async (): Promise<void> => {
        const wanted = await Promise.all(
            [...stops].map(async ([name, accessType]) => {
                const { dataId } = await session.ask<{ dataId: string | null }>('dataBreakpointInfo', {
                    name,
                });
                return dataId === null ? [] : [{ dataId, accessType }];
            }),
        );
        await session.ask('setDataBreakpoints', { breakpoints: wanted.flat() });
    };
    session.beforeBegin.push(async () => {
        if (stops.size > 0) {
            await send();
        }
    });
    const set = (expression: string, access: Access | null): void => {
        stops.delete(expression);
        if (access) {
            stops.set(expression, access);
        }
        send().then(session.lookAgain, session.complain);
    };
    const whoWrote = async (name: string, expression: string): Promise<void> => {
        const written = await session.ask<Found>('tovik/lastWrite', { expression });
        const { found, moment, count, byUser, place } = written;
        if (!found) {
            session.say({
                text: `Nobody has written ${name} since the history began.`,
                isFault: false,
                actions: [],
            });
            return;
        }
        const who = byUser ? 'You have changed it, before' : `Instruction ${count} wrote ${name} last:`;
        session.say({
            text: `${who} ${place}.`,
            isFault: false,
            // Just before: then the instruction is the one that is next.
            actions: [
                {
                    label: 'Go there',
                    act: () => void session.goTo(byUser ? moment : moment - 1).catch(session.complain),
                },
                { label: 'Close', act: () => session.say(null) },
            ],
        });
    };
    return {
        choices({ name, evaluateName, variablesReference }) {
            if (!evaluateName || variablesReference !== 0) {
                return [];
            }
            const access = stops.get(evaluateName);
            return [
                {
                    label: `Who wrote ${name}?`,
                    act: () => void whoWrote(name, evaluateName).catch(session.complain),
                },
                ...KINDS.filter(([kind]) => kind !== access).map(([kind, label]) => ({
                    label,
                    act: () => set(evaluateName, kind),
                })),
                ...(access ? [{ label: 'Stop no more', act: () => set(evaluateName, null) }] : []),
            ];
        },
        mark({ evaluateName }) {
            const access = stops.get(evaluateName ?? '');
            return access ? STOPS[access] : '';
        },
        forget: () => stops.clear(),
    };
}
