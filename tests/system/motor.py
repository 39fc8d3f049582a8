#!/usr/bin/env python3
"""The motor's process: what it does with the mailbox, with peers that die, and, with camera and daemon, a view that follows.
usage: motor.py BIN_DIR"""
import ctypes
import json
import os
import re
import signal
import struct
import subprocess

from naro_system import BIN, SystemTest, main, until

KEY, SIZE, LOCK, OWNER, KIND, TEXT = 4386, 60, 4, 12, 16, 28
MOVED = re.compile(r"^\d+ (\[[^\]]*\]): \[(-?\d+),(-?\d+)\] -> \[(-?\d+),(-?\d+)\] in (\d+) ms$")
IPC_CREAT, IPC_RMID = 0o1000, 0
libc = ctypes.CDLL(None, use_errno=True)
libc.shmat.restype = ctypes.c_void_p


class Mailbox:
    """The segment, as any process of the machine may have it."""

    def __init__(self):
        self.number = libc.shmget(KEY, SIZE, IPC_CREAT | 0o666)
        assert self.number >= 0, os.strerror(ctypes.get_errno())
        self.bytes = (ctypes.c_ubyte * SIZE).from_address(libc.shmat(self.number, None, 0))

    def word(self, at):
        return struct.unpack_from("=I", bytes(self.bytes), at)[0]

    def put_word(self, at, value):
        ctypes.memmove(ctypes.addressof(self.bytes) + at, struct.pack("=I", value), 4)

    def full(self):
        return self.word(0) == 1

    def put(self, text):
        """A request, without the lock: whoever writes here may be wrong."""
        ctypes.memmove(ctypes.addressof(self.bytes) + TEXT, text.ljust(32, b"\0")[:32], 32)
        self.put_word(0, 1)

    def remove(self):
        libc.shmctl(self.number, IPC_RMID, None)


