#!/usr/bin/env python3
"""The daemon as a process: what it prints and when, a second one beside it, a raw stream that goes, comes back or sends
what it should not. usage: lifecycle.py BIN_DIR"""
import signal

from naro_system import *

WRONG_FRAME = "[enqueue_frame] raw frame dropped: %s; wanted is NV12 of 320x192, 92160 bytes"


class Lifecycle(SystemTest):
    def running_daemon(self):
        self.server = self.media_server()
        daemon = self.start("naro_algo")
        self.feeder = self.raw_stream()
        self.server.wait_for_requests(1)
        return daemon

    def expect_it_works(self, daemon):
        self.server.wait_for_more_requests(3)
        self.assertTrue(daemon.running())

    def test_arguments_are_ignored(self):
        server = self.media_server()
        daemon = self.start("naro_algo", "--help", "nonsense")
        server.wait_for_connections(1)
        self.raw_stream()
        server.wait_for_requests(2)
        self.assertEqual(daemon.stop(), 255)

    def test_standard_output_comes_line_by_line(self):
        """Through a pipe, and while the daemon runs: it is not kept back until a buffer is full."""
        daemon = self.running_daemon()
        self.assertEqual(daemon.wait_for("get 1st frame ok").stream, "out")
        self.assertTrue(daemon.running())

    def test_second_daemon_beside_a_living_one_gives_up_in_order(self):
        first = self.running_daemon()
        second = self.start("naro_algo")
        self.assertEqual(second.wait(), 0, second.text())
        errors = second.errors()
        self.assertRegex(errors[0], r"^shbf 0 start error -\d+$")
        result = errors[0].split()[-1]
        self.assertEqual(errors[1:], [f"shbf_init(0) fail {result}, quit.", "shbf_server_create fail",
                                      "algo_shbf_init fail"])
        self.assertEqual(second.found("shbf exit"), [], "what failed to start is not stopped")
        self.expect_it_works(first)

    def test_settings_that_cannot_be_opened_end_the_daemon_in_order(self):
        self.media_server()
        with open(f"{self.root}/run/naro", "w", encoding="ascii"):
            pass  # where the store's folder would be
        daemon = self.start("naro_algo")
        self.assertEqual(daemon.wait(), 0, daemon.text())
        order = [daemon.lines.index(line) for line in (*daemon.found("kv_client_init fail"), *daemon.found("shbf exit"))]
        self.assertEqual(len(order), 2, daemon.text())
        self.assertLess(*order)
        self.assertEqual(daemon.errors()[-1], "kv_client_init fail")
        for text in ("ev loop break", "ircut_exit", "quit!"):
            self.assertEqual(daemon.found(text), [], "what was not started is not stopped")

    def test_daemon_takes_over_from_a_dead_one(self):
        first = self.running_daemon()
        first.signal(signal.SIGKILL)
        first.wait()
        second = self.start("naro_algo")
        second.wait_for("get 1st frame ok")
        self.expect_it_works(second)
        self.assertEqual(second.errors(), [])

    def test_raw_stream_that_goes_and_comes_back(self):
        daemon = self.running_daemon()
        for times in (1, 2):
            self.feeder.signal(signal.SIGKILL)
            self.feeder.wait()
            line = daemon.wait_for("[shbf_rcv_close] rcv: [raw_stream] closed", times=times)
            self.assertEqual((line, line.level), ("[shbf_rcv_close] rcv: [raw_stream] closed", "info"))
            self.feeder = self.raw_stream()
            self.expect_it_works(daemon)

    def test_wrong_frames_are_dropped_one_by_one(self):
        daemon = self.running_daemon()
        for message, told in (("message 640 480 460800 460800", "640x480, 460800 bytes, of which 460800 arrived"),
                              ("message 320 192 92160 92159", "320x192, 92160 bytes, of which 92159 arrived"),
                              ("message 320 192 4294967295 92160", "320x192, 4294967295 bytes, of which 92160 arrived"),
                              ("message 320 192 92161 92161", "320x192, 92161 bytes, of which 92161 arrived"),
                              ("message 192 320 92160 92160", "192x320, 92160 bytes, of which 92160 arrived")):
            self.feeder.tell(message)
            self.assertEqual(daemon.wait_for(WRONG_FRAME % told).level, "err")
            self.expect_it_works(daemon)
        for count in (1, 40, 63):
            self.feeder.tell(f"bytes {count}")
            daemon.wait_for(f"[enqueue_frame] raw stream message of {count} bytes dropped: its header alone has 64")
        self.feeder.tell("message 320 192 0 0")  # no frame, says the media server: no line
        self.feeder.tell("bytes 64")             # the same, all zeros
        self.expect_it_works(daemon)
        self.assertEqual(len(daemon.errors()), 8, daemon.text())


if __name__ == "__main__":
    main()
