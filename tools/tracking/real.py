"""The same figures of the real thing: camera, daemon and motor as processes, at the pace of a camera."""
import json
import os
import re
import subprocess
import tempfile

ALONE = ["unshare", "-rni"]  # the command socket's name and the mailbox's key are the machine's


def play(bin_folder, scene):
    """Plays a scene once and returns its lines, as the simulation would write them; of the motion rectangles only whether
    there was one is known."""
    with tempfile.TemporaryDirectory(prefix="naro-track-") as root:
        truth = f"{root}/truth.jsonl"
        done = subprocess.run([*ALONE, f"{bin_folder}/naro_camera", "--source", f"scene:{scene}", "--json", "--set",
                               "track_switch=on", "--truth", truth], env={**os.environ, "NARO_ROOT": root},
                              stdout=subprocess.PIPE, check=True)
        events = [json.loads(line) for line in done.stdout.decode().splitlines()]
        moments = [json.loads(line) for line in open(truth, encoding="utf-8")]
        daemon = open(f"{root}/run/naro/naro_algo.log", encoding="utf-8", errors="replace").read()
        motor = open(f"{root}/run/naro/naro_motor.log", encoding="utf-8").read()
    return lines(events, moments, daemon, motor)


def lines(events, moments, daemon, motor):
    moved = {event["time_ms"] for event in events if event.get("event") in ("PeopleMotion", "ObjectMotion")}
    result = []
    for moment in moments:
        ms = round(moment["time"] * 1000)
        frame = {"frame": moment["number"], "t": ms, "pan": moment["pan"], "tilt": moment["tilt"],
                 "view_moves": moment["view_moves"], "busy": False}
        if ms in moved:
            frame.update(motion=None, whole=False)
        if moment["actors"]:
            target = moment["actors"][0]
            frame["target"] = {key: target[key] for key in ("box", "visible", "distance", "moves", "doing")}
        result.append(frame)
    return result, {"requests": len(re.findall(r"\[motion_track\] \[", daemon)),
                    "spacing": daemon.count("motor is alerady running"),
                    "drops": daemon.count("motor is already running drop this frame"),
                    "moves": [(float(t), [int(h), int(v)]) for t, h, v in
                              re.findall(r"^(\d+) \[(-?\d+),(-?\d+),-?\d+\]: .* ms$", motor, re.M)]}
