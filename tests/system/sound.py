#!/usr/bin/env python3
"""The daemon and what the media server hears: broadcasts and records of sounds, answers that are none, a server that goes
and comes back; and the desk camera, which hears by a schedule. usage: sound.py BIN_DIR"""
import json
import os
import struct
import threading
import time

from naro_system import *

LOUD = "**** test>>>>>>naro_algo,loud sound detect yes"


def heard(result=1):
    return lambda request: request.send(reply(request.cmd_no + 1, 0, struct.pack("<I", result)))


class Sound(SystemTest):
    def setUp(self):
        super().setUp()
        self.server = self.media_server()
        self.asked = []  # (request, seconds by the wall clock)

    def at_each(self, behaviour):
        """A behaviour that notes when it was asked for."""
        def behave(request):
            self.asked.append((request, time.time()))
            return behaviour(request)
        return behave

    def running(self, first, *behaviours):
        """A daemon whose first questions are answered so, and a listener who was there before the first answer."""
        listened_to = threading.Event()
        self.server.next_sound(*(self.at_each(behaviour) for behaviour in (late(listened_to, first), *behaviours)))
        self.events = self.start("naro-events", "--channel", "lsd", "--json")
        self.daemon = self.start("naro_algo")
        until(lambda: self.sockets("lsd_event") >= 2, "a listener: the channel and its connection")
        listened_to.set()

    def sockets(self, name):
        """How many sockets of that path the daemon holds."""
        held = set()
        for fd in os.listdir(f"/proc/{self.daemon.pid}/fd"):
            try:
                held.add(os.readlink(f"/proc/{self.daemon.pid}/fd/{fd}"))
            except FileNotFoundError:
                pass  # closed meanwhile
        with open("/proc/net/unix", encoding="ascii", errors="replace") as file:
            lines = [line.split() for line in file if name in line]
        return sum(f"socket:[{line[6]}]" in held for line in lines)

    def told(self, count):
        """The first `count` broadcasts."""
        self.events.wait_for('"event":"LoudSound"', times=count)
        return [json.loads(line) for line in self.events.lines if line.startswith("{")]

    def assert_question(self, request):
        self.assertEqual((request.cmd_no, request.cmd_type, request.payload), (4145, 2, b""))

    def test_one_sound_that_goes_on_is_told_every_two_seconds(self):
        self.running(*[answer()] * 4, *[heard()] * 3)
        events = self.told(3)
        for request, _ in self.asked:
            self.assert_question(request)
        # Three times a second while it is quiet, every two seconds then; a machine is late, and never early.
        gaps = [later - earlier for (_, earlier), (_, later) in zip(self.asked, self.asked[1:])]
        for gap in gaps[:4]:
            self.assertGreater(gap, 0.295)
        for gap in gaps[4:]:
            self.assertGreater(gap, 1.995)
        for event, (_, before), (_, asked) in zip(events, self.asked[3:], self.asked[4:]):
            # Its time was taken before the question, and after the one before.
            self.assertGreaterEqual(event["number"], int(before))
            self.assertLessEqual(event["number"], asked)
        self.server.wait_for_more_questions(3)  # no sound any more: soon
        self.assertEqual(len(self.told(3)), 3)
        self.assertEqual(len(self.daemon.found(LOUD)), 3)
        self.assertEqual({line.level for line in self.daemon.found(LOUD)}, {"info"})
        self.assertEqual(self.daemon.errors(), [])
        self.assertEqual(self.daemon.stop(), 255)

    def test_answers_that_are_no_sound(self):
        one = struct.pack("<I", 1)
        wrong = lambda cmd_no, ret: lambda request: request.send(reply(cmd_no, ret, one))
        self.running(heard(0), heard(2), heard(0xFFFFFFFF), wrong(4146, 5), wrong(4146, 0xFFFFFFFF), wrong(4145, 0),
                     wrong(4147, 0), raw(reply(4146, 0, one)[:27]), heard())
        self.told(1)
        self.daemon.wait_for(LOUD)
        self.assertEqual(len(self.daemon.found(LOUD)), 1)
        self.assertEqual(len(self.asked), 9)
        name = "[naro_audio_sound_result_get]"
        self.assertEqual(self.daemon.errors(), [
            f"{name}[cmd_no=4146][ret=5][param] get error", f"{name}[cmd_no=4146][ret=-1][param] get error",
            f"{name}[cmd_no=4145][ret=0][param] get error", f"{name}[cmd_no=4147][ret=0][param] get error",
            "cmd rcv error, rsize = 27\r", f"{name}[rcv][cmd_no=4145][fail][1]"])

    def test_a_server_that_goes_and_comes_back(self):
        def die(_):
            self.server.kill()
            return False

        self.running(heard(), die)
        self.told(1)
        self.daemon.wait_for("[naro_ipc_server_connect]connect error, errno=111\r", times=2)
        self.server.next_sound(heard())
        self.server.listen()
        self.told(2)  # half a second until it connects, and one question
        name = "[naro_audio_sound_result_get]"
        errors = [line for line in self.daemon.errors() if "connect error" not in line]
        self.assertEqual(errors, ["cmd rcv error, rsize = 0\r", f"{name}[rcv][cmd_no=4145][fail][1]",
                                  "cmd snd error, wsize = -1\r", f"{name}[snd][cmd_no=4145][fail]"])
        self.assertEqual(len(self.server.connections), 2)

    def set(self, key, value):
        mark = self.daemon.mark()
        self.assertEqual(self.start("naro-config", "set", key, value).wait(), 0)
        self.daemon.wait_for(f"[key={key}][value=", mark)

    def records(self):
        reader = self.start("naro-records", "--json", f"{self.root}/mnt/sdcard/ZEDRA_RECORD_MOTION")
        reader.wait()
        return [json.loads(line) for line in reader.lines if line.startswith("{")]

    def test_a_record_where_sounds_are_to_be_recorded(self):
        """Not before the card may be written and the setting is on."""
        os.makedirs(f"{self.root}/mnt/sdcard")
        self.running(heard())
        self.told(1)
        self.set("sdcard_rw", "rdwr")
        self.server.next_sound(heard())
        self.told(2)
        self.set("baby_cry_detect", "on")
        self.server.next_sound(heard())
        last = self.told(3)[-1]
        self.daemon.wait_for("write_event successful num = 32")
        records = self.records()
        self.assertEqual(len(records), 1, records)
        path = [os.path.join(folder, name) for folder, _, names in os.walk(f"{self.root}/mnt/sdcard") for name in names]
        with open(path[0], "rb") as file:
            self.assertEqual(file.read()[128:], struct.pack("<qIIQ4H", last["number"], 7, 0, 1, 0, 0, 0, 0))


class Desk(SystemTest):
    def test_a_schedule_is_heard(self):
        with open(f"{self.root}/schedule", "w", encoding="ascii") as file:
            file.write("1 loud\n1.9 quiet\n")
        camera = self.start("naro_camera", "--source", "shapes", "--headless", "--json", "--seconds", "3.5", "--sound",
                            f"{self.root}/schedule")
        self.assertEqual(camera.wait(), 0, camera.text())
        lines = [json.loads(line) for line in camera.lines if line.startswith("{")]
        sounds = [line for line in lines if line.get("event") == "LoudSound"]
        self.assertEqual(len(sounds), 1, camera.text())
        # The first question in that second finds it; a machine is late, and never early.
        self.assertGreaterEqual(sounds[0]["time_ms"], 1000)
        summary = lines[-1]["summary"]
        self.assertEqual(summary["events"]["LoudSound"], 1)
        self.assertEqual((summary["sound"]["answered_loud"], summary["sound"]["told"]), (1, 1))
        self.assertGreater(summary["sound"]["asked"], 3)
        self.assertFalse(summary["sound"]["loud"])
        self.assertIsNone(summary["sound"]["level_db"])


if __name__ == "__main__":
    main()
