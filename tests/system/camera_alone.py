#!/usr/bin/env python3
"""The desk camera around a stand-in for the daemon: sources, pace, supervision, tools. usage: camera_alone.py BIN_DIR"""
import fcntl
import http.server
import json
import os
import re
import shutil
import signal
import socket
import struct
import subprocess
import threading
import time
import unittest

from naro_system import BIN, TOOLS, SystemTest, main, until

STAND_IN = f"{TOOLS}/stand_in_daemon"
EVENT = re.compile(r"^(\d\d):(\d\d)\.(\d\d\d)  (\w+)((?:  | )\[\d+,\d+ \d+x\d+\])*$")
# When the generated scene moves (camera/generated.h), in milliseconds of a cycle; the frame after each is the one
# in which the shape is gone.
MOVING = ((3000, 8000), (12000, 17000))
CYCLE_MS = 20000


def loopback_up():
    """Our own network has no address until its loopback device is up."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as s:
        request = bytearray(struct.pack("16sH22x", b"lo", 0))
        fcntl.ioctl(s, 0x8913, request)  # SIOCGIFFLAGS
        flags = struct.unpack_from("H", request, 16)[0]
        if not flags & 1:
            struct.pack_into("H", request, 16, flags | 1)
            fcntl.ioctl(s, 0x8914, request)  # SIOCSIFFLAGS


def events_of(program):
    """(milliseconds, name, whole line) of each event that was printed."""
    found = []
    for line in program.lines:
        match = EVENT.match(line) if line.stream == "out" else None
        if match:
            minutes, seconds, ms = (int(x) for x in match.group(1, 2, 3))
            found.append((minutes * 60000 + seconds * 1000 + ms, match.group(4), str(line)))
    return found


def summary_of(program):
    """The numbers of the frames line: sent, analysed, compared with only, dropped."""
    line = program.found(re.compile("^frames "))[0]
    return [int(n) for n in re.findall(r"\d+", line)]


class CameraTest(SystemTest):
    def camera(self, *arguments, stand_in="", daemon=STAND_IN, **environment):
        source = () if "--source" in arguments else ("--source", "shapes")
        return self.start("naro_camera", "--daemon", daemon, *source, *arguments, NARO_STAND_IN=stand_in, **environment)

    def run_camera(self, *arguments, status=0, **more):
        camera = self.camera(*arguments, **more)
        self.assertEqual(camera.wait(), status, camera.text())
        return camera

    def status(self):
        done = subprocess.run([f"{BIN}/naro-status", "--json"], env={**os.environ, "NARO_ROOT": self.root},
                              capture_output=True, text=True, timeout=60)
        return json.loads(done.stdout) if done.returncode == 0 else None

    def daemon_pid(self):
        return until(lambda: ((self.status() or {}).get("daemon") or {}).get("pid"), "a daemon")

    def clip(self, name, *codec, seconds=12):
        """A clip with a bright square that jumps about, made by ffmpeg."""
        if not shutil.which("ffmpeg"):
            self.skipTest("ffmpeg is not here")
        path = f"{self.root}/{name}"
        subprocess.run(["ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", f"testsrc=s=320x192:r=10:d={seconds}", *codec,
                        path], check=True)
        return path


class Generated(CameraTest):
    def test_hurried_it_is_the_same_list_twice(self):
        lists = []
        for _ in range(2):
            camera = self.run_camera("--fast", "--headless", "--seconds", "30")
            self.assertEqual(summary_of(camera), [150, 149, 1, 0])
            lists.append([line for _, _, line in events_of(camera)])
        self.assertEqual(lists[0], lists[1])
        self.assertGreater(len(lists[0]), 60)

    def test_events_are_where_the_scene_moves(self):
        camera = self.run_camera("--fast", "--seconds", "40")
        times = {at for at, _, _ in events_of(camera)}
        want = {at for at in range(0, 40000, 200)
                if any(since < at % CYCLE_MS <= to for since, to in MOVING) or
                # The disc and the block enter at the very edge: in the first frame there may be nothing yet.
                (at % CYCLE_MS in (3000, 12000) and at in times)}
        self.assertEqual(times, want)

    def test_at_its_own_pace_it_takes_its_time(self):
        began = time.monotonic()
        camera = self.run_camera("--seconds", "3")
        took = time.monotonic() - began
        sent, analysed, compared, dropped = summary_of(camera)
        self.assertGreaterEqual(took, 2.9)
        self.assertLessEqual(sent, 17)
        self.assertGreaterEqual(sent, 8)  # a busy machine may miss some
        self.assertEqual(sent, analysed + compared + dropped)


class Files(CameraTest):
    def test_a_file_plays_once_and_the_camera_ends(self):
        clip = self.clip("clip.mkv", "-c:v", "ffv1")
        camera = self.run_camera("--source", clip, "--fast")
        self.assertEqual(summary_of(camera), [60, 59, 1, 0])

    def test_again_and_again_until_the_time_is_up(self):
        clip = self.clip("clip.mkv", "-c:v", "ffv1", seconds=2)
        camera = self.run_camera("--source", clip, "--fast", "--loop", "--seconds", "9")
        self.assertEqual(summary_of(camera), [45, 44, 1, 0])
        times = [at for at, _, _ in events_of(camera)]
        self.assertEqual(times, sorted(times))
        self.assertGreater(times[-1], 8000)

    def test_a_file_that_is_not_there_is_said(self):
        for arguments in (("--fast",), ()):
            camera = self.run_camera("--source", f"{self.root}/none.mp4", *arguments, status=1)
            camera.wait_for("none.mp4: No such file or directory")
            self.assertEqual(camera.found("frames "), [])

    def test_the_recording_holds_what_was_printed(self):
        camera = self.run_camera("--fast", "--seconds", "6", "--json", "--record", f"{self.root}/recording")
        printed = [line for line in camera.lines if line.startswith('{"time_ms"')]
        with open(f"{self.root}/recording/events.jsonl", encoding="utf-8") as file:
            self.assertEqual(file.read().splitlines(), printed)
        self.assertTrue(printed)
        if shutil.which("ffprobe"):
            seen = subprocess.run(["ffprobe", "-v", "error", "-count_frames", "-show_entries",
                                   "stream=width,height,nb_read_frames", "-of", "csv=p=0",
                                   f"{self.root}/recording/video.mp4"], capture_output=True, text=True, check=True)
            self.assertEqual(seen.stdout.strip(), "640,384,30")


class Server(http.server.ThreadingHTTPServer):
    """A web server with one file or one live stream, which breaks as told."""
    daemon_threads = True
    allow_reuse_address = True

    def __init__(self, port=0):
        super().__init__(("127.0.0.1", port), Handler)
        self.data = b""
        self.cut_at = None    # bytes after which the connection is closed
        self.stream = None    # called with a connection's send, instead of the file
        self.connections = 0
        threading.Thread(target=self.serve_forever, kwargs={"poll_interval": 0.02}, daemon=True).start()

    def url(self, name):
        return f"http://127.0.0.1:{self.server_address[1]}/{name}"

    def handle_error(self, request, client_address):
        pass  # whoever hangs up on us may


class Handler(http.server.BaseHTTPRequestHandler):
    def log_message(self, *_):
        pass

    def do_GET(self):
        self.server.connections += 1
        self.send_response(200)
        if self.server.stream:
            self.send_header("Content-Type", "multipart/x-mixed-replace; boundary=next")
            self.end_headers()
            self.server.stream(self.wfile.write)
            return
        self.send_header("Content-Length", str(len(self.server.data)))
        self.end_headers()
        self.wfile.write(self.server.data[:self.server.cut_at])


class Network(CameraTest):
    @classmethod
    def setUpClass(cls):
        loopback_up()

    def server(self, port=0):
        server = Server(port)
        self.addCleanup(server.server_close)
        self.addCleanup(server.shutdown)
        return server

    def test_a_file_on_a_server_that_dies_goes_on_where_it_was(self):
        clip = self.clip("clip.mkv", "-c:v", "ffv1", "-g", "1")
        at_home = [line for _, _, line in events_of(self.run_camera("--source", clip, "--fast"))]
        server = self.server()
        with open(clip, "rb") as file:
            server.data = file.read()
        server.cut_at = len(server.data) // 2
        camera = self.camera("--source", server.url("clip.mkv"), "--fast")
        camera.wait_for("lost: the connection broke off; trying again in 0.5 s")
        port = server.server_address[1]
        server.shutdown()
        server.server_close()
        camera.wait_for("cannot be opened: ")
        server = self.server(port)
        with open(clip, "rb") as file:
            server.data = file.read()
        self.assertEqual(camera.wait(), 0, camera.text())
        self.assertEqual([line for _, _, line in events_of(camera)], at_home)
        self.assertEqual(summary_of(camera), [60, 59, 1, 0])
        self.assertTrue(camera.found(re.compile(r"trying again in \d\.\d s")))

    def pictures(self):
        """JPEG pictures with something that moves."""
        if not shutil.which("ffmpeg"):
            self.skipTest("ffmpeg is not here")
        subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i", "testsrc=s=320x192:r=1:d=8",
                        f"{self.root}/%d.jpg"], check=True)
        pictures = []
        for k in range(1, 9):
            with open(f"{self.root}/{k}.jpg", "rb") as file:
                pictures.append(file.read())
        return pictures

    def test_a_stream_that_stalls_or_breaks_is_opened_again(self):
        pictures = self.pictures()
        server = self.server()
        stalled, free = threading.Event(), threading.Event()
        self.addCleanup(free.set)

        def stream(send):
            for k in range(100000):
                jpeg = pictures[k % len(pictures)]
                send(b"--next\r\nContent-Type: image/jpeg\r\nContent-Length: %d\r\n\r\n" % len(jpeg) + jpeg + b"\r\n")
                time.sleep(0.05)  # the pace of this stream
                if server.connections == 1 and k == 40:
                    return
                if server.connections == 2 and k == 40:
                    stalled.set()
                    free.wait(60)
                    return
        server.stream = stream
        camera = self.camera("--source", server.url("live.mjpg"))
        camera.wait_for(re.compile("lost: .*; trying again in 0.5 s"))
        self.assertTrue(stalled.wait(60))
        camera.wait_for("lost: no data for 10 s; trying again in 0.5 s")
        before = self.status()["frames"]["sent"]
        until(lambda: self.status()["frames"]["sent"] > before + 3, "frames after the stall")
        status = self.status()
        self.assertTrue(status["source"]["live"])
        self.assertEqual(status["source"]["reopened"], 2)
        self.assertEqual(camera.stop(), 0, camera.text())

    def test_a_stream_cannot_be_hurried(self):
        pictures = self.pictures()
        server = self.server()

        def stream(send):
            for k in range(100000):
                jpeg = pictures[k % len(pictures)]
                send(b"--next\r\nContent-Type: image/jpeg\r\nContent-Length: %d\r\n\r\n" % len(jpeg) + jpeg + b"\r\n")
                time.sleep(0.05)
        server.stream = stream
        camera = self.run_camera("--source", server.url("live.mjpg"), "--fast", status=1)
        camera.wait_for("--fast is for files")

    def test_nobody_there_is_tried_again_until_somebody_is(self):
        clip = self.clip("clip.mkv", "-c:v", "ffv1", seconds=2)
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            port = probe.getsockname()[1]
        camera = self.camera("--source", f"http://127.0.0.1:{port}/clip.mkv", "--fast")
        camera.wait_for("cannot be opened: Connection refused; trying again in 0.5 s")
        server = self.server(port)
        with open(clip, "rb") as file:
            server.data = file.read()
        self.assertEqual(camera.wait(), 0, camera.text())
        self.assertEqual(summary_of(camera)[0], 10)


class Supervision(CameraTest):
    def test_a_daemon_that_is_killed_is_started_again(self):
        camera = self.camera("--summary")
        first = self.daemon_pid()
        until(lambda: self.status()["frames"]["analysed"] > 2, "frames")
        os.kill(first, signal.SIGKILL)
        camera.wait_for("the daemon has ended (killed by signal 9 (Killed)); starting it again in 0.2 s; its log: "
                        f"{self.root}/run/naro/naro_algo.log")
        until(lambda: self.daemon_pid() != first, "another daemon")
        before = self.status()["frames"]["analysed"]
        until(lambda: self.status()["frames"]["analysed"] > before + 3, "frames of the other daemon")
        self.assertEqual(self.status()["daemon"]["restarts"], 1)
        self.assertEqual(camera.stop(), 0)
        camera.wait_for("restarts    1 of the daemon")

    def test_hurried_a_daemon_that_keeps_dying_does_not_stop_the_source(self):
        camera = self.run_camera("--fast", "--seconds", "6", stand_in="crash_after=12")
        sent, analysed, compared, dropped = summary_of(camera)
        self.assertEqual(sent, 30)
        self.assertEqual(compared, 3)
        self.assertEqual(dropped, 2)
        self.assertEqual(analysed, 25)

    def test_any_end_of_the_daemon_counts(self):
        camera = self.camera(stand_in="exit=0")
        camera.wait_for("the daemon has ended (exit status 0); starting it again in 0.2 s")
        camera.wait_for("the daemon has ended (exit status 0); starting it again in 0.4 s")
        self.assertEqual(camera.stop(), 0)

    def test_signals_end_daemon_and_camera_in_good_order(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGQUIT, signal.SIGHUP):
            camera = self.camera()
            pid = self.daemon_pid()
            camera.signal(number)
            self.assertEqual(camera.wait(), 0, camera.text())
            self.assertEqual(camera.found("the daemon has ended"), [])
            self.assertTrue(camera.found(re.compile("^frames ")), "the summary")
            self.assertFalse(os.path.exists(f"/proc/{pid}"))

    def test_a_signal_in_the_middle_of_the_start_ends_it_in_good_order_too(self):
        # The store of settings is there before the start is over; with a file of its own each time, at any moment of it.
        store = f"{self.root}/run/naro/vardex-mem.db"
        for _ in range(5):
            if os.path.exists(store):
                os.remove(store)
            camera = self.camera()
            until(lambda: os.path.exists(store), "the camera's settings")
            self.assertEqual(camera.stop(), 0, camera.text())
            self.assertEqual(camera.found("the daemon has ended"), [])

    def test_a_deaf_daemon_is_killed(self):
        camera = self.camera(stand_in="deaf")
        pid = self.daemon_pid()
        until(lambda: self.status()["frames"]["analysed"] > 0, "frames")
        camera.signal(signal.SIGTERM)
        self.assertEqual(camera.wait(), 0)
        self.assertTrue(camera.found("the daemon does not end on SIGTERM; killed"))
        self.assertFalse(os.path.exists(f"/proc/{pid}"))

    def test_the_daemon_does_not_outlive_a_camera_that_is_killed(self):
        camera = self.camera()
        pid = self.daemon_pid()
        until(lambda: self.status()["frames"]["analysed"] > 0, "frames")
        camera.signal(signal.SIGKILL)
        camera.wait()

        def gone():
            try:
                with open(f"/proc/{pid}/stat", encoding="ascii") as file:
                    return file.read().rsplit(")", 1)[1].split()[0] in "ZX"
            except OSError:
                return True
        until(gone, "the daemon's end")

    def test_a_daemon_that_cannot_be_started_is_said(self):
        camera = self.run_camera(daemon=f"{self.root}/none", status=1)
        self.assertTrue(camera.found("none cannot be started: No such file or directory"))

    def test_the_daemons_lines_go_to_its_log_or_through(self):
        self.run_camera("--fast", "--seconds", "1")
        with open(f"{self.root}/run/naro/naro_algo.log", encoding="utf-8") as file:
            self.assertEqual(file.read(), "stand-in daemon\n")
        quiet = self.run_camera("--fast", "--seconds", "1")
        self.assertEqual(quiet.found("stand-in daemon"), [])
        camera = self.run_camera("--fast", "--seconds", "1", "--verbose")
        self.assertEqual(len(camera.found("stand-in daemon")), 1)

    def test_without_a_daemon_one_by_hand_will_do(self):
        camera = self.start("naro_camera", "--no-daemon", "--source", "shapes", "--fast", "--seconds", "4")
        self.start("stand_in_daemon", NARO_STAND_IN="")
        self.assertEqual(camera.wait(), 0, camera.text())
        self.assertEqual(summary_of(camera), [20, 19, 1, 0])
        self.assertEqual(camera.found("CPU "), [])


class Manners(CameraTest):
    def test_a_second_camera_is_told_of_the_first(self):
        first = self.camera()
        self.daemon_pid()
        second = self.run_camera(status=1, NARO_ROOT=f"{self.root}/other")
        self.assertTrue(second.found(f"another camera runs on this machine already: process {first.pid} listens on the "
                                     "command socket \"naro_IPCsock\". There can be one at a time"))
        self.assertEqual(second.found("frames "), [])
        self.assertEqual(first.stop(), 0)

    def test_it_waits_for_as_many_listeners_as_it_is_told(self):
        camera = self.camera("--fast", "--seconds", "2", "--listeners", "2")
        until(lambda: (self.status() or {}).get("daemon", {}).get("pid"), "a daemon")
        self.assertEqual(self.status()["frames"]["sent"], 0)
        listener = self.start("naro-events", "--channel", "/run/video_rawstream", "--json", "--count", "10")
        self.assertEqual(camera.wait(), 0, camera.text())
        self.assertEqual(listener.wait(), 0)
        self.assertEqual(len(listener.found('"channel":"/run/video_rawstream","bytes":"')), 10)

    def test_noise_on_the_event_channel_is_dropped(self):
        camera = self.run_camera("--fast", "--seconds", "6", stand_in="noise")
        self.assertEqual(summary_of(camera), [30, 29, 1, 0])
        self.assertEqual(len(camera.found("a message of 6 bytes on /run/md_event is no event; dropped")), 29)
        self.assertTrue(events_of(camera))

    def test_at_its_own_pace_unanswered_frames_are_counted_as_dropped(self):
        camera = self.run_camera("--seconds", "1", stand_in="mute")
        sent, analysed, compared, dropped = summary_of(camera)
        self.assertEqual((analysed, compared, dropped), (0, 1, sent - 1))

    def test_nobody_reading_ends_it(self):
        read_end, write_end = os.pipe()
        camera = subprocess.Popen([f"{BIN}/naro_camera", "--daemon", STAND_IN, "--source", "shapes", "--fast"], stdout=write_end,
                                  stderr=subprocess.DEVNULL, env={**os.environ, "NARO_ROOT": self.root})
        os.close(write_end)
        self.assertTrue(os.read(read_end, 1))
        os.close(read_end)
        self.assertEqual(camera.wait(60), 0)

    def test_wrong_options_and_files_are_said(self):
        self.assertTrue(self.run_camera("--fats", status=2).found("naro_camera --help tells the options"))
        with open(f"{self.root}/scenario.json", "w", encoding="utf-8") as file:
            file.write('{"rules":[{"command":4139,"action":"explode"}]}')
        camera = self.run_camera("--scenario", f"{self.root}/scenario.json", status=1)
        self.assertTrue(camera.found('scenario.json: rule 1: "action" is "explode"; expected refuse, delay,'))

    def test_a_scenario_misbehaves_and_the_frames_go_on(self):
        with open(f"{self.root}/scenario.json", "w", encoding="utf-8") as file:
            json.dump({"rules": [
                {"command": "naro_isp_track_run", "occurrence": 3, "action": "refuse", "ret": 5},
                {"command": 4139, "occurrence": 5, "action": "delay", "ms": 50},
                {"command": 4139, "occurrence": 7, "action": "number", "number": 4139},
                {"command": 4139, "occurrence": 9, "action": "close", "bytes": 10}]}, file)
        camera = self.run_camera("--fast", "--seconds", "6", "--scenario", f"{self.root}/scenario.json", "--json")
        summary = json.loads(camera.found('{"summary"')[0])["summary"]
        self.assertEqual(summary["frames"]["analysed"], 29)
        self.assertEqual(summary["commands"]["refused"], 1)

    def test_it_lives_in_the_users_runtime_folder_by_itself(self):
        environment = {name: value for name, value in os.environ.items() if name != "NARO_ROOT"}
        environment.update(XDG_RUNTIME_DIR=self.root, NARO_STAND_IN="")
        camera = subprocess.Popen([f"{BIN}/naro_camera", "--daemon", STAND_IN, "--source", "shapes"], env=environment,
                                  stdout=subprocess.DEVNULL)
        self.addCleanup(camera.wait)
        self.addCleanup(camera.terminate)
        found = until(lambda: subprocess.run([f"{BIN}/naro-status", "--json"], env=environment, capture_output=True,
                                             timeout=60).stdout, "a camera's status")
        self.assertTrue(json.loads(found)["daemon"]["pid"])
        self.assertEqual(os.stat(f"{self.root}/naro").st_mode & 0o777, 0o700)
        self.assertTrue(os.path.exists(f"{self.root}/naro/run/video_rawstream"))


class Tools(CameraTest):
    def test_events_are_heard_by_others_too(self):
        listeners = [self.start("naro-events", "--json", "--count", "3"), self.start("naro-events", "--count", "3")]
        camera = self.camera("--loop")
        self.assertEqual([listener.wait() for listener in listeners], [0, 0])
        for line in listeners[0].found("{"):
            event = json.loads(line)
            self.assertEqual(event["channel"], "/run/md_event")
            self.assertIn(event["event"], ("ObjectMotion", "PeopleMotion"))
            self.assertLess(abs(event["time_ms"] / 1000 - time.time()), 600)
        self.assertEqual(len(listeners[1].found(re.compile(
            r"^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}  (Object|People)Motion$"))), 3)
        self.assertEqual(camera.stop(), 0)

    def test_whoever_waits_for_a_channel_is_told_and_found(self):
        listener = self.start("naro-events", "--count", "1")
        listener.wait_for(f"waiting for {self.root}/run/md_event")
        camera = self.camera()
        self.assertEqual(listener.wait(), 0)
        listener = self.start("naro-events")
        until(lambda: listener.found("Motion"), "an event")
        camera.stop()
        listener.wait_for("/run/md_event has closed; waiting for it to come back")
        self.assertEqual(listener.stop(), 0)

    def test_the_status_for_people(self):
        camera = self.camera()
        until(lambda: (self.status() or {"events": {}})["events"], "an event")
        status = self.start("naro-status")
        self.assertEqual(status.wait(), 0)
        for pattern in (r"^source      shapes, at 00:0\d$",
                        r"^frames      \d+ sent, \d+ analysed, 1 compared with only, 0 dropped$",
                        r"^            \d+ with motion, \d+ with people$",
                        r"^events      \d+ ObjectMotion$",
                        r"^commands    \d+ answered, 0 refused, 1 clients; last \d\.\d s ago, last tracking \d\.\d s ago$",
                        r"^daemon      process \d+, connected, up 00:0\d, 1 threads, started again 0 times$",
                        r"^cost        \d+\.\d\d s of CPU, \d+\.\d MB resident at most$",
                        r"^picture     day, WDR off, colour transform off$"):
            self.assertTrue(status.found(re.compile(pattern)), pattern + "\n" + status.text())
        watch = self.start("naro-status", "--watch", "--json")
        watch.wait_for('"source"', times=2)
        camera.stop()
        self.assertEqual(watch.wait(), 0)
        self.assertTrue(watch.found("the camera has ended"))

    def test_nobody_answers_where_no_camera_is(self):
        status = self.start("naro-status")
        self.assertEqual(status.wait(), 1)
        self.assertTrue(status.found(f"no camera answers on {self.root}/run/naro/camera_status"))

    def test_wrong_options_are_said(self):
        for program in ("naro-events", "naro-status"):
            for arguments in (["--x"], ["word"]):
                self.assertEqual(self.start(program, *arguments).wait(), 2)
            self.assertEqual(self.start(program, "--help").wait(), 0)
        for arguments in (["--channel", "other"], ["--count", "0"], ["--count", "x"], ["--count", "-1"]):
            self.assertEqual(self.start("naro-events", *arguments).wait(), 2)


if __name__ == "__main__":
    main()
