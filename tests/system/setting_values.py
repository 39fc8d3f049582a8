#!/usr/bin/env python3
"""Every setting with every interesting value, on the running daemon: what must be seen from outside, to the letter, and
what is seen. The table is kept as docs/setting-values.md, and the test fails where that page is no longer what was seen.

usage: setting_values.py BIN_DIR [--update-docs]

What must be seen is written down here from what each setting means, value by value; nothing of it is computed by the
daemon's own code. After each set comes another one that means nothing ("face_detect" "off"): settings are told in order,
one at a time, so when the daemon has logged that one, it is done with the one before."""
import ctypes
import itertools
import os
import re
import struct
import sys
import threading

UPDATE = "--update-docs" in sys.argv
if UPDATE:
    sys.argv.remove("--update-docs")

from naro_system import *

PAGE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "docs", "setting-values.md")


# ---- Values -----------------------------------------------------------------------------------------------------------

class Value:
    """What is set: the words for the setter, the text as it arrives, and how a page calls it."""

    def __init__(self, given, shown=None, kind="text"):
        self.text = given if isinstance(given, bytes) else str(given).encode()
        self.words = f"text {{}} {self.text.hex() or '-'}" if kind == "text" else f"{kind} {{}} {given}"
        self.shown = shown or (code(self.text) if kind == "text" else f"{code(self.text)} as {KINDS[kind]}")


KINDS = {"int": "a number of 32 bits", "uint64": "a number of 64 bits"}


def number(given, kind="int"):
    return Value(given, kind=kind)


def code(text):
    """Text for a page; what cannot be seen is written as a C literal would be."""
    shown = "".join({"\r": "\\r", "\n": "\\n", "|": "\\|"}.get(c, c if 32 <= ord(c) < 127 else f"\\x{ord(c):02x}")
                    for c in text.decode("latin-1"))
    shown = re.sub(r"((-?\d),)(\2,){4,}", r"\1...,\1", shown)
    return f"`{shown}`" if "`" not in shown else f"`` {shown} ``"


HUGE = Value(b"x" * 65535, "65,535 bytes of `x`")
BEYOND = Value(b"x" * 65536, "65,536 bytes of `x`: the store refuses it")
# What nobody should send, and somebody will.
STRANGE = [
    Value("", "nothing"),
    Value(" "),
    Value("null"),
    Value('{"value":1}'),
    Value("a\"b'c\\"),
    Value("%s%n%d%99999d"),
    Value("x\r\n2026-01-31 07:05:09.042 err     [forged] line\n"),
    Value(bytes(range(1, 256)), "every byte from 1 to 255"),
    HUGE,
    number(-2147483648),
    number(18446744073709551615, "uint64"),
]


def some(*texts):
    return [text if isinstance(text, Value) else Value(text) for text in texts]


# ---- What is seen -----------------------------------------------------------------------------------------------------

class Effect:
    """One thing that must be seen: of a kind, in its kind's order."""

    def __init__(self, kind, what, words):
        self.kind, self.what, self.words = kind, what, words


def logged(level, text):
    """A log line; '#' stands for a line number of the source."""
    text = text if isinstance(text, bytes) else text.encode()
    shown = text if len(text) < 150 else text[:40] + b"..." + text[-40:]
    return Effect("log", b"%-7s " % level.encode() + text + (b"" if text.endswith(b"\n") else b"\n"),
                  ("error " if level == "err" else "") + code(shown))


def info(text):
    return logged("info", text)


def err(text):
    return logged("err", text)


def told(text):
    """A line on the error stream that does not go through the log."""
    return Effect("log", text.encode(), code(text.encode()))


def printed(text):
    return Effect("print", text.encode(), "printed " + code(text.encode()))


def command(name, payload=b""):
    return Effect("command", (name, payload), f"command `{name}`" + "".join(f" {byte}" for byte in payload[:1]))


def board(place, *contents):
    """Writes to a file of the board; None: whichever of two that are too close to be told apart."""
    return [Effect("board", (place, text), f"{place} = {text}" if text else f"{place} written") for text in contents]


def thread(change):
    return Effect("thread", change, f"thread {code(change.encode())}")


def event(name):
    return Effect("event", name, f"event `{name}`")


def flat(effects):
    for effect in effects:
        if isinstance(effect, Effect):
            yield effect
        else:
            yield from flat(effect)


# ---- What each key means ----------------------------------------------------------------------------------------------

# The name by which each key's lines begin.
CALLBACKS = {"motion_region": "notify_cb_motion_region", "night_mode": "notify_cb_night_mode",
             "full_color": "notify_cb_fullcolor", "wdr": "notify_cb_wdr_mode", "hdr_switch": "notify_cb_hdr_mode",
             "power": "notify_cb_power_mode", "people_sensitivity": "notify_cb_people_sensitivity",
             "alarm_event": "notify_cb_alarm_event", "people_region_detect": "notify_cb_people_region_detect",
             "track_switch": "notify_cb_track_mode", "sdcard_rw": "notify_cb_sdcard_rw",
             "face_detect": "notify_cb_AI_detect", "human_detect": "notify_cb_AI_detect",
             "baby_cry_detect": "notify_cb_AI_detect", "motor": "notify_cb_motor", "fav_area_rect": "notify_cb_fav_area"}
# The others are in "nvram".
LAYERS = dict.fromkeys(("people_sensitivity", "alarm_event", "people_region_detect", "track_switch", "sdcard_rw",
                        "face_detect", "human_detect", "baby_cry_detect", "fav_area_rect"), "mem")


def first_lines(key, value):
    """What is logged of every set, before anything comes of it."""
    name = CALLBACKS[key]
    if key == "fav_area_rect":
        return [info(f"[{name}] \r\n"), info(b"key=%s value=%s\r\n" % (key.encode(), value.text))]
    lines = [info(f"[{name}]\r\n"), info(b"[key=%s][value=%s]\r\n" % (key.encode(), value.text))]
    if key == "motion_region":
        lines.insert(1, info(f"[{name}]################stat=0\r\n"))
        lines.append(info(f"[{name}]motion_region length = {len(value.text)}\n"))
    return lines


def with_value(before, value, after):
    """An error line that repeats the value, which the page does not."""
    line = err(before.encode() + value.text + after.encode())
    line.words = err(f"{before}VALUE{after}").words
    return line


