"""plist and prefs."""
import plistlib
import unittest

from support import *


class Plist(ToolTest):
    def setUp(self):
        self.file = self.folder() / "list.plist"
        self.file.write_bytes(plistlib.dumps({"text": "a", "on": True, "list": [1, {"deep": "value"}], "data": b"\x01"}))

    def test_get_shows_values_under_keys(self):
        for keys, shown in ((["text"], "a\n"), (["on"], "true\n"), (["list", "1", "deep"], "value\n"), (["data"], "AQ==\n"),
                            (["list", "1"], '{\n  "deep": "value"\n}\n')):
            self.expect(tool("plist", "get", self.file, *keys), OK, shown, "")

    def test_print_shows_all_as_json(self):
        shown = self.expect(tool("plist", "print", self.file), OK, err="")
        self.assertEqual(json.loads(shown.out), {"text": "a", "on": True, "list": [1, {"deep": "value"}], "data": "AQ=="})
        self.assertEqual(self.expect(tool("plist", "print", self.file, "--json"), OK).json()["result"]["value"],
                         json.loads(shown.out))

    def test_set_stores_values_of_every_type(self):
        for kind, word, stored in (("text", "x", "x"), ("boolean", "true", True), ("integer", "-7", -7), ("real", "0.5", 0.5),
                                   ("data", "AQI=", b"\x01\x02"), ("json", '{"a": [1]}', {"a": [1]})):
            self.expect(tool("plist", "set", "--type", kind, self.file, "new", "below", word), OK, "", "")
            self.assertEqual(plistlib.loads(self.file.read_bytes())["new"]["below"], stored)
        self.expect(tool("plist", "set", self.file.parent / "fresh.plist", "a", "b"), OK, "", "")
        self.assertEqual(plistlib.loads((self.file.parent / "fresh.plist").read_bytes()), {"a": "b"})

    def test_refuses_bad_input_and_loses_nothing(self):
        wrong = self.file.parent / "wrong.plist"
        wrong.write_text("no list")
        for words, code, named in (
                (("get", "/nonexistent", "a"), FAILED, "cannot read /nonexistent"),
                (("get", wrong, "a"), FAILED, "is no property list"),
                (("get", self.file, "none"), FAILED, "there is no value under none"),
                (("set", wrong, "a", "b"), FAILED, "is no property list"),
                (("set", self.file, "a"), USAGE, "KEY and VALUE are required"),
                (("set", self.file, "a", "x", "--type", "integer"), FAILED, '"x" is no integer'),
                (("set", self.file, "a", "x", "--type", "colour"), USAGE, "colour"),
                ((), USAGE, "subcommand")):
            with self.subTest(words):
                self.expect_bad_input(tool("plist", *words), code, named)
        self.assertEqual(wrong.read_text(), "no list")


class Prefs(ToolTest):
    def test_are_those_of_all_programs_or_of_one_host(self):
        world = self.world()
        self.expect_bad_input(world.tool("prefs", "get", "IsLabDevice"), FAILED, "the preference IsLabDevice is not set")
        self.expect(world.tool("prefs", "set", "IsLabDevice", "true", "--type", "boolean"), OK, "", "")
        self.expect(world.tool("prefs", "set", "--domain", "my.host", "Name", "value"), OK, "", "")
        folder = world.home / "Library/Preferences"
        self.assertEqual(plistlib.loads((folder / ".GlobalPreferences.plist").read_bytes()), {"IsLabDevice": True})
        self.assertEqual(plistlib.loads((folder / "my.host.plist").read_bytes()), {"Name": "value"})
        self.expect(world.tool("prefs", "get", "IsLabDevice"), OK, "true\n", "")
        document = self.expect(world.tool("prefs", "get", "--domain", "my.host", "--json"), OK).json()
        self.assertEqual(document["result"]["value"], {"Name": "value"})
        self.expect(world.tool("prefs", "set", "IsLabDevice", "--remove"), OK, "", "")
        self.expect(world.tool("prefs", "set", "IsLabDevice", "--remove"), NOTHING_TO_DO, "",
                    "the preference IsLabDevice is not set\n")

    def test_refuse_bad_input_and_lose_nothing(self):
        world = self.world()
        file = world.home / "Library/Preferences/my.host.plist"
        file.parent.mkdir(parents=True)
        file.write_text("damaged")
        for words, code, named in (
                (("get", "--domain", "my.host", "a"), FAILED, "cannot read"),
                (("set", "--domain", "my.host", "a", "b"), FAILED, "cannot read"),
                (("set", "--domain", "../x", "a", "b"), USAGE, "../x"),
                (("set", "a"), USAGE, "give a VALUE, or --remove"),
                (("set", "a", "x", "--type", "boolean"), FAILED, '"x" is no boolean')):
            with self.subTest(words):
                self.expect_bad_input(world.tool("prefs", *words), code, named)
        self.assertEqual(file.read_text(), "damaged")


if __name__ == "__main__":
    unittest.main()
