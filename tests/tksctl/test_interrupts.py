"""Ctrl-C in the midst of a command: it ends with its own exit code, nothing is half written, and no process is left."""
import json
import os
import shlex
import unittest

from support import *
from test_fake_launcher import APP


class InterruptTest(LauncherTest):
    def interrupted(self, *words, **more):
        """The command in this world, ended by Ctrl-C: with the code for that, no process left, and no folder of its own."""
        shown = self.here.interrupted(*words, **more)
        self.assertEqual((shown.code, shown.left), (INTERRUPTED, []), shown)
        self.assertEqual([path.name for path in self.here.tmp.rglob("*") if not path.is_dir() and "lock" not in path.name], [])
        self.assertEqual([path.name for path in self.here.tmp.glob("tksctl-*")], [])
        return shown

    def hidden(self, folder):
        """What is left of files that were being written there."""
        return [path.name for path in pathlib.Path(folder).iterdir() if path.name.startswith(".")]


class Installing(InterruptTest):
    def setUp(self):
        super().setUp()
        self.archive = Maker.archive(self.made, self.here / "launcher.zip")
        self.unzip, self.reached, self.goes = self.here.stalled("/usr/bin/unzip")

    def install(self, *more):
        return "install", self.archive, "--version", "5.0.1", *more

    def expect_whole(self):
        self.expect(self.here.tool("verify", "--deep", "-q", self.here.launcher), OK)
        self.assertEqual(self.hidden(self.here.launcher.parent), [])

    def test_comes_to_its_end(self):
        shown = self.interrupted(*self.install(), when=self.reached, then=self.goes, before=self.unzip)
        self.assertTrue(shown.err.endswith("tksctl: interrupted after the installation\n"), shown)
        self.expect_whole()

    def test_that_is_ended_at_once_leaves_the_old_launcher_and_the_next_one_cleans_up(self):
        shutil.copytree(self.made, self.here.launcher, symlinks=True)
        before = sorted(os.walk(self.here.launcher))
        shown = self.here.interrupted(*self.install("--force"), when=self.reached, times=3, before=self.unzip)
        self.assertEqual((shown.code, [name for name in shown.left if name != "sleep"]), (INTERRUPTED, []), shown)
        self.assertEqual(sorted(os.walk(self.here.launcher)), before)
        self.expect_whole()
        self.expect(self.here.tool(*self.install("--force", "-q")), OK)
        self.expect_whole()
        self.assertEqual([path.name for path in self.here.tmp.rglob("*") if "lock" not in path.name], [])

    def test_rehearsed_leaves_nothing(self):
        shown = self.interrupted(*self.install("--dry-run"), when=self.reached, then=self.goes, before=self.unzip)
        self.assertEqual((shown.out, shown.err), ("", "tksctl: interrupted\n"))
        self.assertFalse(self.here.launcher.exists())


class Writing(InterruptTest):
    """Commands that write files. What takes them a moment is a large file."""

    def test_pack(self):
        def change(bundle):
            (bundle / "Contents/Resources").mkdir(exist_ok=True)
            (bundle / "Contents/Resources/large").write_bytes(os.urandom(1 << 20) * 40)
        bundle, archive = Maker.launcher(self.here / "made", change=change), self.here / "archives/launcher.zip"
        archive.parent.mkdir()
        archive.write_text("what was there")
        folder = shlex.quote(str(archive.parent))
        shown = self.interrupted("pack", bundle, "--to", archive, when=f'[ -n "$(find {folder} -name ".*" -size +0)" ]')
        self.assertEqual((shown.out, shown.err), ("", "tksctl: interrupted: nothing was packed\n"))
        self.assertEqual(archive.read_text(), "what was there")
        self.assertEqual(self.hidden(archive.parent), [])

    def test_pack_while_the_archive_is_proven(self):
        unzip, reached, goes = self.here.stalled("/usr/bin/unzip")
        archive = self.here / "archives/launcher.zip"
        archive.parent.mkdir()
        shown = self.interrupted("pack", self.made, "--to", archive, when=reached, then=goes, before=unzip)
        self.assertEqual((shown.out, shown.err), ("", "tksctl: interrupted: nothing was packed\n"))
        self.assertEqual(list(archive.parent.iterdir()), [])

    def test_publish(self):
        tar, reached, goes = self.here.stalled("/usr/bin/tar")
        updates = self.here / "updates"
        updates.mkdir()
        (updates / "5-1-0.delta").write_text("one")
        (updates / "deltalist.json.delta").write_text("what was there")
        shown = self.interrupted("publish", updates, "-i", Maker.identity(), when=reached, then=goes, before=tar)
        self.assertEqual((shown.out, shown.err), ("", "tksctl: interrupted: nothing was published\n"))
        self.assertEqual((updates / "deltalist.json.delta").read_text(), "what was there")
        self.assertEqual(self.hidden(updates), [])

    def test_sign_stops_after_the_bundle_in_hand(self):
        first, second = (Maker.launcher(self.here / name, identity=None) for name in ("first", "second"))
        large = first / "Contents/Resources/large"
        large.parent.mkdir(exist_ok=True)
        with open(large, "wb") as file:
            file.truncate(400 << 20)
        reading = f"ls -l /proc/$child/fd 2>/dev/null | grep -qF {shlex.quote(str(large))}"
        shown = self.interrupted("sign", "-i", Maker.identity(), first, second, when=reading)
        self.assertEqual((shown.out, shown.err), ("", "tksctl: interrupted: 1 of 2 signed\n"))
        self.expect(tool("verify", "--deep", "-q", first), OK)
        self.assertFalse((second / "Contents/_CodeSignature").exists())


