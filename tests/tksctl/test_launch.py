"""launch and talk: real conversations with a launcher that misbehaves on request."""
import json
import os
import re
import signal
import subprocess
import time
import unittest

from support import *


class LaunchTest(LauncherTest):
    def setUp(self):
        super().setUp()
        self.install()

    def plain(self, text):
        """The conversation without times and numbers of processes."""
        return re.sub(r"^ *\d+\.\d{3} s  ", "", text, flags=re.M)


class Launch(LaunchTest):
    WORDS = ("launch", "--site", "https://meet.example", "--param", "meetingkey=123456789", "--param", "a=b=c")

    def test_shows_the_conversation(self):
        shown = self.expect(self.here.tool(*self.WORDS), OK, err="the meeting was launched\n")
        lines = self.plain(shown.out).splitlines()
        types = [re.match(r'(host|launcher) +> .*"message_type":"(\w+)"', line) for line in lines]
        self.assertEqual([found.groups() for found in types if found],
                         [("host", "hello"), ("launcher", "hello_ack"), ("host", "launch_meeting"),
                          ("launcher", "launch_meeting_ack"), ("host", "disconnect"), ("launcher", "disconnect_ack")])
        self.assertIn('"a":"b=c"', shown.out)
        self.assertTrue(any("launcher started: " in line for line in lines), shown)

    def test_talks_over_files_as_well(self):
        result = self.expect(self.here.tool(*self.WORDS, "--files", "--json"), OK).json()["result"]
        self.assertTrue(result["launched"])
        self.assertTrue(all(event["byFile"] for event in result["events"] if event["kind"] in ("sent", "received")))

    def test_reads_parameters_from_a_file(self):
        file = self.here / "meeting.json"
        file.write_text('{"meetingkey": "987654321", "deep": {"x": [1, 2]}}')
        shown = self.expect(self.here.tool("launch", "--param-file", file, "--param", "b=1"), OK)
        self.assertIn('"deep":{"x":[1,2]}', shown.out)

    def test_records_what_it_shows(self):
        for more in ((), ("--files",)):
            file = self.here / "talk.jsonl"
            shown = self.expect(self.here.tool(*self.WORDS, "--record", file, *more), OK)
            self.assertEqual(len(re.findall(r"(?:host|launcher) +> ", shown.out)), 6)
            lines = [json.loads(line) for line in file.read_text().splitlines()]
            self.assertEqual([each["type"] for each in lines[1:] if each["event"] == "message"],
                             ["hello", "hello_ack", "launch_meeting", "launch_meeting_ack", "disconnect", "disconnect_ack"])
            self.assertEqual({each["channel"] for each in lines[1:] if "channel" in each}, {"file" if more else "pipe"})
            self.assertNotIn("123456789", file.read_text())
            drawn = self.expect(tool("diagram", file), OK).out
            self.assertEqual(len(re.findall(r"\|<?-- ", drawn)), 6)

    def test_refuses_a_recording_that_cannot_be_made(self):
        self.expect(self.here.tool(*self.WORDS, "--record", self.here / "no/such/folder"), FAILED, out="")

    def test_masks_personal_data(self):
        shown = self.expect(self.here.tool("launch", "--param", "attendee=bob@mail.example"), OK)
        self.assertNotIn("bob@", shown.out)

    def test_failures_have_their_codes(self):
        for switches, seconds, code, named in (("--error-code 2006", 60, FAILED, "was not launched"),
                                               ("--exit 3", 60, BROKEN_LAUNCHER, "exit code: 3"),
                                               ("--mute", 1, TIMED_OUT, "no answer within 1 s")):
            with self.subTest(switches):
                shown = self.here.tool("launch", "--timeout", seconds, "--json", env={"TKS_FAKE_LAUNCHER": switches})
                document = self.expect(shown, code).json()
                self.assertIn(named, document["error"]["message"])
                self.assertFalse(document["result"]["launched"])

    def test_refuses_bad_input(self):
        (self.here / "no.json").write_text("no json")
        for words, code, named in (
                (("--param", "novalue"), USAGE, '"novalue" is no KEY=VALUE'),
                (("--param-file", self.here / "none"), FAILED, "cannot be read"),
                (("--param-file", self.here / "no.json"), FAILED, "is no JSON object"),
                (("--launcher", self.here / "none.app"), BROKEN_LAUNCHER, "there is no launcher at"),
                (("--backup", self.here / "none.zip", "--version", "1"), FAILED, "there is no archive at"),
                (("--backup", "x.zip"), USAGE, "--version")):
            with self.subTest(words):
                self.expect_bad_input(self.here.tool("launch", *words), code, named)

    def interrupted(self, times):
        """Ctrl-C, so many times, for the tool alone, once the launcher, which says nothing more, was asked for the meeting. How
        long it took."""
        heard = self.here / "heard"
        heard.unlink(missing_ok=True)
        began = time.monotonic()
        done = self.here.interrupted("launch", "--json", when=f"grep -q launch_meeting {heard}", times=times, pause=0.2, alone=True,
                                     env={"TKS_FAKE_LAUNCHER": f"--received {heard} --mute-after hello"})
        self.assertEqual((done.code, done.left), (INTERRUPTED, []), done)
        self.assertEqual(json.loads(done.out)["error"]["message"], "interrupted")
        return time.monotonic() - began

    def test_ctrl_c_ends_the_conversation_and_the_launcher(self):
        self.interrupted(times=2)

    def test_a_second_ctrl_c_does_not_wait_for_the_goodbye(self):
        self.assertLess(self.interrupted(times=2), self.interrupted(times=1))


class Talk(LaunchTest):
    def test_sends_what_is_typed_and_shows_what_comes(self):
        typed = 'hello\n{"message_type": "launch_meeting", "message": {"a": "b"}}\nhistory\n!1\n!9\n{"wrong"\nquit\n'
        shown = self.expect(self.here.tool("talk", stdin=typed), OK)
        self.assertIn('host     > {"message":"","message_type":"hello"}', self.plain(shown.out))
        self.assertIn('"message":{"a":"b"}', shown.out)
        self.assertIn("1  hello\n", shown.err)
        self.assertIn("tksctl: there is no line 9\n", shown.err)
        self.assertIn("tksctl: not sent: ", shown.err)
        self.assertIn("disconnect_ack", shown.out)

    def test_ends_with_its_input(self):
        self.expect(self.here.tool("talk", stdin=""), OK)

    def test_refuses_bad_input(self):
        self.expect_bad_input(self.here.tool("talk", "--no-input"), USAGE, "--no-input")
        self.expect_bad_input(self.here.tool("talk", "--launcher", "/nonexistent"), BROKEN_LAUNCHER, "there is no launcher")


if __name__ == "__main__":
    unittest.main()
