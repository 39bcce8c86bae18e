// What a program can wait for, and what is said then.

// What the event `tovik/wanted` has as `question`.
export type Question =
    'sd' | 'microphone' | 'camera' | 'serial' | 'microphoneStream' | 'cameraStream' | 'line';

export const WANTED: Record<Question, string> = {
    sd: 'The program waits for a card: choose a file, or make an empty card.',
    microphone: 'The program waits for sound: choose a file, or switch the microphone on.',
    camera: 'The program waits for a picture: choose a movie, or switch the camera on.',
    serial: 'The program uses the serial port: say where it leads.',
    microphoneStream: 'The program waits for the microphone.',
    cameraStream: 'The program waits for the camera.',
    line: 'The program waits for the serial line.',
};