class Motor(SystemTest):
    """The process alone."""

    def setUp(self):
        super().setUp()
        self.box = Mailbox()
        self.addCleanup(self.box.remove)

    def motor(self, *arguments):
        self.box.put_word(0, 1)
        program = self.start("naro_motor", *arguments)
        until(lambda: not self.box.full(), "the mailbox is free: the motor runs")
        return program

    def request(self, text):
        self.box.put(text)

    def wait_for_move(self, program, text):
        line = program.wait_for(text)
        match = MOVED.match(line)
        self.assertTrue(match, line)
        until(lambda: not self.box.full(), "the mailbox is free")
        return tuple(int(number) for number in match.groups()[1:])

    def setting(self):
        done = subprocess.run([f"{BIN}/naro-config", "get", "motor"], env={**os.environ, "NARO_ROOT": self.root},
                              capture_output=True, text=True, check=False)
        return done.stdout.strip()

    def test_moves_and_says_where_it_rests(self):
        motor = self.motor("--set", "pan_speed=100", "--set", "pan_acceleration=1000")
        self.request(b"[20,-5,0]")
        until(lambda: not self.box.full(), "the move has ended")
        h0, v0, h, v, ms = self.wait_for_move(motor, "[20,-5,0]")
        self.assertEqual((h0, v0, h, v), (0, 0, 20, -5))
        # 5 degrees of tilt are the longer way: 2 * sqrt(5 / 160) s, and 50 + 40 ms.
        self.assertGreaterEqual(ms, 443)
        until(lambda: self.setting() == "[20,-5]", "the setting")
        self.assertEqual(motor.stop(), 0)

    def test_a_person_turns_the_view(self):
        motor = self.motor()
        turn = self.start("naro_motor", "--turn", "-10,3")
        self.assertEqual(turn.wait(), 0)
        self.assertEqual(self.wait_for_move(motor, "[-10,3,0]")[2:4], (-10, 3))
        for wrong in ("10", "a,b", "10,3,4", "400,0", "1" * 40):
            turn = self.start("naro_motor", f"--turn={wrong}")
            self.assertEqual(turn.wait(), 2)
            turn.wait_for("--turn wants H,V in whole degrees")

    def test_nonsense_is_dropped_and_the_next_request_works(self):
        motor = self.motor()
        for text in (b"go left", b"\xff" * 32, b"[1,2,3", b"[361,0,0]", b""):
            since = motor.mark()
            self.request(text)
            until(lambda: not self.box.full(), f"{text} is dropped")
            motor.wait_for('in the mailbox is no request "[h,v,sequence]"; dropped', since)
            self.assertEqual(len(motor.found("dropped", since)), 1)
        self.request(b"[2,0,1]")
        self.wait_for_move(motor, "[2,0,1]")

    def test_a_daemon_that_died_inside_the_lock_blocks_nothing(self):
        motor = self.motor()
        self.box.put_word(LOCK, 1)
        self.box.put_word(OWNER, 99999)
        self.request(b"[2,0,1]")
        motor.wait_for("the mailbox has been locked for 500 ms: its holder has died; the lock is made anew")
        self.wait_for_move(motor, "[2,0,1]")
        self.assertEqual(self.box.word(LOCK), 0)
        self.box.put_word(KIND, 0xffffffff)  # and one that wrote over it
        self.request(b"[2,0,2]")
        self.wait_for_move(motor, "[2,0,2]")

    def test_the_lock_is_made_at_the_start(self):
        self.box.put_word(LOCK, 2)
        self.motor()
        self.assertEqual((self.box.word(LOCK), self.box.word(KIND)), (0, 128))

    def test_a_mailbox_that_is_removed_is_found_again(self):
        motor = self.motor()
        self.box.remove()
        self.box = Mailbox()
        self.request(b"[3,0,1]")
        until(lambda: not self.box.full(), "what lay in it is dropped")
        self.request(b"[4,0,2]")
        self.wait_for_move(motor, "[4,0,2]")

    def test_one_head_has_one_driver(self):
        motor = self.motor()
        second = self.start("naro_motor")
        self.assertEqual(second.wait(), 1)
        second.wait_for("another motor drives this camera already")
        self.request(b"[2,0,1]")
        self.wait_for_move(motor, "[2,0,1]")

    def test_killed_in_mid_move_it_goes_on_from_where_the_head_stands(self):
        motor = self.motor("--set", "pan_speed=20")
        self.request(b"[100,0,0]")
        view = f"{self.root}/run/naro/motor_view"

        def pan():
            with open(view, "rb") as file:
                return struct.unpack_from("=i", file.read(), 24)[0] / 1e6
        until(lambda: pan() > 2, "the head turns")
        motor.signal(signal.SIGKILL)
        motor.wait()
        there = pan()
        self.assertTrue(self.box.full(), "its request was not done")
        self.assertTrue(2 < there < 100, there)
        motor = self.motor()
        self.assertAlmostEqual(pan(), there, 5)
        self.request(b"[-30,0,1]")
        h0, _, h, _, _ = self.wait_for_move(motor, "[-30,0,1]")
        self.assertLessEqual(abs(h0 - there), 1)
        self.assertLessEqual(abs(h - (there - 30)), 2)

    def test_what_it_is_not_asked_rightly_is_said(self):
        for arguments, said in ((["--set", "speed=1"], "there is no such number"), (["sideways"], "is no option"),
                                (["--set", "pan_speed=0"], "pan_speed is a number from 1 to 1000")):
            motor = self.start("naro_motor", *arguments)
            self.assertEqual(motor.wait(), 2)
            motor.wait_for(said)
        usage = self.start("naro_motor", "--help")
        self.assertEqual(usage.wait(), 0)
        usage.wait_for("tilt_acceleration")


