"""One picture of the moments at which something failed: of each scene that failed, the recording's frame with truth, boxes
and events drawn in, and below it what went wrong."""
import os
import shutil
import subprocess
import tempfile

from . import board, play

COLUMNS, MOST = 3, 12
WIDTH = 426
CAPTION = "drawbox=y=ih-38:h=38:color=black@0.62:t=fill,drawtext=textfile={file}:expansion=none:fontcolor=white:" \
          "fontsize=13:line_spacing=4:x=8:y=h-32"


def chosen(scenes):
    """At most one moment for each scene, those where a person was missed first: [(scene, seconds, text)]."""
    moments = {}
    for name, time, text in board.failures(scenes):
        if time is not None and name not in moments:
            moments[name] = (name, time, text)
    ranked = sorted(moments.values(), key=lambda m: (not m[2].startswith("a person missed"), "people" not in m[2],
                                                     "person" not in m[2], m[0]))
    return ranked[:MOST]


def wrapped(text, width=58):
    return text if len(text) <= width else text[:width - 1] + "\u2026"


def still(player, folder, number, moment):
    """Records the scene up to the moment and takes that frame out: its file."""
    name, time, text = moment
    record = os.path.join(folder, f"record{number}")
    os.mkdir(record)
    player.play(f"scene:{name}", play.DEFAULT_LEVEL, record=record, seconds=time + 0.4)
    caption, picture = os.path.join(folder, f"{number}.txt"), os.path.join(folder, f"{number:02}.png")
    with open(caption, "w", encoding="utf-8") as file:
        file.write(f"{name}, {board.at(time)}\n{wrapped(text)}")
    subprocess.run(["ffmpeg", "-v", "error", "-y", "-i", f"{record}/video.mp4", "-ss", f"{max(0, time - 0.05):.3f}",
                    "-frames:v", "1", "-vf", f"scale={WIDTH}:-2," + CAPTION.format(file=caption), picture], check=True)
    shutil.rmtree(record)
    return picture


def make(player, scenes, path, say):
    """Writes the picture and returns its file name; None when nothing failed or there is no ffmpeg."""
    moments = chosen(scenes)
    if not moments or not shutil.which("ffmpeg"):
        if os.path.exists(path):
            os.unlink(path)
        return None
    with tempfile.TemporaryDirectory(prefix="naro-score-") as folder:
        made = []
        for number, moment in enumerate(moments):
            try:
                made.append(still(player, folder, number, moment))
            except (play.Failed, subprocess.CalledProcessError) as problem:
                say(f"no picture of {moment[0]}: {problem}")
        if not made:
            return None
        rows = -(-len(made) // COLUMNS)
        listing = os.path.join(folder, "list.txt")
        with open(listing, "w", encoding="utf-8") as file:
            file.writelines(f"file '{picture}'\n" for picture in made)
        subprocess.run(["ffmpeg", "-v", "error", "-y", "-f", "concat", "-safe", "0", "-i", listing, "-vf",
                        f"tile={min(COLUMNS, len(made))}x{rows}:padding=4:color=white", "-frames:v", "1", "-q:v", "3", path],
                       check=True)
    say(f"wrote {os.path.relpath(path)}")
    return os.path.basename(path)
