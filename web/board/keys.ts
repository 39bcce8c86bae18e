// Which keys are the board's, and which characters they are.

const NAMED: Record<string, number> = { Enter: 10, Tab: 9, Backspace: 8, Escape: 27 };

// The code of what a key, or a character, is to the board: 0 to 255, and 0 for what is nothing to it.
export function codeOf(key: string): number {
    if ([...key].length === 1) {
        return (key.codePointAt(0) ?? 0) & 0xff;
    }
    return NAMED[key] ?? 0;
}

interface Key {
    key: string;
    ctrlKey: boolean;
    altKey: boolean;
    metaKey: boolean;
    shiftKey: boolean;
    isComposing: boolean;
    getModifierState(name: string): boolean;
}

// Whether a key is a command for the browser, or half a character.
export function isForTheBrowser(event: Key): boolean {
    if (event.isComposing || (event.key === 'Tab' && event.shiftKey)) {
        return true;
    }
    if (event.getModifierState('AltGraph')) {
        return false;
    }
    // On some computers Alt makes characters, but then other ones than these.
    return event.ctrlKey || event.metaKey || (event.altKey && /^\w+$/.test(event.key));
}
