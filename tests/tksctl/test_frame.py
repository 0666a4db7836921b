"""What all commands have in common: exit codes, streams, one JSON document, colours, help, man page, completions."""
import json
import pathlib
import re
import shutil
import signal
import subprocess
import time
import unittest

import jsonschema

from support import *

CODES = {
    OK: "done, and all is well",
    FAILED: "failed",
    USAGE: "called in a wrong way: an unknown option, a missing or impossible value",
    NOTHING_TO_DO: "there was nothing to do",
    NOT_TRUSTED: "a signature is missing, not valid or not the maker's",
    NO_PERMISSION: "this user may not do that there",
    TIMED_OUT: "nobody answered in time",
    BROKEN_LAUNCHER: "the launcher is missing, damaged, or ended before its work was done",
    INTERRUPTED: "interrupted by Ctrl-C or SIGTERM; nothing is left half done",
}


def commands():
    text = tool("--help").out
    return re.findall(r"^  (\S+)", text[text.index("Commands:"):text.index("\nOptions:")], re.M)


def plain(roff):
    return roff.replace("\\-", "-").replace("\\&", "")


class ExitCodes(ToolTest):
    def test_stand_in_the_help_of_every_command(self):
        for words in ([], *([name] for name in commands())):
            text = re.sub(r"\s+", " ", tool(*words, "--help").out)
            for code, meaning in CODES.items():
                self.assertIn(f" {code} {meaning}", text, words)

    def test_stand_in_the_man_page(self):
        page = plain(tool("manual").out)
        for code, meaning in CODES.items():
            self.assertIn(f".B {code}\n{meaning}\n", page)


    def test_stand_in_the_guide(self):
        page = (SOURCE / "docs/tksctl.md").read_text()
        for code, meaning in CODES.items():
            self.assertIn(f"| {code} | {meaning} |\n", page)


class WrongCalls(ToolTest):
    CALLS = (
        ((), "no command was given"),
        (("nonsense",), "nonsense"),
        (("--nonsense",), "--nonsense"),
        (("version", "--nonsense"), "--nonsense"),
        (("version", "word"), "word"),
        (("completion",), "shell"),
        (("completion", "powershell"), "powershell"),
        (("version", "--color", "sometimes"), "sometimes"),
    )

    def test_end_with_2_and_one_line(self):
        for words, named in self.CALLS:
            with self.subTest(words):
                self.expect_bad_input(tool(*words), USAGE, named)

    def test_give_one_document_with_json(self):
        for words, named in self.CALLS:
            with self.subTest(words):
                document = self.expect(tool(*words, "--json"), USAGE).json()
                self.assertEqual(document["exitCode"], USAGE)
                self.assertIn(named, document["error"]["message"])

    def test_name_the_command_that_may_have_been_meant(self):
        self.assertIn("did you mean version?", tool("versoin").err)


class Help(ToolTest):
    def test_is_on_standard_output_for_every_command(self):
        for name in commands():
            shown = self.expect(tool(name, "--help"), OK, err="")
            self.assertTrue(shown.out.startswith(f"tksctl {name}: "), shown)
            self.assertIn("\nExamples:\n", shown.out)
            self.assertEqual(tool("help", name).out, shown.out)

    def test_fits_the_width(self):
        for name in commands():
            for line in tool(name, "--help", env=clean_environment(COLUMNS="60")).out.splitlines():
                if not line.startswith("  "):
                    self.assertLessEqual(len(line), 60, line)

    def test_and_man_page_have_the_same_options(self):
        page = plain(tool("manual").out)
        for name in commands():
            text = tool(name, "--help").out
            options = text[:text.index("Common options:")]
            for option in re.findall(r"^  (-{1,2}[\w-]+(?:, --[\w-]+)?(?: [A-Z]\S*)?)", options, re.M):
                section = page[page.index(f".SS tksctl {name}\n"):]
                self.assertIn(f".B {option}\n", section, name)

    def test_man_page_is_understood_by_man(self):
        shown = run(["man", "-l", "--warnings", "-"], stdin=tool("manual").out, env=clean_environment(MANWIDTH="100"))
        if shown.code == 127:
            self.skipTest("needs man")
        self.assertEqual((shown.code, shown.err), (0, ""), shown)


