"""explain and mask."""
import re
import unittest

from support import *

TABLES = SOURCE / "docs/catalogue"
EXAMPLES = {"%@": "Some Thing", "%s": "-[Some thing]", "%i": "17", "%d": "-4", "%lu": "1234", "%u": "99"}


def table(name):
    lines = (TABLES / f"{name}.tsv").read_text().splitlines()
    return [line.split("\t") for line in lines if line and not line.startswith("#")]


def made_from(text):
    return re.sub(r"%(@|s|i|d|lu|u)", lambda found: EXAMPLES[found.group(0)], text)


class Explain(ToolTest):
    def texts(self, *words):
        document = self.expect(tool("explain", "--json", *words), OK, err="").json()
        return [entry.get("text") for entry in document["result"]["explanations"]]

    def test_knows_every_text_code_and_status(self):
        listed = self.expect(tool("explain", "--list", "--json"), OK, err="").json()["result"]["explanations"]
        for entry in listed:
            self.assertTrue(entry["meaning"] and entry["remedy"], entry)
        texts = {entry.get("text") for entry in listed}
        self.assertEqual({row[2] for row in table("log_texts")} - texts, set())
        self.assertEqual({row[3] for row in table("errors") if row[0] not in ("-", "TKSITKSDomain")} - texts, set())
        statuses = {entry["code"] for entry in listed if entry["kind"] == "signature status"}
        self.assertEqual({int(row[0]) for row in table("statuses")}, statuses)
        source = (SOURCE / "codesign/container/status.h").read_text()
        self.assertEqual({int(number) for number in re.findall(r"Status k\w+ = (-?\d+);", source)} - statuses, set())
        reasons = re.findall(r"^  (\w+) = \d+,", (SOURCE / "include/tksinterface/TKSError.h").read_text(), re.M)
        self.assertEqual([entry["reason"] for entry in listed if entry["kind"] == "reason"], reasons)

    def test_finds_texts_with_what_differs_filled_in(self):
        rows = [row[2] for row in table("log_texts")] + [row[3] for row in table("errors") if row[0] != "-"]
        for text in rows[::9]:
            if len(re.sub(r"%\w+|%@", "", text)) < 8:
                continue
            with self.subTest(text):
                self.assertEqual(self.texts(made_from(text).strip())[0].strip(), text.strip())

    def test_explains_what_stands_inside_of_a_text(self):
        line = ('  [8] Start failed: Error Domain=TKSIDefaultDomain Code=0 "Launch app failed. Path: /x/y. Error: Security check '
                'failed: Code object is not signed at all. Internal error details: none"')
        self.assertEqual(self.texts(line), [
            "Start failed: %@", "Launch app failed. Path: %@. Error: %@", "Security check failed: %@",
            "%@ Internal error details: %@", "Code object is not signed at all."])

    def test_shows_kind_meaning_and_remedy(self):
        shown = self.expect(tool("explain", "--", "-67054", env=clean_environment(COLUMNS="200")), OK, err="")
        self.assertEqual(shown.out, "signature status -67054: a sealed resource is missing or invalid\n"
                         "  A sealed file was changed, removed or added after signing. tksctl verify names it.\n"
                         "  What to do: Install the launcher again; never write into the bundle after signing.\n")

    def test_takes_domains_with_codes_and_names(self):
        for words, reason in ((("TKSITKSDomain", "2006"), "busy"), (("NSPOSIXErrorDomain 28",), "noRoom"),
                              (("notTrusted",), "notTrusted"), (('Error Domain=NSCocoaErrorDomain Code=513 "x"',), "noPermission")):
            document = self.expect(tool("explain", "--json", *words), OK, err="").json()
            self.assertEqual(document["result"]["explanations"][0]["reason"], reason, words)

    def test_finds_texts_by_a_part_in_any_case(self):
        self.assertIn("TKS app failed to quit, checking timeout. Path: %@", self.texts("FAILED TO QUIT"))

    def test_says_so_when_nothing_is_known(self):
        self.expect_bad_input(tool("explain", "xyzzy"), FAILED, "nothing is known of: xyzzy")
        self.assertEqual(self.expect(tool("explain", "xyzzy", "--json"), FAILED).json()["error"]["code"], 1)
        self.expect_bad_input(tool("explain"), USAGE, "CODE|TEXT")

    def test_colours_its_headlines_on_a_terminal_only(self):
        words = [TOOL, "explain", "notTrusted"]
        for variables, coloured in (({"TERM": "xterm"}, True), ({"TERM": "dumb"}, False), ({"TERM": "xterm", "NO_COLOR": "1"}, False)):
            self.assertEqual("\x1b[" in in_terminal(words, env=clean_environment(**variables))[0], coloured, variables)
        self.assertNotIn("\x1b[", tool("explain", "notTrusted").out)
        self.assertIn("\x1b[1m", tool("explain", "notTrusted", "--color", "always").out)
        self.assertNotIn("\x1b[", in_terminal([*words, "--color=never"])[0])

    def test_breaks_lines_at_the_width_of_the_terminal(self):
        shown = in_terminal([TOOL, "explain", "--", "-67062"], columns=50)[0]
        self.assertTrue(all(len(line) <= 70 for line in shown.splitlines()), shown)
        self.assertGreater(len(shown.splitlines()), 4)


class Mask(ToolTest):
    def test_masks_line_by_line_by_the_rules_of_the_log(self):
        self.expect(tool("mask", stdin="user bob@mail.example\nplain\n/Users/bobby/x"), OK,
                    "user ***@mail.example\nplain\n/Users/*****/x", "")

    def test_keeps_any_bytes(self):
        self.expect(tool("mask", stdin=""), OK, "", "")
        done = subprocess.run([TOOL, "mask"], input=b"\xff\x00\n", capture_output=True)
        self.assertEqual((done.returncode, done.stdout), (0, b"\xff\x00\n"))

    def test_gives_one_document_with_json(self):
        document = self.expect(tool("mask", "--json", stdin="a@b.example\n"), OK, err="").json()
        self.assertEqual(document["result"]["text"], "*@b.example\n")


if __name__ == "__main__":
    unittest.main()
