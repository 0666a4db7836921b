"""fake-host: plays a host against launchers that keep the rules of the protocol, and against such as break one."""
import pathlib
import re
import sys
import unittest

from support import *
from test_fake_launcher import make, APP


class FakeHost(ToolTest):
    def setUp(self):
        self.here = self.folder()
        self.here.chmod(0o700)

    def host(self, *words, timeout=5, **more):
        return tool("fake-host", "--timeout", timeout, *words, env=clean_environment(TMPDIR=str(self.here)), **more)

    def examine(self, behaviour, timeout=5):
        """What it says of a launcher, by rule, and how it ends."""
        self.expect(make(self.here, behaviour), OK)
        result = self.host("--json", "--", self.here / APP, timeout=timeout)
        rules = {rule["rule"]: rule for rule in result.json()["result"]["rules"]}
        self.assertEqual([path.name for path in self.here.iterdir() if path.name.startswith("ipcFile")], [])
        return rules, result

    def states(self, rules, state):
        return {number for number, rule in rules.items() if rule["state"] == state}


class Healthy(FakeHost):
    def test_launcher_keeps_every_rule(self):
        rules, result = self.examine({})
        self.expect(result, OK)
        self.assertEqual(self.states(rules, "FAIL"), set(), result)
        self.assertEqual(self.states(rules, "SKIP"), {17, 18, 19}, result)

    def test_refusal_says_why(self):
        for error in ({"error": "2006", "text": "busy"}, {"send": "error", "body": "busy"}):
            rules, result = self.examine({"on": {"launch_meeting": [error]}})
            self.expect(result, OK)
            self.assertEqual(rules[17]["state"], "PASS", result)

    def test_launcher_that_updated_itself_quits(self):
        rules, result = self.examine({"on": {"launch_meeting": [{"send": "host_notify"}]}})
        self.expect(result, OK)
        self.assertEqual(rules[18]["state"], "PASS", result)

    def test_rules_are_those_of_the_page(self):
        rules, _ = self.examine({"on": {"hello": [{"exit": 0}]}})
        page = (SOURCE / "docs/protocol.md").read_text()
        numbers = [int(number) for number in re.findall(r"^(\d+)\. ", page, re.M)]
        self.assertEqual(list(rules), numbers)
        self.assertEqual(numbers, list(range(1, len(numbers) + 1)))

    def test_report_is_a_line_a_rule(self):
        self.expect(make(self.here), OK)
        shown = self.expect(self.host("--", self.here / APP), OK)
        self.assertTrue(shown.err.endswith("17 rules kept, 0 broken, 3 not seen\n"), shown)
        for line in shown.out.splitlines():
            self.assertRegex(line, r"^(PASS|SKIP)  rule \d+, .+: .+")

    def test_program_gets_its_own_arguments(self):
        program = self.here / "launcher"
        self.expect(make(self.here), OK)
        program.write_text(f'#!/bin/sh\n[ "$1" = --verbose ] || exit 9\nshift\nexec "{self.here / APP}/Contents/MacOS/'
                           'Tarvo Kovra Start" "$@"\n')
        program.chmod(0o755)
        self.expect(self.host("--", program, "--verbose"), OK)
        self.expect(self.host("--", program), BROKEN_LAUNCHER)

    def test_refuses_bad_input(self):
        (self.here / "file").write_text("no program")
        for words, code, named in ((("--", "/nonexistent"), BROKEN_LAUNCHER, "there is no launcher at /nonexistent"),
                                   (("--", self.here), BROKEN_LAUNCHER, "there is no launcher at"),
                                   (("--", self.here / "file"), BROKEN_LAUNCHER, "there is no launcher at"),
                                   ((), USAGE, "launcher is required")):
            self.expect_bad_input(self.host(*words), code, named)
        self.expect_bad_input(tool("fake-host", "--timeout", "0", "--", "x"), USAGE, "--timeout")


