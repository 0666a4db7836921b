"""The options of the library, on the command line and in files."""
import unittest

from support import *


class Options(LauncherTest):
    def setUp(self):
        super().setUp()
        self.install()

    def test_launch_goes_by_them(self):
        silent = {"TKS_FAKE_LAUNCHER": "--mute"}
        shown = self.here.tool("launch", "-v", "--option", "helloLimit=200", "--option", "endSilentLauncher=true", env=silent)
        self.expect(shown, TIMED_OUT)
        self.assertIn('TKS did not answer "hello" within 200 ms.', shown.err)
        self.assertEqual(shown.err.count("Option helloLimit: 200 ms. "), 1, shown)
        self.assertEqual(shown.err.count("] Option "), 2, shown)

    def test_launch_succeeds_with_private_pipes(self):
        for more in ((), ("--files",)):
            shown = self.here.tool("--option", "privatePipes=true", "--option", "checkFilePeer=true", "launch", *more)
            self.expect(shown, OK)

    def test_are_read_from_a_file_before_those_of_the_command_line(self):
        file = self.here / "options.json"
        file.write_text('{"helloLimit": 60000, "silenceNotice": 100}')
        shown = self.here.tool("launch", "-v", "--options", file, "--option", "helloLimit=300",
                               env={"TKS_FAKE_LAUNCHER": "--mute"})
        self.expect(shown, TIMED_OUT)
        self.assertIn("Option helloLimit: 300 ms.", shown.err)
        self.assertIn('Still no answer to "hello" after 100 ms.', shown.err)

    def test_doctor_names_those_that_are_on(self):
        for words, seen in (((), "none"), (("--option", "httpsOnly=true", "--option", "helloLimit=60000"), "helloLimit, httpsOnly")):
            document = self.here.tool("doctor", "--json", *words).json()
            found = [check["seen"] for check in document["result"]["checks"] if check["id"] == "library.options"]
            self.assertEqual(found, [seen])

    def test_bad_ones_are_refused(self):
        file = self.here / "options.json"
        file.write_text('{"helloLimits": 1}')
        (self.here / "list.json").write_text("[]")
        for words, code, problem in ((("--option", "helloLimits=1"), USAGE, "Unknown option: helloLimits"),
                                     (("--option", "helloLimit"), USAGE, "No NAME=VALUE of an option: helloLimit"),
                                     (("--option", "helloLimit=soon"), USAGE, "helloLimit has to be a whole number"),
                                     (("--options", file), USAGE, "Unknown option: helloLimits"),
                                     (("--options", self.here / "list.json"), FAILED, "is no JSON object"),
                                     (("--options", self.here / "missing.json"), FAILED, "cannot be read")):
            with self.subTest(words):
                self.expect_bad_input(self.here.tool("launch", *words), code, problem)


if __name__ == "__main__":
    unittest.main()