def not_understood(key, value):
    return with_value(f"[{CALLBACKS[key]}] {key} = ", value, " is not understood, nothing changes\n")


def not_supported(key, word, value):
    return with_value(f"[{CALLBACKS[key]}] not support {word} = ", value, "\n")


def as_before(effects):
    """What the page need not tell again."""
    return [Effect(effect.kind, effect.what, "") for effect in flat([effects])]


class Row:
    """A set, and what must be seen of it."""

    def __init__(self, key, value, *effects, level=None, before=None, printed_before=0, stored=True, also=None):
        self.key, self.value = key, value if isinstance(value, Value) else Value(value)
        self.effects = list(flat(effects))
        self.level = level    # how easily motion must be seen from then on: 0 to 2
        self.before, self.printed_before = before, printed_before  # another set first, of which this is printed
        self.stored = stored
        self.also = also  # (words, what tries it out): what else must be so from then on
        self.seen = None


def motion_region_rows():
    key = "motion_region"
    for level, values in ((0, ("1", "20", "40")), (1, ("2", "60")), (2, ("3", "80", "100"))):
        for text in values:
            yield Row(key, text, printed(f"mid_hchd_sensitivity_set mode  = {level}"), level=level)
    for level, value in ((1, Value(" 60")), (0, Value("+20")), (1, Value("60%")), (2, number(3)),
                         (0, number(40, "uint64")), (1, number(2))):
        yield Row(key, value, printed(f"mid_hchd_sensitivity_set mode  = {level}"), level=level)
    # A list is what is stored; as a change it is no number. 4294967297 is 1 only in 32 bits that wrap.
    others = some("0", "4", "19", "21", "39", "41", "50", "59", "61", "79", "81", "99", "101", "-1", "0x3", "4294967297",
                  "99999999999999999999", "[" + ",".join("3" * 32) + "]")
    for value in others + STRANGE:
        yield Row(key, value, not_understood(key, value), level=1 if value.text in (b"50", b"") else None)


def night_mode_rows():
    """While day and night have not been started: the digit is understood, and told that it is too early."""
    key, early = "night_mode", info("[ircut_mode_switch] ircut not inited\n")
    for value in some("0", "1", "2", "3", "4", "5", "6", "12", "3x", number(4), number(18446744073709551615, "uint64")):
        yield Row(key, value, early)
    for value in some("7", "8", "9"):
        yield Row(key, value, not_understood(key, value), early)
    for value in some("x", "-1", " 1", '"1"') + STRANGE:
        if not value.text[:1].isdigit():
            yield Row(key, value, not_understood(key, value))


def full_color_rows():
    """By the beginning of the text. It only shows in the lines of the day, which come every 30 s."""
    key = "full_color"
    for text in ("on", "off", "only", "on ", "offset"):
        yield Row(key, text)
    for value in some("o", "of", "ON", "Off", " on", "1", "true", number(1)) + STRANGE:
        yield Row(key, value, not_understood(key, value))


def wdr_rows():
    key = "wdr"
    for text, word, name in (("on", "ON", "naro_isp_wdr_enable"), ("off", "OFF", "naro_isp_wdr_disable")) * 2:
        yield Row(key, text, info(f"[wdr_mode_switch] NARO_ISP_WDR_MODE_{word}\n"), command(name))
    yield Row(key, "off", info("[wdr_mode_switch] NARO_ISP_WDR_MODE_OFF\n"), command("naro_isp_wdr_disable"))
    for value in some("o", "on ", "only", "offset", "ON", "Off", "1", "2", number(2)) + STRANGE:
        yield Row(key, value, not_supported(key, "wdr_mode", value))


def hdr_rows():
    """A word that the colour watcher looks at, which nothing starts: nothing is seen of it."""
    key = "hdr_switch"
    for text in ("on", "off"):
        yield Row(key, text)
    for value in some("o", "on ", "only", "offset", "ON", "1", number(1)) + STRANGE:
        yield Row(key, value, not_supported(key, "wdr_mode", value))


def power_rows():
    """What does not switch on; see the rows of the day for what does."""
    key = "power"
    yield Row(key, "off")
    for value in some("o", "on ", "only", "offset", "ON", "1", number(1)) + STRANGE:
        yield Row(key, value, not_supported(key, "power_mode", value))


def people_sensitivity_rows():
    """Which people are then seen is looked at in `tests/system/setting_people.py`."""
    key = "people_sensitivity"

    def told_to_detection(level):
        return info(f"mid_hchd_people_sensitivity_set mode  = {level}\n")

    for text, level in (("1", 1), ("2", 2), ("3", 3), ("4", 4), ("5", 5), (" 4", 4), ("2.9", 2), ("5x", 5), ("+1", 1),
                        ("03", 3)):
        yield Row(key, text, told_to_detection(level))
    for value in (number(2), number(4, "uint64")):
        yield Row(key, value, told_to_detection(int(value.text)))
    # Detection takes no other level, and says what it was given.
    others = [(Value("0"), 0), (Value("6"), 6), (Value("-1"), -1), (Value("on"), 0), (Value("2147483648"), 2147483647),
              (Value("4294967299"), 2147483647), (Value("-99999999999999999999"), -2147483648)]
    others += [(value, {b"-": -2147483648, b"1": 2147483647}.get(value.text[:1], 0)) for value in STRANGE]
    for value, level in others:
        yield Row(key, value, not_understood(key, value), told_to_detection(level))


def alarm_asked():
    return info("[set_white_led_alarm_info #] alarm_flag:1 ")


def alarm_event_rows():
    """Every text is three numbers. While day and night have not been started nobody serves it."""
    key = "alarm_event"
    for value in some("1-0-30", "1-1-5", "1-2-5", "7-1-5-9", "1-1", "1", "-4--5", "-", "---", number(5)) + STRANGE:
        yield Row(key, value, alarm_asked())


