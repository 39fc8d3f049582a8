"""The real daemon on a scene at full speed, in a root and, where the machine allows it, a network of its own, so that
several run side by side."""
import hashlib
import json
import os
import re
import subprocess
import tempfile

DEFAULT_LEVEL = (3, 2)  # the daemon's own: of people, of objects
# One setting is turned at a time; the other stays at the daemon's own.
LEVELS = [(people, DEFAULT_LEVEL[1]) for people in range(1, 6)] + [(DEFAULT_LEVEL[0], objects) for objects in (0, 1)]
THRESHOLDS = {1: 0.7, 2: 0.6, 3: 0.5, 4: 0.4, 5: 0.3}  # of the detector's score, by people level
DIFFERENCES = {0: 3840, 1: 2240, 2: 960}               # of a block of 8 x 8 pixels, by object level
LIMIT_S = 3600


DAEMON_LOG = "run/naro/naro_algo.log"  # under the root


class Failed(Exception):
    """A scene could not be played to its end, or not without losing frames."""


def settings_of(level):
    """The configuration service's keys and values for (people, objects)."""
    people, objects = level
    return {"people_sensitivity": str(people), "motion_region": str(objects + 1)}


class NotSet(Failed):
    """The daemon did not follow the settings."""


def level_of(log):
    """The (people, objects) at which a daemon ended, as its log tells; its own where it was told nothing."""
    told = [re.findall(rf"{name} mode  = (-?\d+)", log) for name in
            ("mid_hchd_people_sensitivity_set", r"\bmid_hchd_sensitivity_set")]
    return tuple(int(values[-1]) if values else own for values, own in zip(told, DEFAULT_LEVEL))


def network_apart():
    """How a command is started in a network of its own, where the command socket's name is free: [] if it cannot be."""
    for prefix in (["unshare", "-n"], ["unshare", "-rn"]):
        try:
            if subprocess.run([*prefix, "true"], capture_output=True, timeout=60).returncode == 0:
                return prefix
        except (OSError, subprocess.TimeoutExpired):
            pass
    return []


class Player:
    """Plays scenes with the programs in the folder `programs`."""

    def __init__(self, programs):
        self.camera = os.path.join(programs, "naro_camera")
        try:
            self.options = subprocess.run([self.camera, "--help"], capture_output=True, text=True, timeout=60).stdout
        except OSError as problem:
            raise Failed(f"{self.camera}: {problem.strerror}; build it first (./run --build-only)") from None
        self.prefix = network_apart()

    def knows(self, option):
        return f" {option} " in self.options

    def play(self, source, level, truth=None, frames=None, seconds=None, record=None):
        """Plays a source to its end: (events, summary). The camera writes the truth and the pictures that it sends into
        the files of these names."""
        command = [*self.prefix, self.camera, "--source", source, "--fast", "--headless", "--json"]
        for option, value in (("--truth", truth), ("--frames", frames), ("--record", record), ("--seconds", seconds)):
            if value is not None:
                command += [option, str(value)]
        for key, value in settings_of(level).items():
            command += ["--set", f"{key}={value}"]
        with tempfile.TemporaryDirectory(prefix="naro-score-") as root:
            try:
                done = subprocess.run(command, env={**os.environ, "NARO_ROOT": root}, stdin=subprocess.DEVNULL,
                                      capture_output=True, text=True, timeout=LIMIT_S)
            except subprocess.TimeoutExpired:
                raise Failed(f"{source}: not over after {LIMIT_S} s") from None
            log = read_text(os.path.join(root, DAEMON_LOG))
        if done.returncode != 0:
            raise Failed(f"{source}: {done.stderr.strip().splitlines()[-1] if done.stderr.strip() else done.returncode}")
        if level_of(log) != level:
            raise NotSet(f"{source}: the daemon did not follow the settings people {level[0]}, objects {level[1]}")
        lines = [json.loads(line) for line in done.stdout.splitlines() if line.startswith("{")]
        summary = next((line["summary"] for line in lines if "summary" in line), None)
        if summary is None:
            raise Failed(f"{source}: the camera gave no summary")
        counts, restarts = summary["frames"], summary["daemon"]["restarts"]
        if counts["dropped"] or counts["compared"] != 1 or restarts:
            raise Failed(f"{source}: {counts['dropped']} frames dropped, the daemon started again {restarts} times")
        return [line for line in lines if "event" in line], summary


def read_text(path):
    """What a file says, "" when it is not there."""
    try:
        with open(path, encoding="utf-8", errors="replace") as file:
            return file.read()
    except FileNotFoundError:
        return ""


def read_lines(path):
    """The JSON lines of a file."""
    with open(path, encoding="utf-8") as file:
        return [json.loads(line) for line in file if line.strip()]


def digest(path):
    """What the pictures of a file are known by."""
    with open(path, "rb") as file:
        return hashlib.file_digest(file, "sha256").hexdigest() if hasattr(hashlib, "file_digest") else \
            hashlib.sha256(file.read()).hexdigest()
