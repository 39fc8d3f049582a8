#!/usr/bin/env python3
"""Motion records of the running daemon: what reaches the card, byte for byte, and what naro-records and naro-rpc make of
it; and a card that is full, slow and gone while the daemon goes on. usage: records.py BIN_DIR"""
import glob
import json
import os
import re
import signal
import struct
import time

from naro_system import *

HEADER = b"UVOEVENT" + struct.pack("<I", 1) + bytes(116)
WRITTEN = "write_event successful num = 32"


class Recording(SystemTest):
    """A media server of the test's own, a picture in which something moves, and a card that is a plain folder."""

    def setUp(self):
        super().setUp()
        self.card = f"{self.root}/mnt/sdcard"
        os.makedirs(self.card)
        self.server = self.media_server()
        self.raw_stream()
        self.start_daemon()

    def start_daemon(self):
        self.daemon = self.start("naro_algo", TZ="XYZ-5:30")
        self.server.wait_for_more_requests(2)

    def set(self, value):
        mark = self.daemon.mark()
        self.assertEqual(self.start("naro-config", "set", "sdcard_rw", value).wait(), 0)
        self.daemon.wait_for("[key=sdcard_rw][value=", mark)
        return mark

    def rpc(self, method, status=0):
        program = self.start("naro-rpc", method)
        self.assertEqual(program.wait(), status, program.text())
        return program

    def files(self):
        return sorted(glob.glob(f"{self.card}/ZEDRA_RECORD_MOTION/*/motion_record_msg"))

    def records(self, *arguments, status=0):
        program = self.start("naro-records", *arguments)
        self.assertEqual(program.wait(), status, program.text())
        return program

    def listed(self, *arguments):
        return [json.loads(line) for line in self.records("--json", *arguments).found("", 0) if line.stream == "out"]

    def test_what_moves_is_recorded(self):
        self.daemon.wait_for("get 1st frame ok")
        self.assertEqual(self.files(), [])
        before = int(time.time())
        self.daemon.wait_for(WRITTEN, self.set("rdwr"))
        after = int(time.time())
        path, = self.files()
        with open(path, "rb") as file:
            data = file.read()
        self.assertEqual(len(data), 160)
        self.assertEqual(data[:128], HEADER)
        at, kind, reserved, value, *box = struct.unpack("<qIIQ4H", data[128:])
        self.assertTrue(before <= at <= after, (before, at, after))
        # The square moves about a band of the picture; whether it is taken for a person is the detector's business.
        self.assertIn(kind, (0, 1))
        self.assertEqual((reserved, value), (0, kind))
        self.assertTrue(box[0] < box[2] < 320 and box[1] < box[3] < 192, box)
        # The folder is named after the daemon's local hour.
        hour = time.strftime("%Y%m%d%H", time.gmtime(at + 5.5 * 3600))
        self.assertEqual(os.path.basename(os.path.dirname(path)), hour)
        # The same as the tool says it.
        record, = self.listed()
        self.assertEqual(record, {"time": at, "local": record["local"], "type": kind, "name": ("motion", "people")[kind],
                                  "value": value, "fields": box, "file": path})
        self.assertEqual(self.listed("--since", f"@{at + 1}"), [])
        self.assertEqual(self.listed("--until", f"@{at}"), [])
        self.assertEqual(len(self.listed("--since", f"@{at}", "--until", f"@{at + 1}")), 1)
        self.assertEqual(self.listed("--type", "sound"), [])
        self.assertEqual(len(self.listed("--type", "motion", "--type", "people")), 1)
        self.assertTrue(self.records("verify").found("1 files, 1 records, 0 faults, 0 notes"))
        table = self.records("--csv", "--utc").lines
        self.assertEqual(table[0], "time,text,type,name,value,f1,f2,f3,f4,file")
        self.assertEqual(table[1], f"{at},{time.strftime('%Y-%m-%d %H:%M:%S', time.gmtime(at))},{kind},{record['name']},"
                                   f"{value},{','.join(map(str, box))},{path}")
        self.assertTrue(self.records("files").found(re.compile(rf"^ +1 +160 +yes +0 +{re.escape(path)}$")))
        self.assertEqual(self.daemon.errors(), [])

    def test_a_card_that_is_to_be_taken_out(self):
        self.daemon.wait_for(WRITTEN, self.set("rdwr"))
        mark = self.daemon.mark()
        self.assertEqual([line for line in self.rpc("sd_umount").lines], ["0"])
        self.daemon.wait_for("rpc_sdcard_format_umount_pre ", mark)
        self.server.wait_for_more_requests(30)  # more than five seconds of motion
        self.assertEqual(self.daemon.found(WRITTEN, mark), [])
        self.daemon.wait_for(WRITTEN, self.set("rdwr"))
        self.assertEqual([line for line in self.rpc("sd_format").lines], ["0"])
        self.assertTrue(self.rpc("sd_mount", 1).found("sd_mount: the daemon has no such method"))
        self.assertTrue(self.rpc("sd umount", 1).found("that is no method's name"))
        # A daemon that was killed leaves its socket behind, and the next one takes it over.
        self.daemon.signal(signal.SIGKILL)
        self.daemon.wait()
        self.assertTrue(self.rpc("sd_umount", 1).found("no daemon is running there"))
        self.start_daemon()
        mark = self.daemon.mark()
        self.rpc("sd_umount")
        self.daemon.wait_for("rpc_sdcard_format_umount_pre ", mark)
        self.assertEqual(self.daemon.errors(), [])

    def test_files_that_are_damaged(self):
        self.daemon.wait_for(WRITTEN, self.set("rdwr"))
        self.daemon.stop()
        path, = self.files()
        with open(path, "rb") as file:
            whole = file.read()
        folder = f"{os.path.dirname(path)}/.."
        for data, lines, faults, listed in (
                (whole + b"piece", [f"{path}: 5 bytes at the end that are a piece of a record"], 1, 1),
                (whole[128:], [f"{path}: note: no header: the file was made anew in a folder that was there"], 0, 1),
                (whole[:100], [f"{path}: a header that is cut off after 100 bytes"], 1, 0),
                (b"", [f"{path}: note: empty: not even the header could be written"], 0, 0),
                (whole[:8] + b"\2" + whole[9:], [f"{path}: version 2, which nobody here can read"], 1, 0),
                (whole + whole[128:136] + b"\7" + whole[137:160], [], 0, 2),
                (whole + struct.pack("<q", 5) + whole[136:160],
                 [f"{path}: note: 1 times a record is older than the one before it: the clock was set back",
                  f"{path}: 1 records that are of another hour than their folder"], 1, 2)):
            with open(path, "wb") as file:
                file.write(data)
            verified = self.records("verify", status=1 if faults else 0)
            self.assertEqual(verified.lines[:-1], lines)
            self.assertIn(f", {faults} faults,", verified.lines[-1])
            said = self.records()
            self.assertEqual(len([line for line in said.lines if line.stream == "out"]) - 1, listed)
            self.assertEqual([line for line in said.lines if line.stream == "err"],
                             [f"naro-records: {line}" for line in lines])
            with open(path, "rb") as file:
                self.assertEqual(file.read(), data, "nothing is repaired")
        os.mkdir(f"{folder}/2021031408")
        os.mkdir(f"{folder}/holiday")
        verified = self.records("verify", status=1)
        self.assertTrue(verified.found("2021031408: note: no file in it"))
        self.assertTrue(verified.found("holiday: note: not of the records"))
        self.assertTrue(self.records(f"{folder}/nothing", status=1).found("nothing: No such file or directory"))
        self.assertEqual(self.records("--since", "yesterday", status=2).lines[0][:26], "naro-records: --since want")