def people_region_rows():
    """Every text is four numbers, left, top, right, bottom, in 1/10000 of 320 x 192 pixels. Which people are then seen is
    looked at in `tests/system/setting_people.py`."""
    key = "people_region_detect"

    def region(value, numbers, pixels, holds_something):
        lines = [info("(x,y,w,h): " + "-".join(map(str, numbers))),
                 info("[set_mid_people_region 97] perople_region:[" + "-".join(map(str, pixels)) + "]")]
        if not holds_something:
            lines.append(err("[set_mid_people_region] the people region holds no pair of pixels inside the frame; "
                             "the old one stays\n"))
        return Row(key, value, lines)

    for text, numbers, pixels in (
            ("0-0-10000-10000", (0, 0, 10000, 10000), (0, 0, 320, 192)),
            ("0-0-5000-10000", (0, 0, 5000, 10000), (0, 0, 160, 192)),
            ("2500-2500-7500-7500", (2500, 2500, 7500, 7500), (80, 48, 240, 144)),
            ("0-0-32-53", (0, 0, 32, 53), (0, 0, 1, 1)),
            ("-9-0-20000-20000", (-9, 0, 20000, 20000), (0, 0, 640, 384)),
            ("-100--100-10000-10000", (-100, -100, 10000, 10000), (-3, -1, 320, 192)),
            ("0- 0-10000-10000px", (0, 0, 10000, 10000), (0, 0, 320, 192))):
        yield region(text, numbers, pixels, True)
    for text, numbers, pixels in (
            ("10-20-30-40", (10, 20, 30, 40), (0, 0, 0, 0)),
            ("0-0-31-53", (0, 0, 31, 53), (0, 0, 0, 1)),
            ("0-0-32-52", (0, 0, 32, 52), (0, 0, 1, 0)),
            ("10000-10000-0-0", (10000, 10000, 0, 0), (320, 192, 0, 0)),
            ("9-9-9", (9, 9, 9, 0), (0, 0, 0, 0)),
            ("100 -100-9999-9999", (100, 0, 0, 0), (3, 0, 0, 0)),
            ("0-0-99999999999-0", (0, 0, 2147483647, 0), (0, 0, 68719476, 0))):
        yield region(text, numbers, pixels, False)
    for value in STRANGE:
        x = {b"-": -2147483648, b"1": 2147483647}.get(value.text[:1], 0)
        yield region(value, (x, 0, 0, 0), ({0: 0, 2147483647: 68719476, -2147483648: -68719476}[x], 0, 0, 0), False)
    yield region("0-0-10000-10000", (0, 0, 10000, 10000), (0, 0, 320, 192), True)


def track_switch_rows():
    """Only a change does something. "mailbox" is the shared memory by which the motor's process is reached."""
    key = "track_switch"
    threads_on, threads_off = ([thread(sign + name) for name in ("motion_track_ta", "motor_rotate")] for sign in "+-")
    yield Row(key, "off")
    for _ in range(2):
        yield Row(key, "on", info("start motion_task thread\n"), info("create motor_rotate_task_thread\n"), threads_on,
                  also=("the mailbox is there, 60 bytes", SettingValues.mailbox_is_there))
        yield Row(key, "on")
        yield Row(key, "off", info("stop motion_task thread\n"), info("algo_shm_fini\n"), info("shmdt success\n"),
                  threads_off)
    yield Row(key, "off")
    for value in some("o", "on ", "only", "offset", "ON", "1", number(1)) + STRANGE:
        yield Row(key, value, not_supported(key, "track_mode", value))


def detect_rows(key):
    """By the beginning of the text. Once on, it is never off again."""
    for text in ("off", "on", "off", "only", "offset"):
        yield Row(key, text)
    for value in some("o", "of", "ON", " on", "1", number(1)) + STRANGE:
        yield Row(key, value, not_understood(key, value))


def card_and_sound_rows():
    """What is recorded on the card: motion, 32 bytes behind the 128 of a new file, and a loud sound where
    "baby_cry_detect" is on, 32 bytes."""
    def recorded(what, size):
        return (f"{what}: the hour's file has {size} bytes" if size else f"{what}: there is no file",
                lambda test: test.show(what, size))

    yield Row("sdcard_rw", "ro", also=recorded("motion", 0))
    for value in some("rdw", " rdwr", "RDWR", "on", number(1)) + STRANGE:
        yield Row("sdcard_rw", value)
    yield Row("sdcard_rw", "x", also=recorded("motion", 0))
    yield Row("sdcard_rw", "rdwr", also=recorded("motion", 160))
    yield Row("baby_cry_detect", "off", also=recorded("a sound", 160))
    yield Row("baby_cry_detect", "on", also=recorded("a sound", 192))
    yield Row("baby_cry_detect", "off")
    yield Row("sdcard_rw", "rdonly", also=recorded("a sound", 192))
    yield Row("sdcard_rw", "rdwr,noatime")
    yield Row("sdcard_rw", "")


def motor_rows():
    """Every text is two numbers, in brackets; the second is shown in the lines of the night, see there."""
    for value in some("[0,0]", "[12,-34]", "[5", "[5]", "5,6", "[ 5, 6]", "[1,99999999999]", number(5)) + STRANGE:
        yield Row("motor", value)


