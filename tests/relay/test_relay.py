"""The relay of the virtual serial cable, with real sockets. Each test has a relay on a loopback address of its own."""

import array
import contextlib
import itertools
import os
import pathlib
import random
import re
import resource
import signal
import socket
import struct
import subprocess
import threading
import time
import unittest

from servers import wait_until

TOVIK_RELAY = pathlib.Path(os.environ["TOVIK_BIN"]) / "tovik-relay"
ADDRESSES = (f"127.0.0.{i}" for i in itertools.count(2))
TCP_FIN_WAIT1 = 4  # the end of the transmission has not arrived yet
PAIRS = 1000
EVERY_BYTE = bytes(range(256))


def response_to(challenge):
    (number,) = struct.unpack("<I", challenge)
    return struct.pack("<I", (number * number + 10714194) % 2**32)


def introduction(challenge, name):
    return response_to(challenge) + struct.pack("<I", len(name) + 1) + name + b"\0"


def take(connection, count):
    """Exactly so many bytes, or fewer at the end of the transmission."""
    data = b""
    while len(data) < count and (more := connection.recv(count - len(data))):
        data += more
    return data


def is_closed(connection):
    try:
        return connection.recv(1) == b""
    except ConnectionResetError:
        return True


def reset(connection):
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    connection.close()


WAYS_TO_LEAVE = {"close": socket.socket.close, "half": lambda c: c.shutdown(socket.SHUT_WR), "reset": reset}


class Peer:
    """A client that keeps to nothing. Its bytes tell whose they are."""

    def __init__(self, number, name, connection):
        self.number, self.name, self.connection = number, name, connection
        self.bytes = array.array("I", range(number, number + (50_000 << 12), 1 << 12)).tobytes()
        self.out, self.sent, self.got = b"", 0, b""
        self.end = None  # how it left
        self.over = False  # it has read the end
        connection.setblocking(False)

    def read(self, most):
        try:
            data = self.connection.recv(most)
            self.got += data
            self.over = self.over or not data
        except BlockingIOError:
            pass
        except OSError:
            self.over = True
        if not self.out and len(self.got) >= 4:
            self.out = introduction(self.got[:4], self.name) + self.bytes

    def leave(self, how):
        if self.end is None or not self.over:
            self.end = "after" if self.over else how
        with contextlib.suppress(OSError):
            WAYS_TO_LEAVE[how](self.connection)

    def step(self, rng):
        if self.end in (None, "half") and rng.random() < 0.5:
            self.read(rng.choice((4, 8, 1000, 100_000)))
        elif self.end is None:
            with contextlib.suppress(OSError):
                most = rng.choice((1, 3, 8, 20, 8192, 200_000))
                self.sent += self.connection.send(self.out[self.sent:self.sent + most])
            if rng.random() < 0.03:
                self.leave(rng.choice(("half", "half", "half", "close", "reset")))
        elif self.over or rng.random() < 0.01:
            self.leave("close")


