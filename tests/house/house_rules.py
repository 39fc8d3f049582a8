#!/usr/bin/env python3
"""House rules that a program can check, over the files that git tracks: layout, who includes whom, calls that must go
through a seam, run bits. usage: house_rules.py TOP RULE"""
import os
import re
import subprocess
import sys

TOP, RULE = sys.argv[1:3]


def tracked(*patterns):
    out = subprocess.run(["git", "-C", TOP, "ls-files", "-z", "--", *patterns], capture_output=True, check=True)
    return [f for f in out.stdout.decode().split("\0") if f and os.path.exists(f"{TOP}/{f}")]


def skip(reason):
    print(f"SKIPPED: {reason}")
    sys.exit(0)


def code_lines(path):
    """(number, line) with comments and texts taken out, so that only code is judged."""
    text = open(f"{TOP}/{path}", encoding="utf-8").read()
    blank = lambda m: re.sub(r"[^\n]", " ", m.group(0))
    text = re.sub(r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"', lambda m: m.group(0) if "#include" in text[
        text.rfind("\n", 0, m.start()) + 1:m.start()] else blank(m), text, flags=re.S)
    return list(enumerate(text.split("\n"), 1))


def layout():
    tool = os.environ.get("NARO_CLANG_FORMAT", "")
    if not tool:
        skip("clang-format 14 is not here (./test brings it)")
    files = tracked("*.cpp", "*.h")
    bad = []
    for f in files:
        r = subprocess.run([tool, "--dry-run", "-Werror", "--style=file", f], cwd=TOP, capture_output=True, text=True)
        if r.returncode:
            bad.append(f"{f}: not laid out as .clang-format says: clang-format -i {f}")
    return bad


# Which folder may include headers of which: the platform's interfaces know nothing of the daemon, the daemon knows
# the platform by its interfaces only, and nobody but tests and measurements looks into a program from outside.
FOLDERS = ["include", "src", "platform/include", "platform/host", "camera", "tools"]
MAY = {
    "include": {"include"},
    "platform/include": {"platform/include"},
    "platform/host": {"platform/host", "platform/include"},
    "src": {"src", "include", "platform/include"},
    "camera": {"camera", "include", "platform/include"},
    "tools": {"tools", "camera", "src", "include", "platform/include"},
}


def includes():
    home = {}
    for folder in FOLDERS:
        for f in tracked(f"{folder}/**/*.h", f"{folder}/*.h"):
            home.setdefault(os.path.basename(f), set()).add(folder)
    bad = []
    for folder, allowed in MAY.items():
        for f in tracked(f"{folder}/**", f"{folder}/*"):
            if not f.endswith((".cpp", ".h")):
                continue
            for number, line in enumerate(open(f"{TOP}/{f}", encoding="utf-8"), 1):
                m = re.match(r'\s*#\s*include\s+"([^"]+)"', line)
                where = home.get(os.path.basename(m.group(1)), set()) if m else set()
                if where and not where & allowed:
                    bad.append(f"{f}:{number}: {folder} may not include {m.group(1)} of {', '.join(sorted(where))}")
    return bad


# Calls in the daemon that go round a seam, and what to call instead.
FORBIDDEN = {
    r"\b(usleep|nanosleep|sleep|clock_nanosleep)\s*\(": "naro_clock_sleep_ms",
    r"\b(clock_gettime|gettimeofday|time)\s*\(": "the clock seam of naro_util.h",
    r"(?<![\w.>:])(open|fopen|opendir|access|mkdir|unlink)\s*\(": "the naro_ call of the same name",
    r"\b(strcpy|strcat|sprintf|vsprintf|gets)\s*\(": "a call that knows the size",
    r"^\s*class\s+\w+": "free functions over one static state",
    r"#\s*ifdef\s+__(linux|ANDROID|arm|x86)": "a platform folder: no platform switches in modules",
}


def calls():
    bad = []
    for f in tracked("src/*.cpp", "src/*.h", "src/nn/*"):
        for number, line in code_lines(f):
            for pattern, instead in FORBIDDEN.items():
                if re.search(pattern, line):
                    bad.append(f"{f}:{number}: {line.strip()[:80]} -- use {instead}")
    return bad


def shape():
    bad = []
    for f in ("run", "test", ".ci/run", "bench/run", "cmake/build_ncnn.sh"):
        if os.path.exists(f"{TOP}/{f}") and not os.access(f"{TOP}/{f}", os.X_OK):
            bad.append(f"{f}: has no run bit")
    for f in tracked("*.cpp", "*.h", "*.py", "*.md", "*.sh", "*.txt", "run", "test"):
        if f.startswith("tests/fuzz/corpus/"):
            continue
        data = open(f"{TOP}/{f}", "rb").read()
        if data and not data.endswith(b"\n"):
            bad.append(f"{f}: the last line has no end")
        for number, line in enumerate(data.split(b"\n"), 1):
            if line.endswith((b" ", b"\t")):
                bad.append(f"{f}:{number}: blanks at the end of the line")
    for f in tracked("src/*.h", "src/nn/*.h", "include/*.h", "platform/include/*.h"):
        if not open(f"{TOP}/{f}", encoding="utf-8").read().startswith("//"):
            bad.append(f"{f}: a header opens with what it is for")
    return bad


if subprocess.run(["git", "-C", TOP, "rev-parse"], capture_output=True).returncode:
    skip("not a git checkout: the rules look at tracked files")
problems = {"layout": layout, "includes": includes, "calls": calls, "shape": shape}[RULE]()
print("\n".join(problems) if problems else "fine")
sys.exit(1 if problems else 0)
