#!/usr/bin/env python3
"""Signals to the daemon, at any moment of its life and on a busy machine: SIGINT, SIGQUIT and SIGTERM end it within a
second with status 255 and no teardown, SIGPIPE does nothing. usage: signals.py BIN_DIR

Every round is a fresh daemon, which gets one of the three signals, sent to the process or to one of its threads, at a
moment drawn by lot between its handlers' being there and well into its work. NARO_SEED repeats the drawing. A round also
ends a process that does nothing: what the busy machine needs for that is not the daemon's time."""
import concurrent.futures
import ctypes
import os
import random
import select
import signal
import socket
import subprocess
import sys
import time

from naro_system import *

SEED = int(os.environ.get("NARO_SEED") or random.SystemRandom().randrange(1 << 32))
AT_ONCE = 4  # daemons
# A sanitized program has terabytes of address space to give back first, which on a busy machine has been seen to take
# more than a second.
with open(f"{BIN}/naro_algo", "rb") as program:
    WITHIN_S = 10.0 if b"__asan_init" in program.read() else 1.0
ENDING = (signal.SIGINT, signal.SIGQUIT, signal.SIGTERM)
TEARDOWN = ("shbf exit", "shbf stop running", "ev loop break", "recv cmd quit", "quit!", "line[", "successfully released")

LIBC = ctypes.CDLL(None, use_errno=True)


def handlers_are_there(pid):
    """Whether a process has its signal dispositions."""
    with open(f"/proc/{pid}/status", encoding="ascii") as file:
        status = dict(line.rstrip("\n").split(":\t", 1) for line in file if ":\t" in line)
    caught, ignored = int(status["SigCgt"], 16), int(status["SigIgn"], 16)
    return all(caught >> (number - 1) & 1 for number in ENDING) and ignored >> (signal.SIGPIPE - 1) & 1


def send(pid, number, lot):
    """To the process, or to one of its threads."""
    if lot.random() < 0.5:
        thread = int(lot.choice(os.listdir(f"/proc/{pid}/task")))
        if LIBC.tgkill(pid, thread, int(number)) == 0:
            return
    os.kill(pid, number)


def seconds_to_end(pid, act):
    """From act() to the end of a process."""
    pidfd = os.pidfd_open(pid)
    try:
        poll = select.poll()
        poll.register(pidfd, select.POLLIN)
        begin_s = time.monotonic()
        act()
        return time.monotonic() - begin_s if poll.poll(LIMIT_S * 1000) else float("inf")
    finally:
        os.close(pidfd)


def idle_process_seconds():
    process = subprocess.Popen(["sleep", str(LIMIT_S)])
    try:
        return seconds_to_end(process.pid, process.terminate)
    finally:
        process.kill()
        process.wait()


def busy_machine(test):
    """Twice as many busy processes as processors, for the length of a test; they end with this process, come what may."""
    spin = "import os\nparent = os.getppid()\nwhile os.getppid() == parent: pass"
    for _ in range(2 * os.cpu_count()):
        process = subprocess.Popen([sys.executable, "-c", spin])
        test.addCleanup(process.wait)
        test.addCleanup(process.kill)


class EndingSignals(SystemTest):
    def setUp(self):
        super().setUp()
        print(f"NARO_SEED={SEED}", file=sys.stderr)
        busy_machine(self)

    def kill_one(self, number, longest_s, where, lot):
        """One round: a daemon under the root `where`, ended by signal `number`."""
        daemon = self.start("naro_algo", NARO_ROOT=where)
        until(lambda: handlers_are_there(daemon.pid), "signal handlers")
        # Half of the moments lie in the start-up, which is short.
        time.sleep(lot.uniform(0, longest_s if lot.random() < 0.5 else 0.05))
        took_s = seconds_to_end(daemon.pid, lambda: send(daemon.pid, number, lot))
        self.assertEqual(daemon.wait(), 255, daemon.text())
        for text in TEARDOWN:
            self.assertEqual(daemon.found(text), [], daemon.text())
        daemon.dispose()
        return took_s, idle_process_seconds()

    def kill_many(self, rounds, longest_s, prepare=lambda where: None):
        def worker(index):
            lot = random.Random(f"{SEED} {self.id()} {index}")
            where = f"{self.root}/{index}"
            os.makedirs(f"{where}/run")
            prepare(where)
            return [self.kill_one(ENDING[n // AT_ONCE % len(ENDING)], longest_s, where, lot)
                    for n in range(index, rounds, AT_ONCE)]

        with concurrent.futures.ThreadPoolExecutor(AT_ONCE) as pool:
            took_s = [pair for taken in pool.map(worker, range(AT_ONCE)) for pair in taken]
        self.assertEqual(len(took_s), rounds)
        daemon_s, idle_s = (max(column) for column in zip(*took_s))
        print(f"{rounds} rounds; the slowest took {daemon_s * 1000:.0f} ms, that of a process that does nothing "
              f"{idle_s * 1000:.0f} ms", file=sys.stderr)
        self.assertLess(daemon_s, WITHIN_S + idle_s)

    def feed(self, where):
        self.start("raw_feeder", NARO_ROOT=where).wait_for("ready")

    def test_without_a_media_server(self):
        self.kill_many(100, longest_s=0.6)

    def test_in_a_blocked_connect(self):
        """The media server is there and accepts nobody: connect itself blocks."""
        listener = socket.socket(socket.AF_UNIX)
        self.addCleanup(listener.close)
        listener.bind(MediaServer.ADDRESS)
        listener.listen(0)
        full = False
        while not full:
            client = socket.socket(socket.AF_UNIX)
            self.addCleanup(client.close)
            client.setblocking(False)
            full = client.connect_ex(MediaServer.ADDRESS) != 0
        self.kill_many(100, longest_s=0.1)

    def test_while_frames_are_analysed(self):
        server = self.media_server()
        self.kill_many(200, longest_s=0.6, prepare=self.feed)
        self.assertGreater(len(server.requests), 0, "no daemon lived long enough to analyse a frame")

    def test_while_the_media_server_does_not_answer(self):
        self.media_server().leave_unread(True)
        self.kill_many(100, longest_s=0.6, prepare=self.feed)


class BrokenPipe(SystemTest):
    def test_the_daemon_lives_on(self):
        server = self.media_server()
        daemon = self.start("naro_algo")
        self.raw_stream()
        server.wait_for_requests(1)
        for _ in range(3):
            daemon.signal(signal.SIGPIPE)
            server.wait_for_more_requests(2)
        self.assertTrue(daemon.running())
        self.assertEqual(daemon.errors(), [])
        self.assertEqual(daemon.stop(), 255)

    def test_nor_does_it_mind_a_reader_of_its_lines_that_leaves(self):
        server = self.media_server()
        reader, writer = os.pipe()
        daemon = subprocess.Popen([f"{BIN}/naro_algo"], env={**os.environ, "NARO_ROOT": self.root}, stdout=writer,
                                  stderr=writer)
        os.close(writer)
        os.close(reader)
        self.addCleanup(daemon.wait)
        self.addCleanup(daemon.kill)
        self.raw_stream()
        server.wait_for_requests(3)
        daemon.terminate()
        self.assertEqual(daemon.wait(LIMIT_S), 255)


if __name__ == "__main__":
    main()