class Following(SystemTest):
    """Camera, daemon and motor."""

    def setUp(self):
        super().setUp()
        box = Mailbox()
        self.addCleanup(box.remove)

    def moves(self):
        try:
            with open(f"{self.root}/run/naro/naro_motor.log", encoding="utf-8") as log:
                return [MOVED.match(line.strip()) for line in log if MOVED.match(line.strip())]
        except FileNotFoundError:
            return []

    def children(self, camera, name):
        out = subprocess.run(["ps", "-o", "pid=,comm=", "--ppid", str(camera.pid)], capture_output=True, text=True,
                             check=False).stdout
        return [int(line.split()[0]) for line in out.splitlines() if line.split()[1].startswith(name)]

    def test_the_view_follows_and_everyone_may_die(self):
        camera = self.start("naro_camera", "--source", "scene:track-turns", "--truth", f"{self.root}/truth",
                            "--json")
        until(lambda: len(self.moves()) >= 2, "two moves")
        # The daemon is told where the view rests.
        until(lambda: "[key=motor][value=[" in self.log("naro_algo"), "the daemon hears of the view")
        (motor,) = self.children(camera, "naro_motor")
        os.kill(motor, signal.SIGKILL)
        camera.wait_for("the motor has ended (killed by signal 9 (Killed)); starting it again in 0.2 s")
        before = len(self.moves())
        until(lambda: len(self.moves()) > before, "the next motor moves")
        (daemon,) = self.children(camera, "naro_algo")
        os.kill(daemon, signal.SIGKILL)
        camera.wait_for("the daemon has ended (killed by signal 9 (Killed)); starting it again")
        before = len(self.moves())
        until(lambda: len(self.moves()) > before, "the next daemon makes it move")
        done = subprocess.run([f"{BIN}/naro-status", "--json"], env={**os.environ, "NARO_ROOT": self.root},
                              capture_output=True, text=True, check=True)
        self.assertGreaterEqual(json.loads(done.stdout)["view"]["moves"], 4)
        self.assertEqual(camera.stop(), 0)
        with open(f"{self.root}/truth", encoding="utf-8") as file:
            pans = [json.loads(line)["pan"] for line in file]
        self.assertGreater(max(pans) - min(pans), 9.5, "it shows in the picture")

    def log(self, program):
        with open(f"{self.root}/run/naro/{program}.log", encoding="utf-8", errors="replace") as file:
            return file.read()

    def test_without_a_motor_the_view_stands(self):
        camera = self.start("naro_camera", "--source", "scene:track-turns", "--no-motor", "--no-daemon")
        until(lambda: os.path.exists(f"{self.root}/run/naro/vardex-mem.db"), "the camera runs")
        self.assertEqual(self.children(camera, "naro_motor"), [])
        self.assertFalse(os.path.exists(f"{self.root}/run/naro/motor_view"))
        self.assertEqual(camera.stop(), 0)

    def test_hurried_there_is_none(self):
        camera = self.start("naro_camera", "--source", "shapes", "--fast", "--motor", "pan_speed=30")
        self.assertEqual(camera.wait(), 2)
        camera.wait_for("--fast goes without a motor")

    def test_a_window_turns_in_a_wide_video(self):
        wide = f"{self.root}/wide.y4m"
        width, height, edge = 640, 240, 420
        with open(wide, "wb") as file:  # dark to the left of `edge`, bright to the right of it
            file.write(f"YUV4MPEG2 W{width} H{height} F5:1 Ip A1:1 C420jpeg\n".encode())
            row = bytes([40]) * edge + bytes([200]) * (width - edge)
            for _ in range(400):
                file.write(b"FRAME\n" + row * height + bytes([128]) * (width * height // 2))
        seen = f"{self.root}/seen.y4m"
        camera = self.start("naro_camera", "--source", wide, "--wide", "1", "--frames", seen)
        frame = 6 + 320 * 192 * 3 // 2

        def bright():
            """Share of bright pixels in the middle row of the newest whole picture."""
            try:
                with open(seen, "rb") as file:
                    head = len(file.readline())
                    count = (os.path.getsize(seen) - head) // frame
                    if count < 1:
                        return None
                    file.seek(head + (count - 1) * frame + 6 + 96 * 320)
                    return sum(pixel > 120 for pixel in file.read(320)) / 320
            except FileNotFoundError:
                return None
        # The window has 400 columns, from 120 on: 300 of them are dark.
        until(lambda: bright() is not None, "a picture")
        self.assertAlmostEqual(bright(), 0.25, delta=0.02)
        self.assertEqual(self.start("naro_motor", "--turn", "20,0").wait(), 0)  # 400 / 87.26 * 20 = 92 columns
        until(lambda: abs(bright() - (520 + 92 - edge) / 400) < 0.02, "the window has turned")
        self.assertEqual(self.start("naro_motor", "--turn", "-170,0").wait(), 0)
        until(lambda: bright() == 0, "it stands at the edge")
        self.assertEqual(camera.stop(), 0)

    def test_the_daemon_follows_in_a_wide_video(self):
        wide = f"{self.root}/wide.y4m"
        width, height, side = 640, 240, 40
        with open(wide, "wb") as file:  # a bright block that goes to the right, over a floor of stripes
            file.write(f"YUV4MPEG2 W{width} H{height} F5:1 Ip A1:1 C420jpeg\n".encode())
            stripes = (bytes([60] * 16 + [110] * 16) * (width // 32 + 1))[:width]
            for number in range(300):
                at = 330 + min(number * 6, 260)
                picture = bytearray(stripes * height)
                for y in range(100, 100 + side):
                    picture[y * width + at:y * width + at + side] = bytes([230]) * side
                file.write(b"FRAME\n" + picture + bytes([128]) * (width * height // 2))
        camera = self.start("naro_camera", "--source", wide, "--wide", "0.8", "--set", "track_switch=on")
        until(lambda: len(self.moves()) >= 2, "two moves")
        for move in self.moves()[:2]:
            self.assertGreater(int(move.group(4)), int(move.group(2)), "to the right")
        self.assertEqual(camera.stop(), 0)


if __name__ == "__main__":
    main()
