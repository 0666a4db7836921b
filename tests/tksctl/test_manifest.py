"""tksctl manifest: which files it writes for which browser, what it leaves alone, and what it refuses."""
import json
import unittest

from support import FAILED, NOTHING_TO_DO, OK, USAGE, World, clean_environment, tool

NAME = "com.example.host"
ORIGIN = "chrome-extension://abcdefghijklmnopabcdefghijklmnop/"
EXTENSION = "host@example.com"
FOLDERS = {"chromium": ".config/chromium/NativeMessagingHosts",
           "chrome": ".config/google-chrome/NativeMessagingHosts",
           "edge": ".config/microsoft-edge/NativeMessagingHosts",
           "brave": ".config/BraveSoftware/Brave-Browser/NativeMessagingHosts",
           "firefox": ".mozilla/native-messaging-hosts"}


class Manifest(unittest.TestCase):
    def setUp(self):
        self.world = World()
        self.addCleanup(self.world.remove)
        self.program = self.world / "host"
        self.program.write_text("#!/bin/sh\n")
        self.program.chmod(0o755)

    def manifest(self, *words, **changes):
        return tool("manifest", *words, env=clean_environment(HOME=str(self.world.home), **changes))

    def install(self, *words, **changes):
        return self.manifest("install", "--name", NAME, "--program", self.program, "--origin", ORIGIN, "--extension", EXTENSION,
                             *words, **changes)

    def file(self, browser):
        return self.world.home / FOLDERS[browser] / f"{NAME}.json"

    def test_each_browser_gets_its_own_form_in_its_own_folder(self):
        result = self.install("--browser", "all")
        self.assertEqual(result.code, OK, result)
        for browser in FOLDERS:
            text = json.loads(self.file(browser).read_text())
            self.assertEqual((text["name"], text["path"], text["type"]), (NAME, str(self.program), "stdio"))
            callers = ("allowed_extensions", [EXTENSION]) if browser == "firefox" else ("allowed_origins", [ORIGIN])
            self.assertEqual(text[callers[0]], callers[1])
            self.assertEqual(len(text), 5)

    def test_without_a_name_it_is_for_the_browsers_that_are_used(self):
        (self.world.home / ".config/chromium").mkdir(parents=True)
        (self.world.home / ".mozilla").mkdir()
        self.assertEqual(self.install().code, OK)
        self.assertEqual([name for name in FOLDERS if self.file(name).exists()], ["chromium", "firefox"])

    def test_without_a_browser_there_is_nothing_to_do(self):
        result = self.install()
        self.assertEqual(result.code, NOTHING_TO_DO, result)
        self.assertIn("--browser", result.err)

    def test_settings_that_lie_elsewhere_are_found(self):
        elsewhere = self.world / "settings"
        self.assertEqual(self.install("--browser", "chrome", XDG_CONFIG_HOME=str(elsewhere)).code, OK)
        self.assertTrue((elsewhere / "google-chrome/NativeMessagingHosts" / f"{NAME}.json").exists())

    def test_a_folder_may_be_named(self):
        self.assertEqual(self.install("--browser", "chromium", "--folder", self.world / "profile").code, OK)
        self.assertTrue((self.world / "profile" / f"{NAME}.json").exists())

    def test_a_dry_run_changes_nothing(self):
        result = self.install("--browser", "all", "--dry-run")
        self.assertEqual(result.code, OK, result)
        self.assertEqual(result.out.count("would write "), 5)
        self.assertEqual(list(self.world.home.rglob("*")), [])

    def test_a_browser_that_nobody_may_call_from_is_left_out(self):
        result = self.manifest("install", "--name", NAME, "--program", self.program, "--origin", ORIGIN, "--browser", "all")
        self.assertEqual(result.code, OK, result)
        self.assertFalse(self.file("firefox").exists())
        self.assertIn("Firefox is left out", result.err)

    def test_bad_wishes_are_refused(self):
        good = {"--name": NAME, "--program": self.program, "--origin": ORIGIN}
        for option, value in (("--name", "../evil"), ("--name", "Upper"), ("--name", "a..b"), ("--name", ".a"), ("--name", ""),
                              ("--program", "host"), ("--program", self.world / "nothing"), ("--program", self.world.home),
                              ("--origin", "chrome-extension://*/"), ("--origin", "https://a.example/"), ("--browser", "none")):
            words = [word for pair in {**good, option: value}.items() for word in pair]
            result = self.manifest("install", "--browser", "chromium", *words)
            self.assertEqual(result.code, USAGE, (option, value, result))
        self.assertEqual(list(self.world.home.rglob("*")), [])

    def test_a_folder_that_cannot_be_written_is_an_error(self):
        (self.world.home / ".config").write_text("in the way")
        self.assertEqual(self.install("--browser", "chrome").code, FAILED)

    def test_removing_leaves_everything_else(self):
        self.install("--browser", "all")
        other = self.file("chrome").with_name("com.example.other.json")
        other.write_text(json.dumps({"name": "com.example.other"}))
        self.file("edge").write_text(json.dumps({"name": "somebody.else"}))
        result = self.manifest("remove", "--name", NAME, "--dry-run")
        self.assertEqual((result.code, result.out.count("would remove ")), (OK, 4), result)
        self.assertEqual(self.manifest("remove", "--name", NAME).code, OK)
        self.assertEqual([name for name in FOLDERS if self.file(name).exists()], ["edge"])
        self.assertTrue(other.exists())
        self.assertEqual(self.manifest("remove", "--name", NAME).code, NOTHING_TO_DO)

    def test_the_list_names_programs_that_are_gone(self):
        self.install("--browser", "chromium", "--browser", "firefox")
        self.program.unlink()
        result = self.manifest("list", "--json")
        self.assertEqual(result.code, OK, result)
        rows = result.json()["result"]["manifests"]
        self.assertEqual([(row["browser"], row["programRuns"]) for row in rows], [("chromium", False), ("firefox", False)])
        self.assertEqual(self.manifest("list", "--browser", "edge").code, NOTHING_TO_DO)


if __name__ == "__main__":
    unittest.main()