def fav_area_rows():
    """Regions, each with ten lines of the ten places before anything is done about it."""
    key = "fav_area_rect"
    right = info(" json format is right \n")

    def region(x1=1, y1=2, x2=30, y2=40, name="door", kind="enter"):
        return f'{{"x1":{x1},"y1":{y1},"x2":{x2},"y2":{y2},"roi_name":"{name}","event_type":"{kind}"}}'

    def told_of(area):
        return info("cb:{} {} {} {} name={} event_type = {} \n".format(*area))

    def table(areas):
        """The table as it was before."""
        lines = [info(f" used_num = {len(areas)} , pro = 0.100000 \n")]
        for place in range(10):
            x1, y1, x2, y2, name, _ = areas[place] if place < len(areas) else (0, 0, 0, 0, "", "")
            lines += as_before(info(f"[area {place}] {x1} {y1} {x2}  {y2} name={name} \n "))
        return lines

    def length(count):
        return info(f"j->array = {count} \n")

    def added(count):
        """With the texts of the place behind, which is empty."""
        return info(f"set fav_area_algo.used_num={count},name=,event_type=\n")

    yield Row(key, "[]", right, length(0))
    door = (1, 2, 30, 40, "door", "enter")
    yield Row(key, f"[{region()}]", right, length(1), told_of(door), table([]), added(1))
    moved = (5, 6, 7, 8, "door", "enter")
    yield Row(key, f"[{region(5, 6, 7, 8)}]", right, length(1), told_of(moved), table([door]))
    # The beginning of a name means the area, too.
    beginning = (9, 9, 9, 9, "do", "en")
    yield Row(key, f"[{region(9, 9, 9, 9, 'do', 'en')}]", right, length(1), told_of(beginning), table([moved]))
    areas = [(9, 9, 9, 9, "door", "en")]
    bed = (-1, 2147483647, 12, 0, "bed", "leave")
    yield Row(key, f"[{region(-1, 2147483647, 12.9, 99999999999, 'bed', 'leave')}, null, {region()}]", right, length(3),
              told_of(bed), table(areas), added(2), err(" temp NULL \n"))
    areas.append(bed)
    long_name = "n" * 31, "t" * 31
    yield Row(key, f"[{region(1, 1, 1, 1, 'n' * 40, 't' * 40)}]", right, length(1), told_of((1, 1, 1, 1, *long_name)),
              table(areas), added(3))
    areas.append((1, 1, 1, 1, *long_name))
    # When one is deleted the others move up, and its place is looked at once more.
    nothing = (0, 0, 0, 0)
    before = table(areas)[:2]
    areas.pop(0)
    yield Row(key, f"[{region(*nothing, 'door', 'en')}]", right, length(1), told_of((*nothing, "door", "en")), before,
              table(areas)[1:], printed(" delete this fav area  index = 0 "))
    yield Row(key, f"[{region(*nothing, 'new', 'x')}]", right, length(1), told_of((*nothing, "new", "x")), table(areas),
              printed(" coor both 0 "))
    more = [(n, n, n, n, f"area{n}", "x") for n in range(1, 10)]
    lines = []
    for n, area in enumerate(more):
        lines += [told_of(area), table(areas + more[:n])]
        lines += [added(n + 3)] if n < 8 else [printed(" used_num is more than fav_area_algo_NUM ,discard it")]
    yield Row(key, Value("[" + ",".join(region(*area) for area in more) + "]", "nine more areas"), right, length(9), lines)
    areas += more[:8]
    yield Row(key, "[{}]", right, length(1), told_of((*nothing, "", "")), table(areas)[:1], printed(" input param is invalid "))
    # A space is left over from the line before.
    yield Row(key, '[7,{"x1":"9","roi_name":5}]', right, length(2),
              [told_of((*nothing, "", "")), table(areas)[:1]] * 2,
              printed("  input param is invalid "), printed("  input param is invalid "))
    for value in some('{"x1":1}', '"text"', "5", "true", number(5), number(18446744073709551615, "uint64"),
                      '{"value":1}', number(-2147483648)):
        yield Row(key, value, right, not_understood(key, value))
    for value in some("[{", "[1 2]", Value(b"[" * 65535, "65,535 bytes of `[`")) + STRANGE:
        if value.text[:1] not in b"{-1" or not value.text:
            yield Row(key, value, err(" json_verify fail\n"))


# ---- Power, and what it starts ----------------------------------------------------------------------------------------

DAY, NIGHT = b"\0\0\0\0", b"\1\0\0\0"
MODE_SET = "naro_isp_daynight_mode_set"
ONES = "".join("1," for _ in range(32))


def infrared(duty, switched=None):
    """The infrared light's channel is set to a duty, and switched where it must be."""
    return [info(f"[_infrared_drv]pwm_duty({duty})\n"), told(f"[_mstar_pwm_duty] pwm duty={duty}\n"),
            board("pwm4 duty_cycle", str(duty)),
            [info(f"[_mstar_pwm_duty]{switched} pwm\n"), board("pwm4 enable", "1" if switched == "enable" else "0")]
            if switched else []]


DAY_PULSE, NIGHT_PULSE = board("gpio79", "1", "0"), board("gpio78", "1", "0")
STAMP = [printed("X_TYPE_UINT64 = #"), info("[kv_client_set_kv]set value=time_night.............\r\n")]


# What power says of what is not stored, in its order.
NOT_STORED = {"motion_region": [err("[sync_cb_motion_region] get faild: set motion region sensitive middle\n"),
                                info(f"[sync_cb_motion_region] motion_region=[{ONES}]\n")],
              "wdr": err("[sync_cb_wdr_mode] get faild: set wdr mode off\n"),
              "night_mode": err("[sync_cb_night_mode] get faild: set ircut mode auto\n"),
              "full_color": err("[sync_cb_fullcolor] get faild: set fullcolor on\n")}


def stored_lines(**lines):
    """What power says and does with what is stored: of each, what is handed in, or its default."""
    return [lines.get(name, default) for name, default in NOT_STORED.items()] + \
        [info("[ircut_config_init] NARO_ALGO_MSTAR\n")]


def stored_night_mode(text):
    return info(f"[sync_cb_night_mode] night_mode = {text}\n")


DRIVERS = [board("gpio export", "79"), board("gpio78 direction", "out"), board("gpio79 direction", "out"),
           board("pwm export", "6"), board("pwm4 period", "120000"), board("pwm4 enable", "0"),
           board("pwm6 period", "2000"), board("pwm6 enable", "0")]
DRIVERS_GONE = [board("gpio unexport", "79"), board("pwm4 enable", "0"), board("pwm unexport", "4")]
AGAIN = info("[ircut_init] already inited\n")


def fixed_day():
    return [STAMP, infrared(0), DAY_PULSE, command(MODE_SET, DAY)]


def fixed_night():
    return [STAMP, command(MODE_SET, NIGHT), NIGHT_PULSE, infrared(99, "enable")]


def motion_region_stored(value):
    return [info(b"[sync_cb_motion_region] motion_region = %s\n" % value.text),
            info(f"[sync_cb_motion_region] motion_region length = {len(value.text)}\n")]


