"""install and status."""
import os
import signal
import time
import unittest

from support import *


class InstallTest(ToolTest):
    @classmethod
    def setUpClass(cls):
        cls.keeper = tempfile.TemporaryDirectory(prefix="tks-ctl-")
        folder = pathlib.Path(cls.keeper.name)
        cls.archive = Maker.archive(Maker.launcher(folder / "5.0.1"), folder / "5.0.1.zip")
        cls.newer = Maker.archive(Maker.launcher(folder / "5.1.0", version="5.1.0"), folder / "5.1.0.zip")

    @classmethod
    def tearDownClass(cls):
        cls.keeper.cleanup()

    def setUp(self):
        self.here = self.world()

    def install(self, archive, version, *words, **more):
        return self.here.tool("install", archive, "--version", version, *words, **more)


class Install(InstallTest):
    STEPS = ["examining", "unpacking", "checking", "ending", "replacing", "assessing"]

    def test_puts_the_launcher_in_its_place_and_names_the_steps(self):
        steps = "".join(f"step {number} of 6: {name}\n" for number, name in enumerate(self.STEPS, 1))
        self.expect(self.install(self.archive, "5.0.1"), OK, f"installed 5.0.1 at {self.here.launcher}\n", steps)
        self.assertIn("5.0.1", (self.here.launcher / "Contents/Info.plist").read_text())
        self.expect(self.here.tool("status"), OK)

    def test_json_has_steps_and_versions(self):
        self.expect(self.install(self.archive, "5.0.1", "--quiet"), OK, err="")
        result = self.expect(self.install(self.newer, "5.1.0", "--json"), OK, err="").json()["result"]
        self.assertEqual((result["before"], result["after"], result["steps"]), ("5.0.1", "5.1.0", self.STEPS))

    def test_leaves_a_launcher_that_is_as_new(self):
        self.expect(self.install(self.newer, "5.1.0", "-q"), OK)
        self.expect(self.install(self.archive, "5.0.1"), NOTHING_TO_DO, "",
                    "version 5.1.0 is installed, 5.0.1 is not newer (see --force)\n")
        self.expect(self.install(self.archive, "5.0.1", "--force", "-q"), OK)

    def test_dry_run_changes_nothing(self):
        self.expect(self.install(self.archive, "5.0.1", "--dry-run"), OK,
                    f"would install 5.0.1 at {self.here.launcher}\nnothing is there now\n", "")
        self.assertFalse(self.here.launcher.exists())
        self.assertEqual([path.name for path in self.here.tmp.iterdir() if path.name.startswith("tksctl-")], [])

    def test_goes_where_it_is_told(self):
        place = self.here / "own/Launcher.app"
        self.expect(self.install(self.archive, "5.0.1", "--to", place, "-q"), OK)
        self.assertTrue((place / "Contents/Info.plist").exists())

    def test_refuses_bad_input(self):
        broken = self.here / "broken.zip"
        broken.write_text("no archive")
        foreign = Maker.archive(Maker.launcher(self.here / "made", identity=("--team", "STR4NG3R00")), self.here / "foreign.zip")
        for archive, version, words, code, named in (
                ("/nonexistent.zip", "5.0.1", (), FAILED, "there is no archive at /nonexistent.zip"),
                (broken, "5.0.1", ("-q",), FAILED, "Refuse to unpack"),
                (broken, "5.0.1", ("--dry-run",), FAILED, "no zip archive"),
                (foreign, "5.0.1", ("-q",), NOT_TRUSTED, "not from Tarvo"),
                (foreign, "5.0.1", ("--dry-run",), NOT_TRUSTED, "not from Tarvo"),
                (self.archive, "9.0.0", ("-q",), FAILED, "Version not match")):
            with self.subTest(named):
                self.expect_bad_input(self.install(archive, version, *words), code, named)
        self.assertFalse(self.here.launcher.exists())
        self.expect_bad_input(tool("install", self.archive), USAGE, "--version")

    def test_draws_a_bar_on_a_terminal_only(self):
        def shown(*words, **variables):
            command = self.here.command([TOOL, "install", self.archive, "--version", "5.0.1", "--force", *words])
            return in_terminal(command, env=self.here.environment(**variables))[0]
        self.assertIn("\r\x1b[Kstep 2 of 6: unpacking [####################]", shown(TERM="xterm"))
        self.assertNotIn("\x1b", shown(TERM="dumb"))
        self.assertIn("step 2 of 6: unpacking\r\n", shown(TERM="dumb"))
        self.assertNotIn("step", shown("--quiet", TERM="xterm"))


class Status(InstallTest):
    def test_says_what_is_installed(self):
        self.expect_status_without_launcher()
        self.expect(self.install(self.archive, "5.0.1", "-q"), OK)
        self.expect(self.here.tool("status"), OK, f"launcher:   {self.here.launcher}\nversion:    5.0.1\n"
                    "signature:  good, the maker's\n", "")
        result = self.expect(self.here.tool("status", "--json"), OK).json()["result"]
        self.assertEqual((result["installed"], result["version"], result["running"]), (True, "5.0.1", []))
        with open(self.here.launcher / "Contents/Info.plist", "a") as file:
            file.write("<!-- altered -->")
        self.assertIn("invalid Info.plist", self.expect(self.here.tool("status"), NOT_TRUSTED).err)

    def expect_status_without_launcher(self):
        shown = self.expect(self.here.tool("status"), BROKEN_LAUNCHER)
        self.assertEqual(shown.err, "tksctl: no launcher is installed\n")
        self.assertIn("not installed", shown.out)


if __name__ == "__main__":
    unittest.main()