class Broken(FakeHost):
    """One rule broken at a time: it is named, with what was seen."""
    ACK = {"message_type": "hello_ack", "message": "hello_ack"}

    def breaks(self, rule, code, seen, behaviour, timeout=1):
        rules, result = self.examine(behaviour, timeout)
        self.assertEqual(rules[rule]["state"], "FAIL", result)
        self.assertIn(seen, rules[rule]["seen"])
        self.assertNotEqual(rules[rule]["remedy"], "")
        self.assertEqual(result.code, code, result)
        return rules

    def test_stray_line(self):
        self.breaks(2, FAILED, "Unexpected telling data size", {"on": {"hello": [{"print": "Segmentation fault\n"}, "answer"]}})

    def test_life_after_the_channel(self):
        self.breaks(4, TIMED_OUT, "runs on after the end", {"end": [{"wait": 20}]})

    def test_frame_without_its_end(self):
        self.breaks(5, FAILED, "announces more bytes than came", {"on": {"hello": [{"half": self.ACK}]}})

    def test_payload_that_is_no_object(self):
        self.breaks(7, FAILED, "no JSON object", {"on": {"hello": [{"frame": "hello_ack"}, "answer"]}})

    def test_message_without_a_body(self):
        self.breaks(8, FAILED, 'no "message"', {"on": {"hello": [{"frame": {"message_type": "hello_ack"}}]}})

    def test_answer_to_an_unknown_type(self):
        self.breaks(11, FAILED, 'came "error"', {"on": {"tksctl_unheard_of": [{"send": "error"}]}})

    def test_end_at_an_unknown_type(self):
        self.breaks(11, BROKEN_LAUNCHER, "exit code: 3", {"on": {"tksctl_unheard_of": [{"exit": 3}]}})

    def test_number_in_a_body(self):
        answer = {"frame": {"message_type": "launch_meeting_ack", "message": {"result": 0}}}
        self.breaks(12, FAILED, '"result" is a number', {"on": {"launch_meeting": [answer]}})

    def test_silence(self):
        rules = self.breaks(13, TIMED_OUT, "nothing came within 1 s", {"on": {"hello": []}})
        self.assertEqual(rules[14]["state"], "SKIP")

    def test_early_end(self):
        self.breaks(13, BROKEN_LAUNCHER, "exit code: 3", {"on": {"hello": [{"exit": 3}]}})

    def test_first_word(self):
        self.breaks(13, FAILED, 'spoke first: "hello_ack"', {"start": [{"send": "hello_ack"}]})

    def test_two_answers(self):
        self.breaks(14, FAILED, '"launch_meeting_ack" and then "error"', {"on": {"launch_meeting": ["answer", {"error": "2006"}]}})

    def test_no_answer_to_a_launch(self):
        self.breaks(14, TIMED_OUT, "nothing came", {"on": {"launch_meeting": []}})

    def test_no_goodbye(self):
        self.breaks(15, BROKEN_LAUNCHER, "exit code: 0", {"on": {"disconnect": [{"exit": 0}]}})

    def test_one_greeting_only(self):
        self.breaks(16, TIMED_OUT, "nothing came", {"on": {"hello": [["answer"], []]}})

    def test_refusal_with_a_code_of_its_own(self):
        self.breaks(17, FAILED, "with the code 9999", {"on": {"launch_meeting": [{"error": "9999"}]}})

    def test_update_without_quitting(self):
        self.breaks(18, TIMED_OUT, "runs on", {"on": {"launch_meeting": [{"send": "host_notify"}],
                                                      "disconnect": [{"send": "disconnect_ack"}]}})

    def test_no_goodbye_during_a_launch(self):
        rules = self.breaks(20, TIMED_OUT, "nothing came", {"on": {"disconnect": []}})
        self.assertEqual(self.states(rules, "FAIL"), {15, 20})


class BrokenByItsOwnCode(FakeHost):
    """Rules that a launcher keeps which talks through the library: each is broken by one that does not, and nothing else is."""
    FAULTY = (sys.executable, pathlib.Path(__file__).with_name("faulty_launcher.py"))

    def examine_faulty(self, fault, timeout=10):
        result = self.host("--json", "--", *self.FAULTY, fault, timeout=timeout)
        return {rule["rule"]: rule for rule in result.json()["result"]["rules"]}, result

    def breaks(self, rule, code, seen, fault, timeout=10):
        rules, result = self.examine_faulty(fault, timeout)
        self.assertEqual(self.states(rules, "FAIL"), {rule}, result)
        self.assertIn(seen, rules[rule]["seen"])
        self.assertNotEqual(rules[rule]["remedy"], "")
        self.assertEqual(result.code, code, result)

    def test_without_a_fault_it_keeps_every_rule(self):
        rules, result = self.examine_faulty("none")
        self.expect(result, OK)
        self.assertEqual(self.states(rules, "SKIP"), {17, 18, 19}, result)

    def test_pipes_whatever_the_host_says(self):
        self.breaks(1, BROKEN_LAUNCHER, "it ended with exit code: 0", "knows no files")

    def test_no_pipes_without_a_word(self):
        self.breaks(1, BROKEN_LAUNCHER, "it ended with exit code: 1", "wants to be told of pipes")

    def test_file_of_its_own(self):
        self.breaks(3, FAILED, "it made launcher.log", "makes a file")

    def test_file_replaced(self):
        self.breaks(3, FAILED, "ipcFile_TKS2Interface was replaced", "replaces its file")

    def test_file_removed(self):
        self.breaks(3, FAILED, "ipcFile_TKS2Interface was removed", "removes its file")

    def test_file_written_anew(self):
        self.breaks(3, FAILED, "ipcFile_TKS2Interface was written anew", "writes its file anew")

    def test_file_of_the_host_cut(self):
        self.breaks(3, FAILED, "ipcFile_Interface2TKS was cut", "cuts the host's file")

    def test_large_payload_refused(self):
        self.breaks(6, TIMED_OUT, "a message of 10485760 bytes was not taken", "takes only a mebibyte")

    def test_any_length_believed(self):
        self.breaks(6, TIMED_OUT, "it waits for a payload of 10485761 bytes", "takes any length", timeout=2)

    def test_first_of_two_spellings(self):
        self.breaks(9, FAILED, 'came "disconnect_ack"', "takes names in any case, the first")

    def test_last_of_two_spellings(self):
        self.breaks(9, FAILED, 'came "disconnect_ack"', "takes names in any case, the last")

    def test_text_as_body_not_answered(self):
        self.breaks(10, TIMED_OUT, "nothing came within 2 s", "has no ear for texts", timeout=2)

    def test_text_as_body_not_parsed(self):
        self.breaks(10, FAILED, "it refused as a text what it launches as an object", "takes texts for no parameters")


if __name__ == "__main__":
    unittest.main()
