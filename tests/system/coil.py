#!/usr/bin/env python3
"""The filter's coil and the real daemon: one that is ended by force inside a pulse leaves a line high, the camera's board
says so, and the next daemon lowers it. usage: coil.py BIN_DIR"""
import signal
import time

from naro_system import SystemTest, main, until

TOO_LONG = "the board: the filter's coil has been driven for more than a second"


class Coil(SystemTest):
    def line(self):
        """That of the pulse to day, which is what every start begins with."""
        with open(f"{self.root}/sys/class/gpio/gpio79/value", encoding="ascii") as file:
            return file.read().strip()

    def end_inside_a_pulse(self, number, status):
        camera = self.start("naro_camera", "--no-daemon", "--source", "shapes", "--headless")
        daemon = self.start("naro_algo")
        until(lambda: self.line() == "1", "a pulse")
        daemon.signal(number)
        self.assertEqual(daemon.wait(), status)
        self.assertEqual(self.line(), "1", "a forced end leaves the line as it is")
        camera.wait_for(TOO_LONG)
        daemon = self.start("naro_algo")
        daemon.wait_for("create ircut task...")
        self.assertEqual(self.line(), "0", "its pulse is over")
        time.sleep(1.1)  # one that were not would be said by now
        self.assertEqual(len(camera.found(TOO_LONG)), 1, camera.text())

    def test_a_daemon_that_is_killed_inside_a_pulse(self):
        self.end_inside_a_pulse(signal.SIGKILL, -signal.SIGKILL)

    def test_a_daemon_that_is_terminated_inside_a_pulse(self):
        self.end_inside_a_pulse(signal.SIGTERM, 255)


if __name__ == "__main__":
    main()