class Talking(InterruptTest):
    """Commands that start launchers."""

    def setUp(self):
        super().setUp()
        self.install()
        self.heard = self.here / "heard"

    def open_input(self):
        """A standard input in which nothing comes, and no end."""
        pipe = self.here / "input"
        return f"[ -p {pipe} ] || mkfifo {pipe}; exec <>{pipe};"

    def talk(self, switches, times):
        shown = self.interrupted("talk", when=f"[ -s {self.heard} ]", times=times, before=self.open_input(),
                                 env={"TKS_FAKE_LAUNCHER": f"--received {self.heard} {switches}"})
        self.assertIn("tksctl: interrupted\n", shown.err)

    def test_talk(self):
        self.talk("", times=1)

    def test_talk_to_a_launcher_that_says_no_goodbye(self):
        self.talk("--mute-after hello", times=2)

    def test_replay_as_host(self):
        recording = self.here / "talk.jsonl"
        self.expect(self.here.tool("launch", "--record", recording), OK)
        program = self.here.launcher / "Contents/MacOS/Tarvo Kovra Start"
        shown = self.interrupted("replay", recording, "--as", "host", "--", program, "-Communicate", "Pipe", when=f"[ -s {self.heard} ]",
                                 env={"TKS_FAKE_LAUNCHER": f"--received {self.heard} --mute"})
        self.assertEqual(shown.out, "")

    def test_replay_as_launcher(self):
        recording = self.here / "talk.jsonl"
        self.expect(self.here.tool("launch", "--record", recording), OK)
        waits = "grep -q '^SigCgt:.*[2367abef]$' /proc/$child/status"
        shown = self.interrupted("replay", recording, "--as", "launcher", "--", "-Communicate", "Pipe", when=waits, before=self.open_input())
        self.assertEqual(shown.out, "")

    def test_fake_host(self):
        program = self.here.launcher / "Contents/MacOS/Tarvo Kovra Start"
        self.interrupted("fake-host", "--", program, when=f"[ -s {self.heard} ]", env={"TKS_FAKE_LAUNCHER": f"--received {self.heard} --mute"})

    def doctor(self, *more):
        shown = self.interrupted("doctor", "--json", *more, when=f"[ -s {self.heard} ]",
                                 env={"TKS_FAKE_LAUNCHER": f"--received {self.heard} --mute"})
        self.assertEqual(json.loads(shown.out)["error"]["message"], "interrupted")

    def test_doctor_during_the_start(self):
        self.doctor()

    def test_doctor_during_the_start_over_files(self):
        self.doctor("--files")

    def test_doctor_does_not_wait_for_a_tool_that_never_answers(self):
        silent = self.here / "silent"
        silent.write_text(f"#!/bin/sh\ntouch {self.heard}\nexec sleep 60\n")
        silent.chmod(0o755)
        shown = self.interrupted("doctor", "--json", "--timeout", "60", when=f"[ -e {self.heard} ]",
                                 before=f"mount --bind {silent} /usr/bin/unzip")
        self.assertEqual(json.loads(shown.out)["error"]["message"], "interrupted")


if __name__ == "__main__":
    unittest.main()