def power_on_rows():
    """Power comes on: what is stored is applied, then day and night begin. From the third row on only the lines of the one
    setting are shown that was set before; the others come as they did, and day and night are there already."""
    yield Row("power", "on", stored_lines(), DRIVERS, info("[ircut_init]switch to ircut mode auto\n"),
              info("[ircut_init]force day\n"), infrared(0), DAY_PULSE, command(MODE_SET, DAY),
              info("[ircut_init]create ircut task...\n"), thread("+mstar_ircut_ctr"), thread("+white_led_statu"))
    yield Row("power", "on", stored_lines(), AGAIN)

    def with_stored(key, value, level=None, printed_before=0, **lines):
        lines = {name: lines[name] if name == key else as_before(lines.get(name, default))
                 for name, default in NOT_STORED.items()}
        return Row("power", Value("on", f"`on`; `{key}` is {value.shown}"), stored_lines(**lines), as_before(AGAIN),
                   [command({"on": "naro_isp_wdr_enable", "off": "naro_isp_wdr_disable"}[value.text.decode()])]
                   if key == "wdr" and value.text in (b"on", b"off") else [],
                   [printed(f"mid_hchd_sensitivity_set mode  = {level}")] if level is not None else [],
                   before=(key, value), printed_before=printed_before, level=level)

    # Of a list only its last digit counts, and of its four values only two say something.
    updated = "[sync_cb_motion_region] motion_area_update\n"
    for digit, level in (("0", None), ("1", 0), ("2", None), ("3", 1)):
        value = Value("[" + "1," * 31 + digit + "]")
        entries = "0," * 31 + f"{int(digit) - 1},"
        yield with_stored("motion_region", value, level, motion_region=[
            motion_region_stored(value), info(updated), info(f"[sync_cb_motion_region] motion_region=[{entries}]\n")])
    no_list = err("[sync_cb_motion_region] motion_region is no list of 32 digits from 0 to 3\n")
    broken = Value("[" + "1,3,4" + ",1" * 29 + "]", "`[1,3,4,1,...,1]`: the list ends before the 4")
    yield with_stored("motion_region", broken, 1, motion_region=[motion_region_stored(broken), no_list])
    for value in (Value("[" + "3," * 30 + "3]", "a list of 31 digits"), HUGE, Value("", "nothing")):
        yield with_stored("motion_region", value, motion_region=[motion_region_stored(value), no_list])
    level_again = Value("60", "`60`, as a change sets it")
    yield with_stored("motion_region", level_again, printed_before=1, motion_region=motion_region_stored(level_again))
    kept = motion_region_stored(level_again)

    for text, word in (("on", "ON"), ("off", "OFF")):
        yield with_stored("wdr", Value(text), motion_region=kept, wdr=[
            info(f"[sync_cb_wdr_mode] wdr_mode = {text}\n"), info(f"[wdr_mode_switch] NARO_ISP_WDR_MODE_{word}\n")])
    odd = [info("[sync_cb_wdr_mode] wdr_mode = on \n"), err("[sync_cb_wdr_mode] not support wdr_mode = on \n")]
    yield with_stored("wdr", Value("on "), motion_region=kept, wdr=odd)
    kept = {"motion_region": kept, "wdr": odd}

    for text in ("on", "offset"):
        yield with_stored("full_color", Value(text), **kept, full_color=info(f"[sync_cb_fullcolor] full_color = {text}\n"))
    odd = [info("[sync_cb_fullcolor] full_color = ON\n"), err("[sync_cb_fullcolor] not support full_color = ON\n")]
    yield with_stored("full_color", Value("ON"), **kept, full_color=odd)
    kept["full_color"] = odd

    # 0 is 5 from here on, which the rows of the day see: 5 is what runs already.
    yield with_stored("night_mode", Value("0"), **kept, night_mode=stored_night_mode("0"))
    yield with_stored("night_mode", Value("x"), **kept, night_mode=[
        stored_night_mode("x"), err("[sync_cb_night_mode] night_mode = x is not understood, nothing changes\n")])
    yield Row("power", "off")


def task_says(text):
    return info("[mstar_ircut_ctrl_smart:#]" + text)


def night_mode_running_rows():
    """Modes, one after the other, while day and night run; from mode 5 on."""
    key = "night_mode"
    day, night = (info(f"[ircut_mode_switch]switch to ircut mode {name}\n") for name in ("ady", "night"))
    white_out, infrared_out = board("gpio47", "0"), board("gpio45", "0")

    def automatic(mode):
        return [info(f"[ircut_mode_switch #] switch to ircut mode {mode} \n"),
                info("[ircut_mode_switch #] ircut task thread exist \n")]

    yield Row(key, "5", automatic(5))
    yield Row(key, "0", info("[ircut_mode_switch]switch to ircut mode auto\n"))
    yield Row(key, "1", day, fixed_day(), event("NightToDay"))
    for value in some("1", "12", "1 night", "1" + "0" * 65534, number(1), number(18446744073709551615, "uint64")):
        if len(value.text) > 1000:
            value.shown = "`1` and 65,534 bytes of `0`"
        yield Row(key, value, day)
    yield Row(key, "2", night, fixed_night(), event("DayToNight"))
    yield Row(key, "2", night)
    for value in some("7", "8", "9"):
        yield Row(key, value, not_understood(key, value))
    yield Row(key, "3", automatic(3), task_says(">>>change to  NARO_IRCUT_MODE_AUTO_NIGHT_DAY, force day "),
              command(MODE_SET, DAY), DAY_PULSE, infrared_out, white_out)
    yield Row("motor", Value("[12,-34]", "`motor` is `[12,-34]`"), also=("in the lines of the night `v_p=-34`",
                                                                         SettingValues.show_night))
    yield Row(key, "4", automatic(4), task_says(">>> change to  NARO_IRCUT_MODE_AUTO_FULL_COLOR,force day"), DAY_PULSE,
              infrared_out, command(MODE_SET, DAY))


def alarm_running_rows():
    """In mode 4, by day. A light that shines for no time is lit and out within a tick."""
    key = "alarm_event"
    yield Row(key, "1-0-1", alarm_asked(), board("gpio47", "1", "0"))
    yield Row(key, "1-1-2", alarm_asked(), board("gpio47", "1", "0", None, "0"))
    yield Row(key, "1-2-0", alarm_asked(), board("gpio47", "0"))
    for value in some("1-0-0", "x", HUGE, number(5)):
        yield Row(key, value, alarm_asked(), board("gpio47", None, "0"))
    day = info("[ircut_mode_switch]switch to ircut mode ady\n")
    yield Row("night_mode", "1", day, STAMP, infrared(0, "disable"), DAY_PULSE, command(MODE_SET, DAY),
              event("NightToDay"))
    yield Row(key, Value("1-0-0", "`1-0-0`; `night_mode` is `1`, in which it waits"), alarm_asked())
    # Lights off: the request is dropped, and every light kept out.
    yield Row("night_mode", Value("6", "`6`; an alarm waits"), info("[ircut_mode_switch #] switch to ircut mode 6 \n"),
              info("[ircut_mode_switch #] ircut task thread exist \n"), board("gpio47", "0"), board("gpio45", "0"))
    yield Row("night_mode", "5", info("[ircut_mode_switch #] switch to ircut mode 5 \n"),
              info("[ircut_mode_switch #] ircut task thread exist \n"),
              task_says(">>> change to  NARO_IRCUT_MODE_AUTO_SMART,force day"), command(MODE_SET, DAY), DAY_PULSE,
              board("gpio45", "0"), board("gpio47", "0"))


