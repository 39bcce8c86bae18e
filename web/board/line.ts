// Where the serial port leads.

import { element } from '../page/dom';
import { button } from '../page/parts';
import { chooseDevice, hasSerialDevices } from '../host/serial';
import { makeRow, type Row } from './rows';

const LONGEST_NAME = 20; // of a cable

export interface SerialRow extends Row {
    // For the program: a device, a cable, or empty for the console. Null while there is something missing.
    answer(): string | null;
    wantsAnswer(wish: boolean): void;
}

// `connect` gives the choice to the program.
export function makeSerialRow(connect: (answer: string) => void): SerialRow {
    let device = '';
    const name = element('input', {
        type: 'text',
        maxlength: LONGEST_NAME,
        value: 'cable',
        'aria-label': 'Name of the cable',
    });
    const choose = button('Choose a device…', () => {
        chooseDevice().then(
            (chosen) => {
                device = chosen;
                row.setState(chosen);
                row.say('');
            },
            (error: Error) => row.say(error.message),
        );
    });
    const kind = element(
        'select',
        { 'aria-label': 'Where the serial port leads' },
        element('option', { value: 'console' }, 'to the console'),
        element('option', { value: 'cable' }, 'by a cable to another tab'),
        hasSerialDevices ? element('option', { value: 'device' }, 'to a serial device') : null,
    );
    const answer = (): string | null => {
        if (kind.value === 'console') {
            return '';
        }
        const text = kind.value === 'cable' ? name.value.trim() : device;
        return text === '' || (kind.value === 'cable' && /[\d/]/.test(text)) ? null : text;
    };
    const join = button('Connect', () => {
        const given = answer();
        row.say(given === null ? 'A cable needs a name without digits; a device has to be chosen.' : '');
        if (given !== null) {
            connect(given);
        }
    });
    const row = makeRow('Serial port', kind, name, choose, join);
    const arrange = (): void => {
        name.hidden = kind.value !== 'cable';
        choose.hidden = kind.value !== 'device';
        row.setState(kind.value === 'device' ? device : '');
    };
    kind.addEventListener('change', () => {
        arrange();
        row.say(join.hidden ? 'It counts when the program next starts.' : '');
    });
    arrange();
    join.hidden = true;
    return { ...row, answer, wantsAnswer: (wish) => (join.hidden = !wish) };
}