class DeskCard(SystemTest):
    """A desk camera with a card of its own size."""

    def tell(self, command, answer):
        program = self.start("naro-card", *command.split())
        self.assertEqual(program.wait(), 0, program.text())
        self.assertEqual(program.lines, [f"{answer}"])

    def test_a_card_in_trouble_holds_up_nobody(self):
        camera = self.start("naro_camera", "--source", "shapes", "--loop", "--headless", "--verbose", "--card", "64K",
                            "--set", "sdcard_rw=none")
        until(lambda: not camera.running() or camera.found("Motion"), "events")
        if not camera.running():
            self.skipTest(camera.text())
        # Full from the start: neither header nor record find room.
        self.tell("fill", "in, of its own size, full; sdcard_rw rdwr")
        mark = camera.mark()
        self.tell("insert", "in, of its own size, full; sdcard_rw rdwr")  # says that it may be written
        camera.wait_for("write_header fail", mark)
        camera.wait_for("write_event to file fail", mark)
        camera.wait_for("Motion", mark, times=5)
        self.tell("free", "in, of its own size; sdcard_rw rdwr")
        self.tell("slow 2000", "in, of its own size, slow: 2000 ms; sdcard_rw rdwr")
        # The next record waits for two seconds, in which detection goes on.
        mark = camera.mark()
        written = camera.wait_for(WRITTEN, mark)
        self.assertGreater(len(camera.found("Motion", mark)), 5)
        self.tell("fast", "in, of its own size; sdcard_rw rdwr")
        # Only the camera and what it started see this card; the rest of us look through its eyes.
        seen = self.start("naro-records", "--json",
                          f"/proc/{camera.pid}/root{self.root}/mnt/sdcard/ZEDRA_RECORD_MOTION")
        self.assertEqual(seen.wait(), 0, seen.text())
        self.assertGreaterEqual(written.at - json.loads(seen.found('"time"')[-1])["time"], 2)
        # Gone: what cannot be written in the second until the camera notices is said, if anything comes.
        self.tell("pull", "out, of its own size; sdcard_rw rdwr")
        mark = camera.mark()
        camera.wait_for("[key=sdcard_rw][value=none]", mark)
        camera.wait_for("Motion", mark, times=5)
        self.tell("insert", "in, of its own size; sdcard_rw rdwr")
        camera.wait_for(WRITTEN, mark)
        # Taken out as it should be: the daemon was asked first.
        mark = camera.mark()
        self.tell("eject", "out, of its own size; sdcard_rw none")
        camera.wait_for("rpc_sdcard_format_umount_pre ", mark)
        self.assertEqual(camera.stop(), 0)


if __name__ == "__main__":
    main()