def other_starts_rows():
    """Starts in the modes that have no task, and in those that cannot be started in."""
    def start(mode, *effects):
        return Row("power", Value("on", f"`on`; `night_mode` is `{mode}`"),
                   stored_lines(night_mode=stored_night_mode(mode)), DRIVERS, effects, before=("night_mode", Value(mode)))

    for mode in ("6", "7"):
        yield start(mode, err("[ircut_init]not support ircut mode\n"), DRIVERS_GONE)
    yield start("2", info("[ircut_init]switch to ircut mode night\n"), fixed_night())
    yield Row("night_mode", "1", info("[ircut_mode_switch]switch to ircut mode ady\n"), STAMP, infrared(0, "disable"),
              DAY_PULSE, command(MODE_SET, DAY), event("NightToDay"))


# ---- The board --------------------------------------------------------------------------------------------------------

class Board:
    """Who writes what to the board's files, seen by file notification. The filter's lines stay open during a pulse: of
    them each change counts; of the others what stands there when the writer closes the file, after each write."""
    OPEN, MODIFY, CLOSE_WRITE = 0x20, 0x2, 0x8

    def __init__(self, root):
        libc = ctypes.CDLL(None, use_errno=True)
        self.fd = libc.inotify_init1(os.O_CLOEXEC)
        self.folders, self.writes, self.now, self.written = {}, [], {}, set()
        for folder, _, files in os.walk(f"{root}/sys"):
            if files:
                # Openings are of no interest, but keep two writes from being told as one.
                watch = libc.inotify_add_watch(self.fd, folder.encode(), self.OPEN | self.MODIFY | self.CLOSE_WRITE)
                self.folders[watch] = folder
        threading.Thread(target=self._read, daemon=True).start()

    def _read(self):
        while True:
            data, at = os.read(self.fd, 65536), 0
            while at < len(data):
                watch, mask, _, length = struct.unpack_from("iIII", data, at)
                name = data[at + 16:at + 16 + length].rstrip(b"\0").decode()
                at += 16 + length
                self._look(self.folders[watch], name, mask)

    def _look(self, folder, name, mask):
        path = f"{folder}/{name}"
        coil = os.path.basename(folder) in ("gpio78", "gpio79") and name == "value"
        if mask & self.MODIFY:
            self.written.add(path)
        if not (mask & self.MODIFY if coil else mask & self.CLOSE_WRITE and path in self.written):
            return
        self.written.discard(path)
        with open(path, encoding="latin-1") as file:
            text = file.read().rstrip("\n\0")
        place = {"gpio": "gpio", "pwmchip0": "pwm"}.get(os.path.basename(folder), os.path.basename(folder))
        if coil:
            if not text or text == self.now.get(place, "0"):
                return
            self.now[place] = text
        self.writes.append((place if name == "value" else f"{place} {name}", text))


# ---- The test ---------------------------------------------------------------------------------------------------------

QUERIES = {"naro_audio_sound_result_get", "naro_isp_track_run", "naro_isp_ev_attr_get", "naro_isp_wb_attr_get", "naro_isp_daynight_mode_get"}
TIME = re.compile(rb"(?m)^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} ")
SOURCE_LINE = re.compile(rb"\[(ircut_mode_switch |set_white_led_alarm_info |mstar_ircut_ctrl_smart:)\d+\]")
# From frame to frame a block of 64 pixels differs by these; it has moved from 15, 35 or 60 on.
STEPS = (14, 15, 34, 35, 59, 60)
MOVES_FROM = {2: 15, 1: 35, 0: 60}

CHAPTERS_IN_ALL = 20
CHAPTERS = []  # (title, remark, rows), as they were seen


def page():
    """What was seen, for people."""
    rows = sum(len(rows) for _, _, rows in CHAPTERS)
    text = INTRODUCTION.format(rows=rows)
    for title, remark, rows in CHAPTERS:
        text += f"\n## {title}\n\n" + (re.sub(r"\s+", " ", remark) + "\n\n" if remark else "")
        text += "| value | what must be seen | seen |\n|---|---|---|\n"
        for cells, alike in itertools.groupby(rows, lambda row: (must_be_seen(row), counted(row))):
            text += f"| {', '.join(row.value.shown for row in alike)} | {' | '.join(cells)} |\n"
    return text


def must_be_seen(row):
    words = [effect.words for effect in row.effects if effect.words]
    if row.level is not None:
        words.append(f"motion is an event from {MOVES_FROM[row.level]} on")
    if row.also:
        words.append(row.also[0])
    return "; ".join(words) or "nothing"


def counted(row):
    """How much was seen of each kind."""
    names = {"log": "log", "print": "printed", "command": "command", "board": "board", "thread": "threads", "event": "event"}
    words = [f"{names[kind]} {count}" for kind, count in row.seen.items() if kind in names and count]
    if row.level is not None:
        words.append(f"events of motion {row.seen['motion']} of {len(STEPS)}")
    return ", ".join(words) or "nothing"