class Completions(ToolTest):
    def complete(self, line):
        words = line.split(" ")
        script = (tool("completion", "bash").out + f"COMP_WORDS=({' '.join(repr(word) for word in words)}); "
                  f"COMP_CWORD={len(words) - 1}; _tksctl; printf '%s\\n' \"${{COMPREPLY[@]}}\"")
        return self.expect(run(["bash", "-c", script]), 0, err="").out.split()

    def test_of_bash_know_commands_and_options(self):
        self.assertEqual(self.complete("tksctl vers"), ["version"])
        self.assertEqual(self.complete("tksctl version --js"), ["--json"])
        self.assertEqual(sorted(set(commands()) - set(self.complete("tksctl "))), [])

    def test_are_programs_that_their_shells_read(self):
        for shell in ("bash", "zsh", "fish"):
            script = self.expect(tool("completion", shell), OK, err="").out
            if not shutil.which(shell):
                continue
            self.expect(run([shell, "-n"], stdin=script), 0, err="")

    def test_of_fish_offer_commands(self):
        if not shutil.which("fish"):
            self.skipTest("needs fish")
        home = self.folder()
        script = tool("completion", "fish").out + "\ncomplete -C'tksctl vers'\n"
        shown = run(["fish", "--no-config"], stdin=script, env=clean_environment(HOME=str(home)))
        self.assertIn("version\t", shown.out, shown)


class Interrupted(ToolTest):
    def interrupt(self, number, *words):
        child = subprocess.Popen([TOOL, *words], stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.addCleanup(child.kill)
        facts = pathlib.Path(f"/proc/{child.pid}/status")
        while not int(re.search(r"SigCgt:\s+(\w+)", facts.read_text()).group(1), 16) >> (number - 1) & 1:
            time.sleep(0.005)
        child.send_signal(number)
        out, err = child.communicate(timeout=30)
        return Result(child.returncode, out.decode(), err.decode())

    def test_commands_end_with_130(self):
        for number in (signal.SIGINT, signal.SIGTERM):
            self.expect(self.interrupt(number, "mask"), INTERRUPTED, "", "")

    def test_commands_print_their_document_all_the_same(self):
        document = self.expect(self.interrupt(signal.SIGINT, "mask", "--json"), INTERRUPTED, err="").json()
        self.assertEqual((document["command"], document["exitCode"], document["error"]["reason"]), ("mask", 130, "cancelled"))


class Schema(ToolTest):
    def test_is_one_and_knows_every_command(self):
        jsonschema.Draft202012Validator.check_schema(SCHEMA)
        known = {rule["if"]["properties"]["command"]["const"] for rule in SCHEMA["allOf"]
                 if "command" in rule["if"]["properties"]}
        self.assertEqual(set(commands()) - known, set())

    def test_refuses_what_no_command_says(self):
        document = json.loads(tool("version", "--json").out)
        document["result"]["nonsense"] = 1
        with self.assertRaises(jsonschema.ValidationError):
            jsonschema.validate(document, SCHEMA)


class Streams(ToolTest):
    def test_data_that_cannot_be_written_is_a_failure(self):
        with open("/dev/full", "w") as full:
            done = subprocess.run([TOOL, "version"], stdout=full, stderr=subprocess.PIPE, text=True)
        self.assertEqual((done.returncode, done.stderr), (FAILED, "tksctl: cannot write to standard output\n"))

    def test_a_reader_that_is_gone_is_a_failure_and_no_signal(self):
        done = subprocess.run(["bash", "-c", '"$0" version | :; echo ${PIPESTATUS[0]}', TOOL], capture_output=True, text=True)
        self.assertIn(done.stdout.strip(), ("0", "1"))

    def test_json_is_one_document_with_its_members(self):
        document = self.expect(tool("--json", "version"), OK, err="").json()
        self.assertEqual(sorted(document), ["command", "error", "exitCode", "result", "tool", "version"])
        self.assertEqual((document["command"], document["error"], document["tool"]), ("version", None, "tksctl"))
        self.assertEqual(tool("version", "--json").json(), document)


if __name__ == "__main__":
    unittest.main()
