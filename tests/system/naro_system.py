"""What system tests share: a root and names of their own, programs whose lines can be waited for, the media server
and the raw stream in the hands of the test.

    from naro_system import *

    class Something(SystemTest):
        def test_it(self):
            server = self.media_server()                    # scripted, on the real socket
            daemon = self.start("naro_algo")                # under this test's NARO_ROOT
            stream = self.raw_stream()
            daemon.wait_for("get 1st frame ok")             # part of a line, or a compiled pattern
            server.wait_for_requests(3)
            self.assertEqual(daemon.stop(), 255)

    if __name__ == "__main__":
        main()

A test never sleeps: it waits for a line, a request, an end, a condition, each with a limit after which it fails and shows
what the programs have printed. At its end every program that still runs is killed, and a sanitizer's report in any
program's lines fails the test.

The first argument of the script is the folder with the programs. Test programs lie in its neighbour tests/."""
import array
import ctypes
import fcntl
import os
import re
import socket
import struct
import subprocess
import sys
import tempfile
import termios
import threading
import time
import unittest

__all__ = ["BIN", "TOOLS", "COMMANDS", "LIMIT_S", "SystemTest", "MediaServer", "main", "answer", "close", "late", "raw",
           "reply", "skip", "until"]

BIN = os.path.abspath(sys.argv.pop(1))
TOOLS = os.path.join(os.path.dirname(BIN), "tests")
# How long anything may take. Generous: sanitizers and a busy machine are slow, and a test that passes never waits for it.
LIMIT_S = 60

# The command set: number, bytes of request payload, bytes of reply data.
COMMANDS = {
    "naro_isp_md_set": (4097, 32, 0), "naro_isp_md_get": (4099, 0, 32),
    "naro_isp_md_enable": (4101, 0, 0), "naro_isp_md_disable": (4103, 0, 0),
    "naro_isp_wdr_enable": (4109, 0, 0), "naro_isp_wdr_disable": (4111, 0, 0),
    "naro_isp_daynight_mode_get": (4118, 0, 4), "naro_isp_daynight_mode_set": (4120, 4, 0),
    "naro_isp_ev_attr_get": (4122, 0, 28), "naro_isp_wb_attr_get": (4126, 0, 32),
    "naro_isp_pwm_duty_set": (4135, 4, 0),
    "naro_isp_track_run": (4139, 96, 0), "naro_isp_track_stop": (4141, 0, 0),
    "naro_audio_sound_result_get": (4145, 0, 4),
    "naro_isp_COLORTRANS_enable": (4149, 0, 0), "naro_isp_COLORTRANS_disable": (4151, 0, 0),
}


def skip(reason):
    """Ends the whole script as skipped; before its first output."""
    print(f"SKIPPED: {reason}", flush=True)
    sys.exit(0)


def until(condition, what, limit_s=LIMIT_S):
    """Waits until condition() is true and returns what it gave."""
    end = time.monotonic() + limit_s
    while not (result := condition()):
        if time.monotonic() > end:
            raise AssertionError(f"not within {limit_s} s: {what}")
        time.sleep(0.005)
    return result


# ---- Names of one's own -----------------------------------------------------------------------------------------------

def isolate():
    """Leaves the machine's network, where the abstract socket names live, and its System V keys, by one of which daemon
    and motor find each other: True, or False where that is refused."""
    CLONE_NEWIPC, CLONE_NEWUSER, CLONE_NEWNET = 0x08000000, 0x10000000, 0x40000000
    libc = ctypes.CDLL(None, use_errno=True)
    if libc.unshare(CLONE_NEWNET | CLONE_NEWIPC) == 0:
        return True
    uid, gid = os.geteuid(), os.getegid()
    if libc.unshare(CLONE_NEWUSER | CLONE_NEWNET | CLONE_NEWIPC) != 0:
        return False
    for name, text in (("setgroups", "deny"), ("uid_map", f"{uid} {uid} 1"), ("gid_map", f"{gid} {gid} 1")):
        with open(f"/proc/self/{name}", "w") as f:
            f.write(text)
    return True


def be_alone():
    """Nobody else's media server, daemon or motor meets ours: by names of our own, else by taking turns."""
    if isolate():
        return
    path = "/tmp/naro-command-socket-tests.lock"
    if not os.path.exists(path):
        os.close(os.open(path, os.O_RDONLY | os.O_CREAT | os.O_CLOEXEC, 0o444))
    turn = os.open(path, os.O_RDONLY | os.O_CLOEXEC)  # also another user's, who made it
    fcntl.flock(turn, fcntl.LOCK_EX)  # until this process ends
    with socket.socket(socket.AF_UNIX) as probe:
        if probe.connect_ex(MediaServer.ADDRESS) == 0:
            skip("somebody else serves the command socket of this machine, and a network of our own is refused")