INTRODUCTION = """\
# Settings, value by value

What the running daemon does about each setting with each of {rows} values, as seen from outside: its log, the media
server's commands, the board's files, the events, and whether pictures that differ by a little are motion. The table is
the output of `tests/system/setting_values.py`, which holds what must be seen, to the letter, and fails where the daemon
does anything else, or where this page is not what it saw last (`--update-docs` writes it anew).

- Every set begins with the same lines, which are counted below but not repeated: `[CALLBACK]`, then
  `[key=KEY][value=VALUE]`; of "motion_region" also its status and the value's length.
- Values are logged as they come. A value that looks like a line of the log looks like one there, too: who reads the log
  by program should believe nothing between `[value=` and the next known line.
- `error` marks the lines of that level; "printed" is standard output. `#` is a line of the source, or a time.
- A board line "gpio47 = 1" is a write. gpio 78 and 79 move the filter (night, day), 45 is the infrared LED, 47 the white
  one, pwm 4 the infrared light. "written" is one of two writes that are too close to be told apart.
- Six pictures differ from the one before by 14, 15, 34, 35, 59 and 60 of 255 in a square: "motion is an event from 35 on"
  saw three events.
- "+" and "-" mark threads that came and went, by the names that the kernel keeps of them.
- The media server's queries are left out.
"""


