#!/usr/bin/env python3
"""Motion tracking in the running daemon: what moves becomes requests in the motor's mailbox, of which the test plays the
reader; tracking goes on and off by its setting, two hundred times as well. usage: tracking.py BIN_DIR"""
import ctypes
import os
import re

from naro_system import *

KEY, BYTES, FULL = 4386, 60, 1
FULL_AT, TEXT_AT, TEXT_BYTES = 0, 28, 32
TRACKER, WRITER = "motion_track_ta", "motor_rotate"  # as the kernel keeps the names
IPC_CREAT = 0o1000


class Mailbox:
    """The segment, looked at as the motor's process would, but for the lock: the daemon stores `full` last."""

    def __init__(self):
        self.libc = ctypes.CDLL(None, use_errno=True)
        self.libc.shmat.restype = ctypes.c_void_p
        self.segment = self.libc.shmget(KEY, BYTES, IPC_CREAT | 0o666)
        assert self.segment >= 0, os.strerror(ctypes.get_errno())
        self.address = self.libc.shmat(self.segment, None, 0)
        self.full = ctypes.c_int32.from_address(self.address + FULL_AT)

    def text(self):
        """What waits; None for an empty slot."""
        if self.full.value != FULL:
            return None
        return ctypes.string_at(self.address + TEXT_AT, TEXT_BYTES).split(b"\0")[0].decode()

    def clear(self):
        self.full.value = 0

    def close(self):
        self.clear()
        self.libc.shmdt(ctypes.c_void_p(self.address))

    def attached(self):
        """How many processes look at the segment."""
        with open("/proc/sysvipc/shm", encoding="ascii") as file:
            names, *rows = (line.split() for line in file)
        return next(int(row[names.index("nattch")]) for row in rows if int(row[names.index("key")]) == KEY)


