// The computer's own files, as the programs for Node open, read and write them. Emscripten's own functions for
// them know neither opening without waiting, nor pipes and devices, nor a place in a file that another program
// shares.

// The program, which stands behind this, takes what is here for its settings.
var Module = {};

Module.onRuntimeInitialized = () => {
    const O_NONBLOCK = 0o4000;
    const SEEK_SET = 0;
    const SEEK_CUR = 1;
    const WAIT_MS = 5;

    const codeOf = (error) => ERRNO_CODES[error.code];
    const failing =
        (call) =>
        (...arguments_) => {
            try {
                return call(...arguments_);
            } catch (error) {
                throw codeOf(error) === undefined ? error : new FS.ErrnoError(codeOf(error));
            }
        };
    // Again and again while a pipe is full, or has nothing yet.
    const waiting = (call) => {
        for (;;) {
            try {
                return call();
            } catch (error) {
                if (error.code !== 'EAGAIN') {
                    throw error;
                }
                Atomics.wait(new Int32Array(new SharedArrayBuffer(4)), 0, 0, WAIT_MS);
            }
        }
    };

    // The system knows where a file stands, until it is to go elsewhere.
    const placeOf = (stream, position) => position ?? (stream.moved ? stream.position : null);
    const bytesAt = (heap, pointer, count) => Buffer.from(heap.buffer, pointer, count);

    FS.open = failing((path, flags, mode, copied) => {
        const known = FS.streams[/^\/dev\/fd\/(\d+)$/.exec(path)?.[1]];
        if (copied !== undefined && known) {
            FS.streams[copied] = { ...known, fd: copied };
            return FS.streams[copied];
        }
        const nonBlocking = flags & O_NONBLOCK ? fs.constants.O_NONBLOCK : 0;
        const nfd = fs.openSync(path, NODEFS.flagsForNode(flags) | nonBlocking, mode);
        const node = { id: nfd, mode: fs.fstatSync(nfd).mode, node_ops: NODERAWFS, path };
        FS.streams[nfd] = { fd: nfd, nfd, path, flags, node, position: 0, moved: false };
        return FS.streams[nfd];
    });

    FS.close = failing((stream) => {
        FS.closeStream(stream.fd);
        if (!FS.streams.some((other) => other && other.nfd === stream.nfd)) {
            fs.closeSync(stream.nfd);
        }
    });

    FS.llseek = failing((stream, offset, whence) => {
        const status = fs.fstatSync(stream.nfd);
        if (status.isFIFO() || status.isSocket()) {
            throw new FS.ErrnoError(ERRNO_CODES.ESPIPE);
        }
        const from = whence === SEEK_SET ? 0 : whence === SEEK_CUR ? stream.position : status.size;
        stream.moved = stream.moved || from + offset !== stream.position;
        stream.position = from + offset;
        return stream.position;
    });

    FS.read = failing((stream, heap, pointer, count, position) => {
        const bytes = bytesAt(heap, pointer, count);
        const done = waiting(() => fs.readSync(stream.nfd, bytes, 0, count, placeOf(stream, position)));
        stream.position += position === undefined ? done : 0;
        return done;
    });

    FS.write = failing((stream, heap, pointer, count, position) => {
        const bytes = bytesAt(heap, pointer, count);
        for (let done = 0; done < count;) {
            const place = placeOf(stream, position === undefined ? undefined : position + done);
            const more = waiting(() => fs.writeSync(stream.nfd, bytes, done, count - done, place));
            stream.position += position === undefined ? more : 0;
            done += more;
        }
        return count;
    });

    for (const stream of FS.streams.filter((standard) => standard)) {
        stream.path = `/dev/fd/${stream.nfd}`;
    }
};