class SettingValues(SystemTest):
    maxDiff = None

    def start_camera(self):
        self.watched = Board(self.root)
        self.server = self.media_server()
        self.setter = self.start("setter")
        self.setter.wait_for("ready")
        self.events = self.start("naro-events", "--json")
        self.feeder = self.start("raw_feeder")
        self.feeder.tell("auto off")
        self.feeder.wait_for("ready")
        self.sets = self.fences = self.event_count = self.brightness = 0
        self.start_daemon()

    def start_daemon(self):
        mark = self.feeder.mark()
        self.daemon = self.start("naro_algo")
        self.feeder.wait_for("rawcap", mark)  # the loop runs: it follows the settings
        # Somebody hears the events.
        heard = len(self.heard())
        self.frame(20)
        until(lambda: self.frame(20 if self.brightness > 100 else 200) and len(self.heard()) > heard, "an event")
        self.event_count, self.printed_count = len(self.heard()), len(self.printed_lines())

    def heard(self):
        return [re.search(r'"event":"(\w+)"', line).group(1) for line in list(self.events.lines) if line.stream == "out"]

    def frame(self, brightness):
        """Shows a picture, and waits until it has been analysed. The very first one has none to be compared with."""
        answered = self.answered()
        self.feeder.tell(f"still {brightness}")
        first, self.brightness = self.brightness == 0, brightness
        if first:
            self.daemon.wait_for("get 1st frame ok")
        else:
            until(lambda: self.answered() > answered, "a frame's boxes")
        return True

    def answered(self):
        return sum(request.name == "naro_isp_track_run" for request in list(self.server.requests))

    def printed_lines(self):
        """What the daemon has printed since its start, less what it says of its frames."""
        lines = [line.raw.rstrip(b"\r\n") for line in list(self.daemon.lines) if line.stream == "out"]
        return [re.sub(rb"(X_TYPE_UINT64 = )\d+", rb"\1#", line) for line in lines
                if line and b"frame" not in line and b"yuv queue" not in line]

    def logged_text(self, mark):
        """The error stream since then: without times, without numbers of source lines."""
        with self.daemon.more:
            lines = [line.raw for line in self.daemon.lines[mark:] if line.stream == "err"]
        return lines, SOURCE_LINE.sub(rb"[\1#]", TIME.sub(b"", b"".join(lines)))

    def set(self, key, value):
        self.sets += 1
        self.setter.tell(value.words.format(f"{LAYERS.get(key, 'nvram')} {key}"))
        return self.setter.wait_for(re.compile("stored|refused"), times=self.sets)

    def fence(self, mark):
        """Waits until the daemon is done with what was set before; the two lines of the fence itself."""
        self.fences += 1
        value = Value(f"off {self.fences}")
        self.assertEqual(self.set("face_detect", value), "stored")
        self.daemon.wait_for(f"[key=face_detect][value=off {self.fences}]", mark)
        return [effect.what for effect in first_lines("face_detect", value)]

    def seen(self, row):
        """Does what the row says, and returns what was seen, by kind, in order."""
        if row.before:
            mark = self.daemon.mark()
            self.assertEqual(self.set(*row.before), "stored")
            self.fence(mark)
            self.printed_count += row.printed_before
            until(lambda: len(self.printed_lines()) == self.printed_count, "what is printed before")
        wanted = self.wanted(row)
        threads = self.threads()
        mark, board, requests = self.daemon.mark(), len(self.watched.writes), len(self.server.requests)
        self.assertEqual(self.set(row.key, row.value), "stored" if row.stored else "refused")
        fence = self.fence(mark)

        def look():
            text = self.logged_text(mark)[1]
            for line in fence:
                text = b"".join(text.rsplit(line, 1))
            return {"log": text,
                    "print": self.printed_lines()[self.printed_count:],
                    "command": [(r.name, r.payload) for r in self.server.requests[requests:] if r.name not in QUERIES],
                    "board": self.written(row, self.watched.writes[board:]),
                    "thread": self.thread_changes(threads),
                    "event": self.heard()[self.event_count:]}

        # What other threads do about it comes a little later.
        try:
            until(lambda: all(len(look()[kind]) >= len(wanted[kind]) for kind in wanted), "all of it", 20)
        except AssertionError:
            pass  # the comparison says what is missing
        seen = look()
        self.printed_count += len(seen["print"])
        self.event_count += len(seen["event"])
        return wanted, seen

    def wanted(self, row):
        effects = (first_lines(row.key, row.value) if row.stored else []) + row.effects
        wanted = {kind: [effect.what for effect in effects if effect.kind == kind]
                  for kind in ("log", "print", "command", "board", "thread", "event")}
        return {**wanted, "log": TIME.sub(b"", b"".join(wanted["log"]))}

    def written(self, row, writes):
        """In mode 6 both lights are kept out every half second, until the next mode moves the filter: once is enough to
        see."""
        if row.key == "night_mode" and row.value.text == b"6":
            pair = [("gpio47", "0"), ("gpio45", "0")]
            while writes[:2] == writes[2:4] == pair:
                writes = writes[2:]
            return writes[:2] if writes[:2] == pair and writes[2:] in ([], pair[:1]) else writes
        if row.key == "night_mode" and row.value.text == b"5" and ("gpio79", "1") in writes:
            return writes[writes.index(("gpio79", "1")):]
        return writes

    @staticmethod
    def as_wanted(writes, wanted):
        """A write that was followed at once by another one may have been read while that one was at it."""
        writes = list(writes)
        for n, (want, (place, text)) in enumerate(zip(wanted, writes)):
            overtaken = text == "" and place in (other for other, _ in writes[n + 1:])
            if want[0] == place and (want[1] is None or overtaken):
                writes[n] = want
        return writes

    def check(self, row):
        wanted, seen = self.seen(row)
        place = f"{row.key} = {row.value.shown}"
        self.assertEqual(seen["log"].decode("latin-1"), wanted["log"].decode("latin-1"), place)
        for kind in ("print", "command", "thread", "event"):
            self.assertEqual(seen[kind], wanted[kind], f"{place}: {kind}")
        self.assertEqual(self.as_wanted(seen["board"], wanted["board"]), wanted["board"], f"{place}: board")
        row.seen = {kind: len(what) for kind, what in seen.items()}
        row.seen["log"] = len(first_lines(row.key, row.value) if row.stored else []) + \
            sum(effect.kind == "log" for effect in row.effects)
        if row.level is not None:
            self.check_motion(row)
        if row.also:
            row.also[1](self)

    def threads(self):
        names = []
        for task in os.listdir(f"/proc/{self.daemon.pid}/task"):
            with open(f"/proc/{self.daemon.pid}/task/{task}/comm", encoding="utf-8") as file:
                names.append(file.read().strip())
        return names

    def thread_changes(self, before):
        now = self.threads()
        return ["+" + name for name in sorted(now) if name not in before] + \
            ["-" + name for name in sorted(before) if name not in now]

    def mailbox_is_there(self):
        with open("/proc/sysvipc/shm", encoding="ascii") as file:
            segments = [line.split() for line in list(file)[1:]]
        self.assertEqual([(words[2], words[3]) for words in segments if words[0] == "4386"], [("666", "60")])

    def record_bytes(self):
        return sum(os.path.getsize(f"{folder}/{name}") for folder, _, names in os.walk(f"{self.root}/mnt/sdcard")
                   for name in names)

    def show(self, what, size):
        """Motion, or a sound; then the records on the card have this size."""
        {"motion": self.show_motion, "a sound": self.show_sound}[what]()
        until(lambda: self.record_bytes() == size, f"{size} bytes of records")
        if size:  # the line about the last one comes after it
            self.daemon.wait_for("write_event successful", times=(size - 128) // 32)

    def show_motion(self):
        """Two pictures, the second of which differs."""
        for brightness in (20, 230):
            self.event_count += abs(brightness - self.brightness) >= MOVES_FROM[0]
            self.frame(brightness)
        until(lambda: len(self.heard()) == self.event_count, "the events of two pictures")

    def show_sound(self):
        """The media server hears one."""
        mark = self.daemon.mark()
        self.server.next_sound(lambda request: request.send(reply(request.cmd_no + 1, 0, b"\1\0\0\0")))
        self.daemon.wait_for("loud sound detect yes", mark)

    def show_night(self):
        """The image processor says for a moment that it is night: its first sample is told of, with the motor's place."""
        self.server.data["naro_isp_daynight_mode_get"] = lambda: NIGHT
        self.daemon.wait_for("v_p=-34 ircut_mode:3")
        del self.server.data["naro_isp_daynight_mode_get"]

    def check_motion(self, row):
        """Shows pictures that differ by this and that."""
        moved = 0
        for brightness in [20, *(20 + sum(STEPS[:n + 1]) for n in range(len(STEPS)))]:
            moved += abs(brightness - self.brightness) >= MOVES_FROM[row.level]
            self.frame(brightness)
        until(lambda: len(self.heard()) >= self.event_count + moved, f"{row.value.shown}: {moved} events")
        self.assertEqual(len(self.heard()), self.event_count + moved, row.value.shown)
        self.event_count += moved
        row.seen["motion"] = sum(step >= MOVES_FROM[row.level] for step in STEPS)

    def chapter(self, title, remark, rows):
        rows = list(rows)
        for row in rows:
            self.check(row)
        CHAPTERS.append((title, remark, rows))
        self.assertEqual(self.server.problems, [])

    def test_1_before_power(self):
        self.start_camera()
        for key, rows in (("motion_region", motion_region_rows), ("night_mode", night_mode_rows),
                          ("full_color", full_color_rows), ("wdr", wdr_rows), ("hdr_switch", hdr_rows),
                          ("power", power_rows), ("people_sensitivity", people_sensitivity_rows),
                          ("alarm_event", alarm_event_rows), ("people_region_detect", people_region_rows),
                          ("track_switch", track_switch_rows), ("motor", motor_rows), ("fav_area_rect", fav_area_rows)):
            self.chapter(f"`{key}`", rows.__doc__, [*rows(), Row(key, BEYOND, stored=False)])
        for key in ("face_detect", "human_detect"):
            self.chapter(f"`{key}`", detect_rows.__doc__, [*detect_rows(key), Row(key, BEYOND, stored=False)])
        self.chapter("`sdcard_rw` and `baby_cry_detect`", card_and_sound_rows.__doc__, card_and_sound_rows())
        self.chapter("`baby_cry_detect`", detect_rows.__doc__, [*detect_rows("baby_cry_detect"),
                                                                Row("baby_cry_detect", BEYOND, stored=False)])
        self.assertEqual(self.daemon.stop(), 255)

    def test_2_with_power(self):
        self.start_camera()
        for title, rows in (("`power`: on", power_on_rows), ("`night_mode` while day and night run",
                                                             night_mode_running_rows),
                            ("`alarm_event` while day and night run", alarm_running_rows)):
            self.chapter(title, rows.__doc__, rows())
        self.assertEqual(self.daemon.stop(), 255)

    def test_3_other_starts(self):
        self.start_camera()
        self.chapter("`power` with other modes stored", other_starts_rows.__doc__, other_starts_rows())
        self.assertEqual(self.daemon.stop(), 255)

    def test_4_page(self):
        """After all the others."""
        if len(CHAPTERS) < CHAPTERS_IN_ALL:
            self.skipTest("not everything was seen")
        if UPDATE:
            with open(PAGE, "w", encoding="utf-8") as file:
                file.write(page())
        with open(PAGE, encoding="utf-8") as file:
            self.assertEqual(file.read(), page(), "setting_values.py BIN_DIR --update-docs writes the page anew")


if __name__ == "__main__":
    main()
