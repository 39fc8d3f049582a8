#!/usr/bin/env python3
"""The motor's mailbox between a 32-bit process, whose lock is its C library's own mutex, and one of this machine's word
size, whose lock is ours. usage: motor_mailbox_32.py BIN_DIR"""
import os
import shutil

import motor_mailbox
from motor_mailbox import KINDS, LOCK_KIND, LOCK_OWNER, LOCK_WORD, Ends, MailboxTest
from naro_system import skip, until


class DaemonOf32(Ends, MailboxTest):
    daemon_kind, motor_kind = "arm", "native"


class MotorOf32(Ends, MailboxTest):
    daemon_kind, motor_kind = "native", "arm"


class BothOf32(Ends, MailboxTest):
    daemon_kind = motor_kind = "arm"


class Lock(MailboxTest):
    def test_what_is_compared(self):
        shown = self.peer("arm", "show")
        self.assertEqual(shown.wait(), 0)
        self.assertEqual(shown.lines[0], "word 4 mutex 24 segment 60")

    def test_each_makes_the_same_lock(self):
        for kind in KINDS:
            self.assertEqual(self.peer(kind, "make").wait(), 0)
            self.assertEqual(self.words()[LOCK_WORD:LOCK_WORD + 6], [0, 0, 0, 128, 0, 0])

    def test_each_holds_it_in_the_same_words(self):
        for kind in KINDS:
            self.assertEqual(self.peer(kind, "make").wait(), 0)
            holder = self.ready(kind, "hold")
            words = self.words()
            self.assertEqual([words[LOCK_WORD], words[LOCK_OWNER], words[LOCK_KIND], words[5]],
                             [1, holder.pid, 128, 1])
            holder.tell("let go")
            holder.wait_for("released")
            self.assertEqual(self.words()[LOCK_WORD:LOCK_WORD + 6], [0, 0, 0, 128, 0, 0])

    def test_library_sleeps_and_is_woken_by_either(self):
        self.assertEqual(self.peer("arm", "make").wait(), 0)
        for kind in KINDS:
            holder = self.ready(kind, "hold")
            sleepers = [self.ready("arm", "library", 0) for _ in range(3)]
            for sleeper in sleepers:
                sleeper.tell("go")
            until(lambda: self.words()[LOCK_WORD] == 2, "somebody sleeps on the lock")
            holder.tell("let go")
            for sleeper in sleepers:
                sleeper.wait_for("done")

    def test_one_of_each(self):
        self.hammer(("native", "hammer"), ("arm", "library"))

    def test_two_of_each(self):
        self.hammer(("arm", "library"), ("native", "hammer"), ("arm", "hammer"), ("native", "hammer"),
                    ("arm", "library"))


if __name__ == "__main__":
    if not (shutil.which("qemu-arm") and os.path.exists(KINDS["arm"][1])):
        skip("no 32-bit Arm here: g++-arm-linux-gnueabihf and qemu-user, and a new build, would bring it")
    motor_mailbox.main()
