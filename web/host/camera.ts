// The camera: frames of 640x480 in YUYV, two points in four bytes.

import type { Server } from '../page/workers';
import { openDevice, refusal, type SwitchedDoor, type Tell } from './door';

const [WIDTH, HEIGHT] = [640, 480];
const FRAME_MS = 33;
const IDLE_MS = 500; // between frames that no program takes: the newest is not much older

// A picture as a camera delivers it. `rgba` has four bytes a point; the number of points is even.
function yuyvOf(rgba: Uint8ClampedArray): Uint8Array {
    const yuyv = new Uint8ClampedArray(rgba.length / 2);
    const at = (i: number): number => rgba[i] ?? 0;
    for (let from = 0, to = 0; from < rgba.length; from += 8, to += 4) {
        const y1 = 0.299 * at(from) + 0.587 * at(from + 1) + 0.114 * at(from + 2);
        const y2 = 0.299 * at(from + 4) + 0.587 * at(from + 5) + 0.114 * at(from + 6);
        yuyv[to] = y1;
        yuyv[to + 2] = y2;
        // The board adds 1.732446 times the one to blue and 1.370705 times the other to red.
        yuyv[to + 1] = 128 + (at(from + 2) + at(from + 6) - y1 - y2) / 2 / 1.732446;
        yuyv[to + 3] = 128 + (at(from) + at(from + 4) - y1 - y2) / 2 / 1.370705;
    }
    return new Uint8Array(yuyv.buffer);
}

// The middle of the picture, as large as it fits.
function takePicture(video: HTMLVideoElement, context: CanvasRenderingContext2D): Uint8Array {
    const scale = Math.max(WIDTH / video.videoWidth, HEIGHT / video.videoHeight);
    const [width, height] = [video.videoWidth * scale, video.videoHeight * scale];
    context.drawImage(video, (WIDTH - width) / 2, (HEIGHT - height) / 2, width, height);
    return yuyvOf(context.getImageData(0, 0, WIDTH, HEIGHT).data);
}

export function makeCamera(tell: Tell): SwitchedDoor {
    let server: Server | null = null;
    let stream: MediaStream | null = null;
    const video = document.createElement('video');
    video.muted = true;
    video.playsInline = true;
    const canvas = new OffscreenCanvas(WIDTH, HEIGHT);
    const context = canvas.getContext('2d', { alpha: false, willReadFrequently: true }) as never;
    let timer = 0;
    let sentAt = 0;

    const send = (): void => {
        clearTimeout(timer);
        if (!stream || !server) {
            return;
        }
        if (video.videoWidth === 0) {
            timer = window.setTimeout(send, FRAME_MS); // it has not begun yet
            return;
        }
        sentAt = performance.now();
        timer = window.setTimeout(send, IDLE_MS);
        const yuyv = takePicture(video, context);
        server.post({ kind: 'frame', yuyv }, [yuyv.buffer]);
    };
    const connect = (): void => {
        server?.post({ kind: 'camera', on: stream !== null });
        send();
    };
    const close = (): void => {
        stream?.getTracks().forEach((track) => track.stop());
        stream = null;
        video.srcObject = null;
        connect();
    };
    return {
        attach(to) {
            server = to;
            connect();
        },
        take(message) {
            if (message.kind === 'frameTaken') {
                clearTimeout(timer);
                timer = window.setTimeout(send, sentAt + FRAME_MS - performance.now());
            }
        },
        async open() {
            if (stream) {
                return;
            }
            stream = await openDevice('camera', { video: { width: WIDTH, height: HEIGHT, frameRate: 30 } });
            stream.getVideoTracks()[0]?.addEventListener('ended', () => {
                close();
                tell('The camera is gone.', true);
            });
            video.srcObject = stream;
            try {
                await video.play();
            } catch (error) {
                close();
                throw refusal('camera', error);
            }
            connect();
        },
        close,
    };
}
