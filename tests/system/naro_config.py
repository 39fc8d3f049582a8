#!/usr/bin/env python3
"""naro-config on a store of its own: what it prints, stores, warns of and refuses. usage: naro_config.py BIN_DIR"""
import os
import signal
import subprocess
import sys
import tempfile
import unittest

BIN = os.path.abspath(sys.argv.pop(1))
TOP = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
LIMIT_S = 60


class Config(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.root = os.path.join(self.folder.name, "root")
        self.environment = dict(os.environ, NARO_ROOT=self.root, PATH=BIN + ":" + os.environ["PATH"])

    def run_config(self, *words, input=None):
        done = subprocess.run([f"{BIN}/naro-config", *words], env=self.environment, capture_output=True, input=input,
                              timeout=LIMIT_S)
        return done.returncode, done.stdout.decode("latin1"), done.stderr.decode("latin1")

    def expect(self, words, status, out="", err=""):
        self.assertEqual(self.run_config(*words), (status, out, err))

    def test_get_and_set(self):
        self.expect(["get", "wdr"], 1)
        self.expect(["set", "wdr", "on"], 0)
        self.expect(["get", "wdr"], 0, "on\n")
        self.expect(["--layer", "mem", "set", "mine", "-5"], 0)
        self.expect(["get", "mine", "--layer", "mem"], 0, "-5\n")
        self.expect(["set", "--group", "g", "wdr", "off"], 0)
        self.expect(["get", "wdr"], 0, "on\n")
        self.expect(["--group", "g", "get", "wdr"], 0, "off\n")
        self.assertTrue(os.path.exists(f"{self.root}/mnt/nvram/naro/vardex.db"))
        self.assertTrue(os.path.exists(f"{self.root}/run/naro/vardex-mem.db"))

    def test_an_unknown_key_wants_its_layer(self):
        wanted = 'naro-config: "mine" is none of the known keys: say --layer mem or --layer nvram\n'
        self.expect(["set", "mine", "v"], 2, "", wanted)
        self.expect(["get", "mine"], 2, "", wanted)

    def test_odd_values_and_layers_are_warned_of_and_stored(self):
        self.expect(["set", "night_mode", "9"], 0, "", "naro-config: warning: night_mode is expected to be a digit: "
                    "0 or 3 automatic, 1 day, 2 night, 4 full colour, 5 smart, 6 lights off\n")
        self.expect(["get", "night_mode"], 0, "9\n")
        self.expect(["--layer", "mem", "set", "wdr", "on"], 0, "",
                    "naro-config: warning: wdr is followed in layer nvram, not in mem\n")

    def test_numbers_are_looked_at(self):
        self.expect(["set", "time_night", "12", "--type", "uint64"], 0)
        self.expect(["get", "time_night"], 0, "12\n")
        self.expect(["set", "time_night", "-1", "--type", "uint64"], 2, "",
                    "naro-config: cannot be set: the value is no number of that type\n")
        self.expect(["set", "time_night", "1", "--type", "real"], 2, "",
                    "naro-config: cannot be set: the type is text, int32 or uint64\n")

    def test_wrong_commands_say_where_to_read(self):
        for words in ([], ["gett", "wdr"], ["get"], ["get", "a", "b"], ["set", "wdr"], ["list", "x"]):
            self.expect(words, 2, "", "naro-config --help tells the commands\n")
        self.expect(["--layer", "flash", "list"], 2, "", 'naro-config: --layer wants mem or nvram, not "flash"\n')
        status, out, err = self.run_config("--help")
        self.assertEqual((status, err), (0, ""))
        for word in ("get KEY", "set KEY VALUE", "list", "watch", "subscribers", "export", "import", "--layer"):
            self.assertIn(word, out)

    def test_list_export_and_import(self):
        self.expect(["set", "wdr", "on"], 0)
        self.expect(["--layer", "mem", "set", "odd", "a\tb\n\\"], 0)
        self.expect(["list"], 0, "mem    odd                   a\\tb\\n\\\\\nnvram  wdr                   on\n")
        self.expect(["list", "--layer", "nvram"], 0, "nvram  wdr                   on\n")
        exported = "# layer, group, key, type, value\nmem\tdefault\todd\ttext\ta\\tb\\n\\\\\nnvram\tdefault\twdr\ttext\ton\n"
        self.expect(["export"], 0, exported)
        file = os.path.join(self.folder.name, "settings")
        self.expect(["export", file], 0)
        self.expect(["set", "wdr", "off"], 0)
        self.expect(["--layer", "mem", "import", file], 0)
        self.expect(["get", "wdr"], 0, "off\n")
        self.expect(["import", file], 0)
        self.expect(["get", "wdr"], 0, "on\n")
        self.assertEqual(self.run_config("import", "-", input=b"nvram\tdefault\twdr\ttext\toff\nnonsense\n"),
                         (1, "", "naro-config: -: line 2: a line is five words with tabs between; nothing was changed\n"))
        self.expect(["get", "wdr"], 0, "on\n")
        self.expect(["import", file + "x"], 1, "", f"naro-config: {file}x: No such file or directory\n")

    def test_watch_and_subscribers(self):
        self.expect(["set", "wdr", "on"], 0)
        self.expect(["--layer", "nvram", "set", "mine", "0"], 0)
        watcher = subprocess.Popen([f"{BIN}/naro-config", "watch"], env=self.environment, stdout=subprocess.PIPE)
        self.addCleanup(watcher.stdout.close)
        self.addCleanup(watcher.kill)
        line = f"nvram  wdr                   naro-config (process {watcher.pid})\n"
        for _ in range(1000):
            if self.run_config("subscribers", "wdr")[1] == line and "track_switch" in self.run_config("subscribers")[1]:
                break
        else:
            self.fail("the watcher is not listed")
        for words in (["set", "wdr", "off"], ["set", "track_switch", "on"], ["--layer", "nvram", "set", "mine", "1"]):
            self.expect(words, 0)
            told = watcher.stdout.readline().decode().split()
            self.assertEqual(told[1:], ["mem" if words[1] == "track_switch" else "nvram", words[-2], words[-1]])
        watcher.send_signal(signal.SIGINT)
        self.assertEqual(watcher.wait(LIMIT_S), 0)
        self.expect(["subscribers"], 0)

    def test_a_broken_store_is_told(self):
        os.makedirs(f"{self.root}/mnt/nvram/naro")
        with open(f"{self.root}/mnt/nvram/naro/vardex.db", "wb") as f:
            f.write(b"garbage" * 1000)
        for words in (["set", "wdr", "on"], ["get", "wdr"], ["list"], ["export"]):
            status, _, err = self.run_config(*words)
            self.assertEqual(status, 1)
            self.assertIn("[vardex] nvram: cannot ", err)
            self.assertIn("is no settings store", err)
        self.expect(["set", "track_switch", "on"], 0)
        self.expect(["get", "track_switch"], 0, "on\n")

    def complete(self, *words):
        script = f'source "{TOP}/tools/naro-config.bash"; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); ' \
                 '_naro_config naro-config; printf "%s\\n" "${COMPREPLY[@]}"'
        done = subprocess.run(["bash", "-c", script, "bash", "naro-config", *words], env=self.environment,
                              capture_output=True, text=True, timeout=LIMIT_S)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return done.stdout.split()

    def test_completion(self):
        self.assertEqual(self.complete("s"), ["set", "subscribers"])
        self.assertEqual(self.complete("get", "ni"), ["night_mode"])
        self.assertEqual(self.complete("set", "wdr", ""), ["on", "off"])
        self.assertEqual(self.complete("set", "night_mode", ""), [])
        self.assertEqual(self.complete("--layer", ""), ["mem", "nvram"])
        self.assertEqual(self.complete("--layer", "nvram", "get", "p"), ["power"])
        self.assertEqual(self.complete("get", "--l"), ["--layer"])
        self.assertEqual(len(self.complete("watch", "wdr", "")), 18)


if __name__ == "__main__":
    unittest.main(verbosity=2)
