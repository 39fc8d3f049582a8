#!/usr/bin/env python3
"""The motor's mailbox between processes: the daemon's end, a motor's process, and those who die inside, never
initialise it, or write nonsense. usage: motor_mailbox.py BIN_DIR

motor_mailbox_32.py runs the same, and more, with ends of different word sizes."""
import ctypes
import os
import signal
import unittest

from naro_system import TOOLS, Program, SystemTest, skip, until

# How an end is started: built for this machine, or for a 32-bit Arm.
KINDS = {"native": [f"{TOOLS}/mailbox_peer"], "arm": ["qemu-arm", f"{TOOLS}/mailbox_peer_arm"]}
KEY = 4386
FULL, LOCK_WORD, LOCK_OWNER, LOCK_KIND, COUNTER = 0, 1, 3, 4, 8  # places among the segment's words


def isolate_ipc():
    """Keys of our own: nobody else's segment is met. True, or False where that is refused."""
    CLONE_NEWUSER, CLONE_NEWIPC = 0x10000000, 0x08000000
    libc = ctypes.CDLL(None, use_errno=True)
    return libc.unshare(CLONE_NEWIPC) == 0 or libc.unshare(CLONE_NEWUSER | CLONE_NEWIPC) == 0


def remove_segment():
    IPC_RMID = 0
    libc = ctypes.CDLL(None)
    number = libc.shmget(KEY, 0, 0)
    if number >= 0:
        libc.shmctl(number, IPC_RMID, None)


class MailboxTest(SystemTest):
    def setUp(self):
        super().setUp()
        self.addCleanup(remove_segment)

    def peer(self, kind, role, *arguments):
        program = Program([*KINDS[kind], role, *map(str, arguments)], dict(os.environ, NARO_ROOT=self.root), self.root)
        program.name = f"{kind} {role}"
        self.programs.append(program)
        return program

    def ready(self, kind, role, *arguments):
        program = self.peer(kind, role, *arguments)
        program.wait_for("ready")
        return program

    def words(self, kind="native"):
        shown = self.peer(kind, "show")
        self.assertEqual(shown.wait(), 0)
        return [int(word, 16) for word in shown.lines[1].split()]

    def hammer(self, *peers):
        """Peers of (kind, role), all at once, for half a second: the counter that only the lock guards is right."""
        self.assertEqual(self.peer(peers[0][0], "make").wait(), 0)
        before = self.words()[COUNTER]
        programs = [self.ready(kind, role, 500) for kind, role in peers]
        for program in programs:
            program.tell("go")
        visits = 0
        for program in programs:
            self.assertEqual(program.wait(), 0, program.text())
            visits += int(program.wait_for("done: ").split()[1])
        words = self.words()
        self.assertEqual(words[COUNTER] - before, visits)
        self.assertEqual(words[LOCK_WORD:LOCK_WORD + 6], [0, 0, 0, 128, 0, 0], "as if nobody had ever been inside")


class Ends:
    """What holds whatever the two ends are: `daemon_kind`, `motor_kind`."""

    def start_daemon(self):
        daemon = self.ready(self.daemon_kind, "daemon")
        daemon.tell("start")
        daemon.wait_for("start: 0")
        return daemon

    def send(self, daemon, text):
        mark = daemon.mark()
        daemon.tell(f"text: {text}")
        daemon.wait_for("text: 0", mark)

    def stop(self, daemon):
        mark = daemon.mark()
        daemon.tell("stop")
        daemon.wait_for("stop: 0", mark)
        daemon.wait_for("info shmdt success", mark)

    def test_texts_arrive(self):
        motor = self.ready(self.motor_kind, "motor")
        daemon = self.start_daemon()
        for text in ("[44,0,0]", "[-44,0,1]", "[0,-23,2147483647]", "7" * 31):
            self.send(daemon, text)
            self.assertEqual(motor.wait_for(f"got: {text}"), f"got: {text}")
        mark = daemon.mark()
        daemon.tell("text: " + "8" * 32)
        daemon.wait_for("text: -1", mark)
        daemon.wait_for("err [algo_shm_write_wrap] refused", mark)
        self.stop(daemon)
        self.assertEqual(len(motor.found("got: ")), 4)

    def test_motor_that_is_slow(self):
        motor = self.ready(self.motor_kind, "slow")
        daemon = self.start_daemon()
        self.send(daemon, "[1,1,1]")
        motor.wait_for("got: [1,1,1]")
        self.send(daemon, "[2,2,2]")
        daemon.wait_for("err motor is already running drop this frame after retry 5 times")
        motor.tell("clear")
        until(lambda: self.words()[FULL] != 1, "the slot is free")
        self.send(daemon, "[3,3,3]")
        motor.wait_for("got: [3,3,3]")
        self.stop(daemon)

    def test_nobody_initialises_it(self):
        daemon = self.start_daemon()
        self.send(daemon, "[1,1,1]")
        until(lambda: self.words()[FULL] == 1, "the text is in the slot")
        self.assertEqual(self.words()[LOCK_WORD:LOCK_WORD + 6], [0] * 6)
        motor = self.ready(self.motor_kind, "motor")
        motor.wait_for("got: [1,1,1]")
        self.send(daemon, "[2,2,2]")
        motor.wait_for("got: [2,2,2]")

    def test_holders_that_die(self):
        daemon = self.start_daemon()
        for round_number in range(3):
            holder = self.ready(self.motor_kind, "hold")
            holder.signal(signal.SIGKILL)
            holder.wait()
            mark = daemon.mark()
            self.send(daemon, "[1,1,1]")  # at once
            daemon.wait_for("err [lock_is_lost] ", mark)
            motor = self.ready(self.motor_kind, "motor")
            self.send(daemon, f"[2,2,{round_number}]")
            motor.wait_for(f"got: [2,2,{round_number}]")
            daemon.wait_for("info [lock_is_there] the motor's mailbox is open again; 1 texts were lost", mark)
            self.assertEqual(len(daemon.found("lock_is_", mark)), 2)
            until(lambda: self.words()[FULL] != 1, "the slot is free")
            motor.signal(signal.SIGKILL)
            motor.wait()
            self.assertEqual(self.peer(self.motor_kind, "make").wait(), 0)  # in case that was inside the lock
        self.stop(daemon)

    def test_stops_in_front_of_a_lock_that_is_never_given_back(self):
        holder = self.ready(self.motor_kind, "hold")
        daemon = self.start_daemon()
        for _ in range(5):
            self.send(daemon, "[1,1,1]")
        self.stop(daemon)
        self.assertEqual(self.words()[LOCK_WORD], 1)
        holder.tell("let go")
        holder.wait_for("released")
        self.assertEqual(self.words()[LOCK_WORD], 0)

    def test_nonsense_over_everything(self):
        scribbler = self.ready(self.motor_kind, "scribble")
        daemon = self.start_daemon()
        for _ in range(20):
            self.send(daemon, "[1,1,1]")
        self.stop(daemon)
        daemon.tell("start")
        daemon.wait_for("start: 0", times=2)
        scribbler.signal(signal.SIGKILL)
        scribbler.wait()
        motor = self.ready(self.motor_kind, "motor")
        self.send(daemon, "[2,2,2]")
        motor.wait_for("got: [2,2,2]")


class Native(Ends, MailboxTest):
    daemon_kind = motor_kind = "native"

    def test_lock_between_processes(self):
        self.hammer(("native", "hammer"), ("native", "hammer"), ("native", "hammer"))


def main():
    if not isolate_ipc():
        skip("System V keys of our own are refused")
    unittest.main(verbosity=2)


if __name__ == "__main__":
    main()