class Tracking(SystemTest):
    def setUp(self):
        super().setUp()
        self.server = self.media_server()
        self.daemon = self.start("naro_algo")
        self.feeder = self.raw_stream()
        self.setter = self.start("setter")
        self.setter.wait_for("ready")
        self.server.wait_for_requests(1)
        self.mailbox = Mailbox()
        self.addCleanup(self.mailbox.close)

    def set(self, value, key="track_switch"):
        mark = self.setter.mark()
        self.setter.tell(f"text mem {key} {value.encode().hex()}")
        self.setter.wait_for("stored", mark)

    def threads(self):
        names = []
        for task in os.listdir(f"/proc/{self.daemon.pid}/task"):
            try:
                with open(f"/proc/{self.daemon.pid}/task/{task}/comm", encoding="utf-8") as file:
                    names.append(file.read().strip())
            except OSError:
                pass  # it has just ended
        return sorted(names)

    def descriptors(self):
        return len(os.listdir(f"/proc/{self.daemon.pid}/fd"))

    def request(self):
        """Waits for a request, takes it, and returns its three numbers."""
        text = until(self.mailbox.text, "a request in the mailbox")
        self.assertRegex(text, r"^\[-?\d+,-?\d+,\d+\]$")
        self.mailbox.clear()
        return [int(number) for number in text[1:-1].split(",")]

    def test_what_moves_becomes_requests(self):
        before = self.threads()
        self.assertIsNone(self.mailbox.text())
        self.set("on")
        self.daemon.wait_for("start motion_task thread")
        until(lambda: {TRACKER, WRITER} <= set(self.threads()), "tracker and writer")
        requests = [self.request() for _ in range(8)]
        for h, v, _ in requests:
            self.assertTrue(abs(h) >= 10 and v == 0 or h == 0 and abs(v) >= 10, requests)
        numbers = [number for _, _, number in requests]
        self.assertEqual(numbers, sorted(set(numbers)))
        self.assertEqual(numbers[0], 0)
        # The square goes from the left to the right, and then begins anew.
        self.assertLess(min(h for h, _, _ in requests), 0)
        self.assertGreater(max(h for h, _, _ in requests), 0)
        self.assertEqual(self.mailbox.attached(), 2)

        self.set("off")
        self.daemon.wait_for("stop motion_task thread")
        self.daemon.wait_for("shmdt success")
        until(lambda: self.threads() == before, "tracker and writer gone")
        self.assertEqual(self.mailbox.attached(), 1)
        self.mailbox.clear()
        rounds = len(self.daemon.found("rotate_buf"))
        self.server.wait_for_more_requests(5)
        self.assertIsNone(self.mailbox.text())
        self.assertEqual(len(self.daemon.found("rotate_buf")), rounds)

        # Numbers go on; what was posted meanwhile is forgotten.
        self.set("on")
        self.assertGreater(self.request()[2], numbers[-1])
        self.assertEqual(self.daemon.errors(), [])
        self.assertEqual(self.daemon.stop(), 255)

    def test_only_a_change_acts(self):
        for value in ("off", "on", "on", "on", "off", "off", "nonsense", "on"):
            self.set(value)
        self.daemon.wait_for("start motion_task thread", times=2)
        self.set("off")
        self.daemon.wait_for("stop motion_task thread", times=2)
        self.daemon.wait_for("shmdt success", times=2)
        self.assertEqual(len(self.daemon.found("start motion_task thread")), 2)
        self.assertEqual(len(self.daemon.found("stop motion_task thread")), 2)
        self.assertEqual(len(self.daemon.found("algo_shm_fini")), 2)
        self.assertEqual([str(line) for line in self.daemon.errors()],
                         ["[notify_cb_track_mode] not support track_mode = nonsense"])

    def test_on_and_off_two_hundred_times(self):
        self.set("on")
        self.request()
        self.set("off")
        self.daemon.wait_for("shmdt success")
        before = self.threads(), self.descriptors()
        for _ in range(200):
            self.set("on")
            self.set("off")
        self.daemon.wait_for("shmdt success", times=201)
        self.assertEqual(len(self.daemon.found("start motion_task thread")), 201)
        self.assertEqual(len(self.daemon.found("stop motion_task thread")), 201)
        until(lambda: (self.threads(), self.descriptors()) == before, "the threads and descriptors of before")
        self.assertEqual(self.mailbox.attached(), 1)
        self.assertEqual(self.daemon.errors(), [])
        self.mailbox.clear()
        self.set("on")
        self.request()
        self.server.wait_for_more_requests(3)

    def test_a_motor_that_never_reads(self):
        """Requests are dropped, and pictures analysed as ever."""
        self.set("on")
        until(self.mailbox.text, "a request")
        first = self.mailbox.text()
        self.daemon.wait_for("motor is already running drop this frame after retry 5 times", times=2)
        self.assertEqual(self.mailbox.text(), first)
        self.server.wait_for_more_requests(5)
        self.mailbox.clear()
        self.request()

    def test_care_regions_follow_their_setting(self):
        self.set('[{"x1":1,"y1":2,"x2":30,"y2":40,"roi_name":"door","event_type":"people"},'
                 '{"x1":5,"y1":6,"x2":70,"y2":80,"roi_name":"bed","event_type":"people"}]', "fav_area_rect")
        self.daemon.wait_for("set fav_area_algo.used_num=2,name=,event_type=")
        self.set('[{"x1":0,"y1":0,"x2":0,"y2":0,"roi_name":"door","event_type":"people"}]', "fav_area_rect")
        self.assertEqual(self.daemon.wait_for(" delete this fav area  index = 0 ").stream, "out")
        mark = self.daemon.mark()
        self.set('[{"x1":9,"y1":6,"x2":70,"y2":80,"roi_name":"bed","event_type":"people"}]', "fav_area_rect")
        self.daemon.wait_for(re.compile(r"^ ?\[area 0\] 5 6 70  80 name=bed $"), mark)
        self.assertEqual(self.daemon.errors(), [])


if __name__ == "__main__":
    main()