class Relay(unittest.TestCase):
    def start(self, *options):
        self.address = next(ADDRESSES)
        self.process = subprocess.Popen(
            ["setpriv", "--pdeathsig=TERM", TOVIK_RELAY, "--address", self.address, "--port", "0", *map(str, options)],
            stderr=subprocess.PIPE, text=True)
        self.log = [self.process.stderr.readline()]
        self.port = int(re.search(r"listening on [\d.]+:(\d+)", self.log[0]).group(1))
        self.reader = threading.Thread(target=lambda: self.log.extend(self.process.stderr))
        self.reader.start()
        self.addCleanup(self.stop)

    def stop(self, number=signal.SIGTERM):
        if self.process.stderr.closed:
            return
        self.process.send_signal(number)
        self.assertEqual(0, self.process.wait(timeout=20), "".join(self.log))
        self.reader.join()
        self.process.stderr.close()

    def memory(self):
        status = pathlib.Path(f"/proc/{self.process.pid}/status").read_text()
        return int(re.search(r"VmRSS:\s+(\d+) kB", status).group(1)) * 1024

    def processor_time(self):
        fields = pathlib.Path(f"/proc/{self.process.pid}/stat").read_text().split()
        return sum(map(int, fields[13:15])) / os.sysconf("SC_CLK_TCK")

    def descriptors(self):
        return len(os.listdir(f"/proc/{self.process.pid}/fd"))

    @contextlib.contextmanager
    def stopped(self):
        """What happens inside, the relay sees all at once."""
        self.process.send_signal(signal.SIGSTOP)
        os.waitid(os.P_PID, self.process.pid, os.WSTOPPED | os.WEXITED | os.WNOWAIT)
        yield
        self.process.send_signal(signal.SIGCONT)

    def connect(self, source="127.0.0.1", buffers=None):
        connection = socket.socket()
        self.addCleanup(connection.close)
        connection.settimeout(20)
        connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        for name in (socket.SO_RCVBUF, socket.SO_SNDBUF) if buffers else ():
            connection.setsockopt(socket.SOL_SOCKET, name, buffers)
        connection.bind((source, 0))
        connection.connect((self.address, self.port))
        return connection

    def join(self, name, *where):
        """A client after its handshake, and the status that it was given."""
        connection = self.connect(*where)
        connection.sendall(introduction(take(connection, 4), name))
        return connection, take(connection, 4)

    def pair(self, name=b"ada", buffers=None):
        """With small buffers for the first one if so many bytes are given."""
        return self.join(name, "127.0.0.1", buffers)[0], self.join(name)[0]

    def fill(self, connection, most=8 << 20):
        """Sends until nothing more is taken for a while; returns what was sent."""
        sent = bytearray()
        connection.settimeout(0.3)
        with contextlib.suppress(TimeoutError):
            while len(sent) < most:
                piece = random.randbytes(4096)
                sent += piece[:connection.send(piece)]
        connection.settimeout(20)
        return bytes(sent)

    def expect_passed(self, sender, receiver, data, why=None):
        sender.sendall(data)
        self.assertEqual(data, take(receiver, len(data)), why)

    def wait_log(self, text, count=1):
        wait_until(lambda: "".join(self.log).count(text) >= count)

    def test_pairs(self):
        self.start()
        bob, status = self.join(b"bob")
        self.assertEqual(bytes(4), status)
        for how, index, early in itertools.product(WAYS_TO_LEAVE, (0, 1), (b"", random.randbytes(8192))):
            with self.subTest(how, index=index, early=len(early)):
                first = self.connect("127.0.1.5")
                first.sendall(introduction(take(first, 4), b"ada") + early)
                self.assertEqual(bytes(4), take(first, 4), "the name is free")
                second, status = self.join(b"ada")
                self.assertEqual(bytes([127, 0, 1, 5]), status)
                first.sendall(EVERY_BYTE)
                self.assertEqual(early + EVERY_BYTE, take(second, len(early) + 256))
                self.expect_passed(second, first, EVERY_BYTE)
                third, status = self.join(b"ada")
                self.assertEqual(b"", status)
                self.assertTrue(is_closed(third))
                leaver, stayer = (first, second)[::1 - 2 * index]
                self.expect_passed(leaver, stayer, b"bye")
                WAYS_TO_LEAVE[how](leaver)
                self.assertEqual(b"", take(stayer, 1))
                new, status = self.join(b"ada")
                self.assertEqual(bytes(4), status, "the name is free")
                for _ in range(5):
                    stayer.sendall(bytes(100_000))  # more than waits anywhere, and no broken pipe
                partner, _ = self.join(b"ada")
                self.expect_passed(new, partner, b"new", "nothing of the old pair")
                stayer.close()
                self.expect_passed(partner, new, b"back")
                new.close()
                self.assertEqual(b"", take(partner, 1))
        self.expect_passed(bob, self.join(b"bob")[0], b"y")

    def test_limits_of_time_and_names(self):
        self.start("--max-name", 6, "--handshake-timeout", 1, "--farewell-timeout", 1)
        patient = self.join(b"ada")[0]
        leaver, stayer = self.pair(b"bob")
        leaver.close()
        self.assertEqual(b"", take(stayer, 1))
        begin = time.monotonic()
        stalled = [lambda c, count=count: introduction(c, b"abc")[:count] for count in (0, 3, 4, 7, 8, 10)]
        bad = [lambda c: bytes(4), lambda c: bytes([response_to(c)[0] ^ 1]) + response_to(c)[1:],
               lambda c: introduction(c, b""), lambda c: response_to(c) + bytes(4),
               lambda c: introduction(c, b"seven77"), lambda c: response_to(c) + b"\xff\xff\xff\xff",
               lambda c: introduction(c, b"a\0b"), lambda c: introduction(c, b"ab")[:-1] + b"c",
               lambda c: random.randbytes(100_000)]
        connections = [self.connect() for _ in stalled + bad]
        for connection, data in zip(connections, stalled + bad):
            connection.sendall(data(take(connection, 4)))
        self.assertEqual(bytes(4), self.join(b"six666")[1])
        self.assertEqual(bytes(4), self.join(b"\xff\n")[1], "any other byte may be in a name")
        self.assertEqual([True] * len(connections), [is_closed(connection) for connection in connections])
        self.wait_log("it has not named itself in time", len(stalled))
        with self.assertRaises((BrokenPipeError, ConnectionResetError)):
            while time.monotonic() < begin + 10:
                stayer.sendall(b"x")
                time.sleep(0.01)
        self.assertTrue(0.9 < time.monotonic() - begin < 5)
        self.expect_passed(self.join(b"ada")[0], patient, b"x", "only handshake and farewell have a time limit")
        self.stop()
        self.assertEqual(len(stalled), "".join(self.log).count("it has not named itself in time"))

    def test_limits_of_connections(self):
        self.start("--max-clients", 4, "--max-per-address", 3)
        joined = [self.join(b"%d" % i) for i in range(3)]
        self.assertTrue(is_closed(self.connect()), "three from this address")
        self.assertEqual(bytes(4), self.join(b"x", "127.0.1.1")[1])
        self.assertTrue(is_closed(self.connect("127.0.1.2")), "four in all")
        joined[0][0].close()
        self.wait_log("it has left")
        self.assertEqual(bytes(4), self.join(b"y")[1])

    def test_one_leaves_while_bytes_are_sent_to_it(self):
        """In one look of the relay at its connections a write finds room for a part of its bytes, the partner has left,
        and somebody comes. Of so many sizes, some leave such a room."""
        self.start("--max-per-address", 10_000)
        one, other = self.pair()
        for turn in range(16):
            pairs = [(*self.pair(b"%d" % size, 4096), size) for size in range(32_000, 92_000, 500)]
            for _, sender, size in pairs:
                sender.sendall(b"\xff" * size)
            for _ in range(100):  # more looks than all of that needs
                one.sendall(b"x")
                take(other, 1)
            strangers = []
            with self.stopped():
                for leaver, sender, _ in pairs:
                    sender.sendall(b"\xff" * 8192)
                    leaver.shutdown(socket.SHUT_WR)
                    strangers.append(self.connect())
            for number, stranger in enumerate(strangers):
                stranger.sendall(introduction(take(stranger, 4), b"%d/%d" % (turn, number)))
                self.assertEqual(bytes(4), take(stranger, 4), "nothing that was for another")

    def test_whatever_peers_do_nobody_gets_what_is_not_for_him(self):
        """They leave and stall at every point, and the relay sees many of these things at once."""
        seed = random.randrange(2**32)
        print(f"peers, seed {seed}")
        rng = random.Random(seed)
        self.start()
        descriptors = self.descriptors()
        names, peers, active = (b"ada", b"bob", b"eve"), [], []
        while len(peers) < 400:
            with self.stopped() if rng.random() < 0.7 else contextlib.nullcontext():
                for _ in range(rng.choice((5, 50, 300))):
                    if len(active) < 12:
                        peers.append(Peer(len(peers), rng.choice(names), self.connect(buffers=4096)))
                        active.append(peers[-1])
                    rng.choice(active).step(rng)
                    active = [peer for peer in active if peer.connection.fileno() >= 0]
            time.sleep(0.001)
        for peer in active:
            peer.leave("half")
            for other in active * 30:
                other.read(100_000)
                time.sleep(0.0001)
        for peer in active:
            peer.leave("close")
        self.check(peers)
        for name in names:
            # Whoever left behind more than fits anywhere has not left before a partner reads it.
            partner, status = self.join(name)
            with contextlib.suppress(ConnectionResetError):
                while status != bytes(4) and partner.recv(1 << 20):
                    pass
            partner.close()
        wait_until(lambda: self.descriptors() == descriptors)
        self.stop()
        self.assertIn("ends with 0 clients", self.log[-1])

    def check(self, peers):
        partners = {}
        for peer in peers:
            data = peer.got[8:]
            if len(data) >= 4:
                partner = peers[int.from_bytes(data[:4], "little") % 4096]
                self.assertEqual(peer.name, partner.name)
                self.assertTrue(partner.bytes.startswith(data), "only a partner's, each once and in order")
                self.assertIs(partner, partners.setdefault(peer, partner))
                self.assertIs(peer, partners.setdefault(partner, peer), "partners are two")
        whole = [(partner.sent - len(introduction(bytes(4), partner.name)), len(peer.got) - 8)
                 for peer, partner in partners.items()
                 if partner.end == "half" and peer.over and peer.end in (None, "after")]
        self.assertGreater(len(whole), 0)
        self.assertEqual([sent for sent, _ in whole], [got for _, got in whole], "all that was sent before the end")

    def test_a_name_is_free_when_its_client_leaves(self):
        self.start()
        for count, early in enumerate((b"", bytes(20_000)), 1):
            waiting = self.join(b"ada")[0]
            waiting.sendall(early)
            waiting.close()
            self.wait_log("it has left", count)
        # Behind a partner that does not read.
        first, second = self.pair(buffers=4096)
        sent, arrived = self.fill(first), b""
        first.shutdown(socket.SHUT_WR)
        # The end of a transmission travels behind its bytes, and not through a closed window.
        while first.getsockopt(socket.IPPROTO_TCP, socket.TCP_INFO, 1)[0] == TCP_FIN_WAIT1:
            arrived += take(second, min(4096, len(sent) - len(arrived)))
            time.sleep(0.005)
        first.close()
        third = wait_until(lambda: (joined := self.join(b"ada"))[1] and joined)
        fourth = self.join(b"ada")
        self.assertEqual((bytes(4), bytes([127, 0, 0, 1])), (third[1], fourth[1]))
        self.assertEqual(sent, arrived + take(second, len(sent)), "and yet gets all that was sent")
        second.close()
        self.wait_log("it has left", 4)
        self.assertEqual(b"", self.join(b"ada")[1], "the name is the new pair's")

    def test_a_slow_reader_slows_its_partner(self):
        self.start()
        first, second = self.pair()
        other, another = self.pair(b"bob")
        before = self.memory()
        waiting, _ = self.join(b"eve")
        sent = [self.fill(first), self.fill(second), self.fill(waiting)]
        for data in sent:
            self.assertLess(len(data), 6 << 20, "the kernel's buffers on both sides and no more")
        self.assertLess(self.memory() - before, 1 << 20)
        self.expect_passed(other, another, b"x", "nobody else is slowed")
        for data, reader in zip(sent, (second, first, self.join(b"eve")[0])):
            self.assertTrue(data == take(reader, len(data)))
        self.fill(first)
        self.stop(signal.SIGINT)
        self.assertTrue(is_closed(waiting))

    @unittest.skipIf(os.environ.get("TOVIK_SANITIZE") == "ON", "the sanitizers themselves need descriptors")
    def test_no_descriptors_left(self):
        self.start()
        subprocess.run(["prlimit", "--pid", str(self.process.pid), f"--nofile={self.descriptors() + 2}"], check=True)
        inside = self.pair()
        before, begin = self.processor_time(), time.monotonic()
        outside = self.connect()
        self.wait_log("no new connections for a moment", 2)
        self.assertGreater(time.monotonic() - begin, 0.9, "it tries again after a second")
        inside[0].close()
        outside.sendall(introduction(take(outside, 4), b"b"))
        self.assertEqual(bytes(4), take(outside, 4), "whoever waited gets its turn")
        self.assertLess(self.processor_time() - before, 0.2, "it does not spin")

    def test_start_and_log(self):
        self.start()
        for *options, status, error in (
                ("--port", self.port, "--address", self.address, 1,
                 f"tovik-relay: cannot listen on {self.address}:{self.port}: Address already in use\n"),
                ("--port", "x", 2, "tovik-relay: --port: "), ("--port", "65536", 2, "tovik-relay: --port: "),
                ("--address", "nowhere", 2, "tovik-relay: --address: "), ("--log-level", "loud", 2, "--log-level: "),
                ("extra", 2, "tovik-relay: "), ("--max-clients", "0", 2, "tovik-relay: --max-clients: ")):
            with self.subTest(options):
                done = subprocess.run([TOVIK_RELAY, *map(str, options)], capture_output=True, text=True, timeout=20)
                self.assertEqual(status, done.returncode)
                self.assertIn(error, done.stderr)
        self.stop()
        for level, is_named in (("info", False), ("debug", True)):
            self.start("--log-level", level)
            self.join(b"se\ncret")[0].close()
            self.join(b"secret")
            self.stop()
            text = "".join(self.log)
            self.assertEqual([is_named] * 3, ["'se\\x0acret'" in text, "'secret'" in text, "cret" in text], text)

    def test_load(self):
        """All pairs at a time, in each one sends and closes at once. No byte is lost."""
        resource.setrlimit(resource.RLIMIT_NOFILE, (resource.getrlimit(resource.RLIMIT_NOFILE)[1],) * 2)
        if resource.getrlimit(resource.RLIMIT_NOFILE)[0] < 2 * PAIRS + 50:
            self.skipTest("the limit of open files is too low")
        self.start("--max-clients", 2 * PAIRS, "--max-per-address", 2 * PAIRS)
        before = self.memory()
        pairs = [(*self.pair(b"%d" % i), random.randbytes(2 ** (i % 16))) for i in range(PAIRS)]
        self.assertLess(self.memory() - before, PAIRS * 40_000 + (8 << 20))
        for one, _, data in pairs:
            one.sendall(data)
            one.close()
        for _, other, data in pairs:
            self.assertTrue(data == take(other, len(data) + 1))


if __name__ == "__main__":
    unittest.main()