# ---- Programs ---------------------------------------------------------------------------------------------------------

class Line(str):
    """A line without its line feed, and without the logger's prefix: that is in `level` ("" for none) and `at`, seconds
    by the wall clock (of a line without prefix: when it was read). A carriage return before the line feed stays. `raw` are
    the bytes as they came, with all of it."""
    PREFIX = re.compile(r"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d)(\.\d{3}) (err|warning|info|debug) *")

    def __new__(cls, raw, stream):
        prefix = cls.PREFIX.match(raw)
        line = super().__new__(cls, raw[prefix.end():] if prefix else raw)
        line.level = prefix.group(3) if prefix else ""
        line.stream = stream
        line.at = time.mktime(time.strptime(prefix.group(1), "%Y-%m-%d %H:%M:%S")) + float(prefix.group(2)) \
            if prefix else time.time()
        return line


class Program:
    """A started program and its lines."""

    def __init__(self, arguments, environment, cwd):
        self.name = os.path.basename(arguments[0])
        self.process = subprocess.Popen(arguments, env=environment, cwd=cwd, stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.pid = self.process.pid
        self.lines = []
        self.more = threading.Condition()
        self.readers = [threading.Thread(target=self._read, args=pair, daemon=True) for pair in
                        (("out", self.process.stdout), ("err", self.process.stderr))]
        for reader in self.readers:
            reader.start()

    def _read(self, stream, pipe):
        for raw in pipe:
            with self.more:
                line = Line(raw.rstrip(b"\n").decode(errors="replace"), stream)
                line.raw = raw
                self.lines.append(line)
                self.more.notify_all()
        with self.more:
            self.more.notify_all()

    def mark(self):
        """A place among the lines, to look from later on."""
        with self.more:
            return len(self.lines)

    def found(self, wanted, since=0):
        """The lines since `since` that have `wanted` in them (a text, or a compiled pattern)."""
        matches = wanted.search if hasattr(wanted, "search") else lambda line: wanted in line
        with self.more:
            return [line for line in self.lines[since:] if matches(line)]

    def wait_for(self, wanted, since=0, times=1, limit_s=LIMIT_S):
        """Waits for the times-th line with `wanted` and returns it."""
        return self._wait(lambda: self.found(wanted, since), f"{wanted!r}", times, limit_s)

    def wait_for_errors(self, count, since=0, limit_s=LIMIT_S):
        """Waits until `count` errors have been logged."""
        self._wait(lambda: self.errors(since), "an error", count, limit_s)

    def _wait(self, look, what, times, limit_s):
        end = time.monotonic() + limit_s
        with self.more:
            while len(found := look()) < times:
                left = end - time.monotonic()
                if left <= 0 or not any(reader.is_alive() for reader in self.readers):
                    raise AssertionError(f"{self.name} has said {what} {len(found)} times, not {times}:\n{self.text()}")
                self.more.wait(min(left, 0.2))
            return found[times - 1]

    def text(self):
        """The last lines, for a person."""
        with self.more:
            return "\n".join(f"  {line.level or line.stream}: {line!r}" for line in self.lines[-60:])

    def errors(self, since=0):
        """What was logged as errors, in order."""
        with self.more:
            return [line for line in self.lines[since:] if line.level == "err"]

    def tell(self, text):
        """A line on the program's standard input."""
        self.process.stdin.write(text.encode() + b"\n")
        self.process.stdin.flush()

    def signal(self, number):
        self.process.send_signal(number)

    def running(self):
        return self.process.poll() is None

    def wait(self, limit_s=LIMIT_S):
        """Waits for the end: the exit status (negative: the signal that ended it). All lines are there then."""
        try:
            status = self.process.wait(limit_s)
        except subprocess.TimeoutExpired:
            raise AssertionError(f"{self.name} has not ended within {limit_s} s; it said:\n{self.text()}") from None
        for reader in self.readers:
            reader.join(LIMIT_S)
        return status

    def stop(self, limit_s=LIMIT_S):
        """SIGTERM, and the exit status."""
        if self.running():
            self.process.terminate()
        return self.wait(limit_s)

    def dispose(self):
        if self.running():
            self.process.kill()
        self.wait()
        self.process.stdin.close()
        self.process.stdout.close()
        self.process.stderr.close()


# ---- The media server -------------------------------------------------------------------------------------------------

def reply(cmd_no, ret=0, data=b""):
    """A whole reply; cmd_no is the reply's own, the request's + 1."""
    return struct.pack("<4sIIII", b"NARO", 24 + len(data), cmd_no, 0, ret) + data + struct.pack("<I", 0xA5A5)


def unread_bytes(connection):
    count = array.array("i", [0])
    fcntl.ioctl(connection.fileno(), termios.FIONREAD, count)
    return count[0]


class Request:
    def __init__(self, connection, number, cmd_no, cmd_type, payload, prepared=None):
        self.connection, self.number = connection, number  # of the connection: 0, 1, ...; its socket
        self.prepared = prepared or {}
        self.cmd_no, self.cmd_type, self.payload = cmd_no, cmd_type, payload
        self.name = next((name for name, row in COMMANDS.items() if row[0] == cmd_no), str(cmd_no))

    def data(self):
        """Reply data of the right length: zeros, where nothing else is prepared."""
        if self.name in self.prepared:
            return self.prepared[self.name]()
        return bytes(COMMANDS[self.name][2]) if self.name in COMMANDS else b""

    def send(self, *pieces):
        for piece in pieces:
            self.connection.sendall(piece)


# What to do with a request: answer() is what a well-behaved server does.
def answer(ret=0, plus=1, surplus=b""):
    return lambda request: request.send(reply(request.cmd_no + plus, ret, request.data()) + surplus)


def raw(data):
    return lambda request: request.send(data)


def late(event, then=answer()):
    """Waits for a threading.Event first."""
    def behave(request):
        event.wait(LIMIT_S)
        return then(request)
    return behave


def close(first=b""):
    """Sends `first` and hangs up."""
    def behave(request):
        if first:
            request.send(first)
        return False
    return behave


class MediaServer:
    """The command socket, served by a thread for each connection. Every request is answered as it should be, unless
    told otherwise: next(...) says what to do with the requests to come, one behaviour each. The daemon's questions for a
    sound come in between; they count apart, and next_sound(...) is for them."""
    ADDRESS = b"\0naro_IPCsock".ljust(108, b"\0")

    def __init__(self):
        self.changed = threading.Condition()
        self.requests = []
        self.planned = []
        self.questions = []        # requests for a sound, which come three times a second; not among the others
        self.planned_answers = []
        self.problems = []  # what a client did wrong
        self.data = {}  # replies of commands, by name: functions that give the data
        self.on_request = None  # told of each request before it is answered
        self.unread = False
        self.accepting = None
        self.connections = []  # sockets, in the order in which they were made; closed ones stay
        self.listener = None
        self.listen()

    def listen(self):
        """Serves again after kill()."""
        self.listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.listener.bind(self.ADDRESS)
        self.listener.listen(16)
        self.accepting = threading.Thread(target=self._accept, args=(self.listener,), daemon=True)
        self.accepting.start()

    def kill(self):
        """Gone, as if the server's process had been killed: the socket and every connection."""
        if self.listener:
            # An accept in progress keeps the socket and its name; the shutdown wakes it.
            self.listener.shutdown(socket.SHUT_RDWR)
            self.accepting.join()
            self.listener.close()
            self.listener = None
        self.hang_up()

    def hang_up(self):
        """Closes every connection, and listens on."""
        with self.changed:
            for connection in self.connections:
                # A thread that waits for a request holds on to the socket, and has to be woken. Where a request lies
                # unread there is none, and a shutdown would let the client see a proper end before it sees the reset.
                if connection.fileno() >= 0 and not unread_bytes(connection):
                    try:
                        connection.shutdown(socket.SHUT_RDWR)
                    except OSError:
                        pass  # the client was quicker
                connection.close()

    def next(self, *behaviours):
        with self.changed:
            self.planned += behaviours

    def next_sound(self, *behaviours):
        """The same for questions whether a sound is heard, which next() leaves alone. Unless told otherwise, none is."""
        with self.changed:
            self.planned_answers += behaviours

    def wait_for_more_questions(self, count, limit_s=LIMIT_S):
        """Waits for `count` questions for a sound from now on."""
        count += len(self.questions)
        self._wait(lambda: len(self.questions) >= count, f"question {count} (there were {len(self.questions)})", limit_s)

    def leave_unread(self, on):
        """Requests are not read: what a server does that hangs. Questions for a sound are, so that they keep nobody."""
        with self.changed:
            self.unread = on
            self.changed.notify_all()

    def wait_for_unread(self, count=20):
        """Waits until `count` bytes lie unread in the newest connection."""
        until(lambda: unread_bytes(self.connections[-1]) >= count, f"{count} unread bytes")

    def wait_for_connections(self, count, limit_s=LIMIT_S):
        self._wait(lambda: len(self.connections) >= count, f"connection {count}", limit_s)

    def wait_for_requests(self, count, limit_s=LIMIT_S):
        """Waits until `count` requests have come in all."""
        self._wait(lambda: len(self.requests) >= count, f"request {count} (there were {len(self.requests)})", limit_s)

    def wait_for_more_requests(self, count, limit_s=LIMIT_S):
        """Waits for `count` requests from now on."""
        self.wait_for_requests(len(self.requests) + count, limit_s)

    def _wait(self, condition, what, limit_s):
        with self.changed:
            if not self.changed.wait_for(condition, limit_s):
                raise AssertionError(f"the media server has not seen {what} within {limit_s} s")

    def _accept(self, listener):
        while True:
            try:
                connection, _ = listener.accept()
            except OSError:
                return
            with self.changed:
                number = len(self.connections)
                self.connections.append(connection)
                self.changed.notify_all()
            threading.Thread(target=self._serve, args=(connection, number), daemon=True).start()

    def _serve(self, connection, number):
        try:
            while self._answer_one(connection, number):
                pass
        except OSError:
            pass  # the other end, or hang_up(), has closed it
        with self.changed:
            connection.close()

    def _answer_one(self, connection, number):
        begin = connection.recv(16, socket.MSG_PEEK)
        if not begin:
            return False
        is_question = begin[8:12] == struct.pack("<I", COMMANDS["naro_audio_sound_result_get"][0])
        with self.changed:
            self.changed.wait_for(lambda: is_question or not self.unread)
        head = self._receive(connection, 16)
        magic, length, cmd_no, cmd_type = struct.unpack("<4sIII", head)
        rest = self._receive(connection, length - 16)
        if magic != b"NARO" or rest[-4:] != struct.pack("<I", 0xA5A5):
            self.problems.append(f"a bad request: {head + rest!r}")
            return False
        request = Request(connection, number, cmd_no, cmd_type, rest[:-4], self.data)
        with self.changed:
            planned = self.planned_answers if is_question else self.planned
            behaviour = planned.pop(0) if planned else answer()
            (self.questions if is_question else self.requests).append(request)
            self.changed.notify_all()
        if self.on_request and not is_question:
            self.on_request(request)
        return behaviour(request) is not False

    @staticmethod
    def _receive(connection, length):
        data = b""
        while len(data) < length:
            piece = connection.recv(length - len(data))
            if not piece:
                raise OSError("the client has closed")
            data += piece
        return data


# ---- Tests ------------------------------------------------------------------------------------------------------------

class SystemTest(unittest.TestCase):
    SANITIZER = re.compile(r"(ERROR|WARNING): \w+Sanitizer|runtime error:")

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="naro-system-")
        self.addCleanup(folder.cleanup)
        self.root = folder.name
        os.mkdir(f"{self.root}/run")
        self.make_board()
        self.programs = []
        self.addCleanup(self._end_programs)

    def make_board(self):
        """The lines of a board as plain files, which take what is written; nobody moves anything. A desk camera makes
        them anew."""
        gpio, pwm = f"{self.root}/sys/class/gpio", f"{self.root}/sys/class/pwm/pwmchip0"
        files = {f"{folder}/{name}": "" for folder in (gpio, pwm) for name in ("export", "unexport")}
        files.update({f"{gpio}/gpio{line}/{name}": text for line in (45, 47, 78, 79)
                      for name, text in (("direction", "in\n"), ("value", "0\n"))})
        files.update({f"{pwm}/pwm{channel}/{name}": text for channel in (4, 6)
                      for name, text in (("period", "0\n"), ("duty_cycle", "0\n"), ("enable", "0\n"),
                                         ("polarity", "normal\n"))})
        for path, text in files.items():
            os.makedirs(os.path.dirname(path), exist_ok=True)
            with open(path, "w", encoding="ascii") as file:
                file.write(text)

    def _end_programs(self):
        for program in self.programs:
            program.dispose()
        for program in self.programs:
            for line in program.lines:
                if self.SANITIZER.search(line):
                    self.fail(f"{program.name}:\n{program.text()}")

    def start(self, name, *arguments, **environment):
        """A program of BIN (or TOOLS) under this test's root; keywords are added to its environment."""
        path = next(path for path in (f"{BIN}/{name}", f"{TOOLS}/{name}") if os.path.exists(path))
        program = Program([path, *arguments], {**os.environ, "NARO_ROOT": self.root, **environment}, self.root)
        self.programs.append(program)
        return program

    def media_server(self):
        server = MediaServer()
        self.addCleanup(lambda: self.assertEqual(server.problems, []))
        self.addCleanup(server.kill)
        self.addCleanup(server.leave_unread, False)
        return server

    def raw_stream(self):
        """A feeder that answers each "rawcap" with a picture in which something moves; see raw_feeder.cpp for what
        it can be told."""
        feeder = self.start("raw_feeder")
        feeder.wait_for("ready")
        return feeder


def main():
    be_alone()
    unittest.main(verbosity=2)
