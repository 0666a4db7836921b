"""fake-launcher: launchers for tests of hosts. A host of the library talks to each of them."""
import json
import os
import plistlib
import unittest

import jsonschema

from support import *

FORM = json.loads((SOURCE / "docs/fake-launcher.schema.json").read_text())
APP = "Tarvo Kovra Start.app"


def make(folder, behaviour=None, *words, **more):
    """Makes a launcher in a folder; `behaviour`: a script, or the text of its file."""
    if behaviour is not None:
        file = pathlib.Path(folder) / "behaviour.json"
        file.write_text(behaviour if isinstance(behaviour, str) else json.dumps(behaviour))
        words = ("--behaviour", file, *words)
    return tool("fake-launcher", folder, "--identity", Maker.identity(), *words, **more)


class FakeLauncher(ToolTest):
    def setUp(self):
        self.here = self.folder()

    def made(self, behaviour=None, *words):
        return pathlib.Path(self.expect(make(self.here, behaviour, *words), OK, err="").out.rstrip("\n"))

    def version(self, bundle):
        return plistlib.loads((bundle / "Contents/Info.plist").read_bytes())["CFBundleVersion"]

    def left(self):
        return sorted(path.name for path in self.here.iterdir() if path.name != "behaviour.json")


class Made(FakeLauncher):
    def test_is_a_signed_launcher_of_the_maker(self):
        bundle = self.made()
        self.assertEqual((bundle, self.left()), (self.here / APP, [APP]))
        self.expect(tool("verify", "--deep", bundle), OK)
        self.expect(tool("assess", bundle), OK)
        self.assertEqual(self.version(bundle), "5.0.0")

    def test_has_an_identity_of_its_own_where_none_is_given(self):
        self.expect(tool("fake-launcher", self.here), OK, out=f"{self.here / APP}\n", err="")
        self.expect(tool("verify", "--deep", self.here / APP), OK)

    def test_tells_programs_where_it_is(self):
        script = {"version": "6.1.0", "on": {"hello": ["update"]}, "update": {"version": "6.2.0", "update": {}}}
        done = self.expect(make(self.here, script, "--json"), OK).json()
        self.assertEqual(done["result"], {"path": str(self.here / APP), "version": "6.1.0", "updates": ["6.2.0", "6.2.0"]})

    def test_has_the_version_that_is_asked_for(self):
        self.assertEqual(self.version(self.made({"version": "6.1.0"})), "6.1.0")
        self.assertEqual(self.version(self.made({"version": "6.1.0"}, "--version", "7.0.0")), "7.0.0")

    def test_signs_what_it_updates_itself_to(self):
        bundle = self.made({"on": {"launch_meeting": ["update"]}, "update": {"version": "5.2.0"}})
        self.expect(tool("verify", "--deep", bundle), OK)
        self.expect(tool("verify", "--deep", bundle / "Contents/Resources/Update" / APP), OK)

    def test_takes_the_place_of_an_older_one_only(self):
        self.made({"version": "6.1.0"})
        self.assertEqual(self.version(self.made({"version": "6.2.0"})), "6.2.0")
        other = self.here / "other"
        (other / APP / "Contents").mkdir(parents=True)
        self.expect_bad_input(make(other), FAILED, "is no fake launcher and is left alone")
        self.assertEqual([path.name for path in other.iterdir()], [APP])
        link = self.here / "link"
        link.mkdir()
        (link / APP).symlink_to(self.here / APP)
        self.expect_bad_input(make(link), FAILED, "is no fake launcher")
        self.assertTrue((link / APP).is_symlink())

    def test_refuses_what_it_cannot_work_with(self):
        (self.here / "file").write_text("x")
        for words, named in ((("--behaviour", "/nonexistent"), '"/nonexistent": No such file'),
                             (("--behaviour", self.here), f'"{self.here}": Is a directory'),
                             (("--identity", self.here / "none"), "there is no identity in")):
            with self.subTest(words):
                self.expect_bad_input(tool("fake-launcher", self.here / "new", *words), FAILED, named)
                self.assertFalse((self.here / "new").exists())
        self.assertNotEqual(self.expect_bad_input(make(self.here / "file/below"), FAILED, "file/below").code, OK)
        self.expect_bad_input(tool("fake-launcher"), USAGE, "folder is required")


class Behaviour(FakeLauncher):
    RIGHT = (
        {}, {"version": "5.1"}, {"start": [{"wait": 0}], "end": ["answer"]},
        {"on": {"hello": []}}, {"on": {"hello": [["answer"], [], [{"exit": 3}]]}},
        {"on": {"hello": [{"send": "hello_ack", "body": {"a": "b"}}, {"error": "2006", "text": "busy"}, {"hex": "00 fF"}]}},
        {"on": {"hello": [{"half": {"message_type": "x"}, "bytes": 3}, {"frame": "no JSON"}, {"print": "\n"}, {"signal": 9}]}},
    )
    WRONG = (
        ([], "is no JSON object"), ("{", "is no JSON object"),
        ({"wat": 1}, "wat: it is unknown"), ({"version": 5}, "version: it takes a text"),
        ({"on": []}, "on: it takes an object"), ({"on": {"hello": "answer"}}, "on.hello: it takes an array"),
        ({"on": {"hello": ["wai"]}}, 'on.hello[0]: there is no step "wai"'),
        ({"on": {"hello": ["answer", {"wait": "1"}]}}, "on.hello[1]: it takes a number from 0 to 3600"),
        ({"on": {"hello": [{"wait": -1}]}}, "a number from 0"), ({"on": {"hello": [{"wait": True}]}}, "a number from 0"),
        ({"on": {"hello": [["answer"], [{"exit": 256}]]}}, "on.hello[1][0]: it takes a number from 0 to 255"),
        ({"start": [{"exit": 1.5}]}, "start[0]: it takes a whole number"),
        ({"start": [{"exit": 1, "text": "x"}]}, '"text" does not belong to "exit"'),
        ({"start": [{"send": "x", "body": 7}]}, "the body is a text or an object"),
        ({"start": [{"hex": "0"}]}, "pairs of hexadecimal digits"), ({"start": [{"signal": 0}]}, "from 1 to 64"),
        ({"start": [{"half": "abc", "bytes": 8}]}, "from 0 to 7"), ({"start": [7]}, "a step is a text or an object"),
        ({"start": ["update"]}, "but to what is missing"), ({"update": {"start": 1}}, "update.start: it takes an array"),
        ({"update": {"update": {"update": {"update": {"update": {}}}}}}, "at most 4 updates"),
    )

    def test_of_a_right_form_is_taken(self):
        for script in self.RIGHT:
            with self.subTest(script):
                jsonschema.validate(script, FORM)
                self.made(script)

    def test_of_a_wrong_form_is_named_with_its_place(self):
        for script, named in self.WRONG:
            with self.subTest(script):
                self.expect_bad_input(make(self.here, script), FAILED, named)
                self.assertEqual(self.left(), [])

    def test_of_a_wrong_form_is_refused_by_the_schema_as_well(self):
        beyond_a_schema = ("is no JSON object", "but to what is missing", "from 0 to 7", "at most 4 updates")
        for script, named in self.WRONG:
            if named not in beyond_a_schema:
                with self.subTest(script), self.assertRaises(jsonschema.ValidationError):
                    jsonschema.validate(script, FORM)


class WithHost(ToolTest):
    """A host of the library launches a meeting with it."""

    def setUp(self):
        self.here = self.world()

    def launch(self, behaviour, *words, timeout=60):
        self.bundle = self.here / APP
        self.assertEqual(make(self.here.folder, behaviour).code, OK)
        done = self.here.tool("launch", "--json", "--timeout", timeout, "--launcher", self.bundle, *words)
        return done.code, done.json(), done

    def types(self, document, kind="received"):
        return [json.loads(event["text"])["message_type"] for event in document["result"]["events"] if event["kind"] == kind]

    def test_without_faults_keeps_the_protocol_over_both_channels(self):
        for words in ((), ("--files",)):
            code, document, done = self.launch({}, *words)
            self.assertEqual(code, OK, done)
            self.assertEqual(self.types(document), ["hello_ack", "launch_meeting_ack", "disconnect_ack"])

    def test_waits(self):
        code, document, done = self.launch({"on": {"launch_meeting": [{"wait": 0.3}, "answer"]}})
        self.assertEqual(code, OK, done)
        at = {json.loads(event["text"])["message_type"]: event["time"] for event in document["result"]["events"]
              if event["kind"] in ("sent", "received")}
        self.assertGreaterEqual(at["launch_meeting_ack"] - at["launch_meeting"], 0.29)

    def test_refuses_with_a_code(self):
        for words in ((), ("--files",)):
            code, document, done = self.launch({"on": {"launch_meeting": [{"error": "2006", "text": "busy"}]}}, *words)
            self.assertEqual((code, document["error"]["domain"], document["error"]["code"]), (FAILED, "TKSITKSDomain", 2006), done)

    def test_is_silent(self):
        for script in ({"on": {"hello": ["silence"]}}, {"on": {"launch_meeting": []}}):
            code, document, done = self.launch(script, timeout=1)
            self.assertEqual((code, document["result"]["launched"]), (TIMED_OUT, False), done)

    def test_ends_in_the_middle(self):
        for script in ({"on": {"hello": [{"exit": 3}]}}, {"start": [{"exit": 4}]}, {"on": {"launch_meeting": [{"signal": 9}]}}):
            code, document, done = self.launch(script)
            self.assertEqual((code, document["error"]["reason"]), (BROKEN_LAUNCHER, "endedEarly"), done)

    def test_breaks_frames(self):
        ack = {"message_type": "hello_ack", "message": "hello_ack"}
        for steps, named in (([{"half": ack}, {"exit": 0}], "Message data empty"),
                             ([{"half": ack, "bytes": 2}, {"exit": 0}], "less than 'sizeOfSize'"),
                             ([{"print": "Segmentation fault\n"}], "Unexpected telling data size"),
                             ([{"hex": "ffffffff 00"}], "Unexpected telling data size"),
                             ([{"frame": "{no JSON"}], "Error when parse JSON"),
                             ([{"frame": {"message_type": "hello_ack"}}], "Error when parse JSON")):
            with self.subTest(named):
                code, document, done = self.launch({"on": {"hello": steps}}, timeout=20)
                self.assertNotEqual(code, OK, done)
                self.assertTrue(any(event["kind"] == "fatalError" and named in event["text"]
                                    for event in document["result"]["events"]), done)

    def test_breaks_frames_over_files_as_well(self):
        code, document, done = self.launch({"on": {"hello": [{"print": "Segmentation fault\n"}]}}, "--files", timeout=20)
        self.assertNotEqual(code, OK, done)
        self.assertIn("Unexpected telling data size", done.out)

    def test_updates_itself(self):
        for words in ((), ("--files",)):
            script = {"version": "5.1.0", "on": {"launch_meeting": ["update"]}, "update": {"version": "5.2.0"}}
            code, document, done = self.launch(script, *words)
            self.assertEqual(code, OK, done)
            self.assertEqual(self.types(document), ["hello_ack", "host_notify", "disconnect_ack",
                                                    "hello_ack", "launch_meeting_ack", "disconnect_ack"])
            self.assertIn(b"5.2.0", (self.bundle / "Contents/Info.plist").read_bytes())
            self.assertEqual([path.name for path in self.here.folder.iterdir() if path.name.startswith(".")], [])

    def test_goes_by_the_order_of_messages(self):
        self.assertEqual(make(self.here.folder, {"on": {"hello": [["answer"], [{"send": "second"}]]}}).code, OK)
        shown = self.here.tool("talk", "--launcher", self.here / APP, stdin="hello\nhello\n")
        self.assertEqual(shown.code, OK, shown)
        self.assertIn('"message_type":"second"', shown.out)

    def test_is_installed_from_an_archive(self):
        self.assertEqual(make(self.here.folder, {"version": "5.1.0"}).code, OK)
        archive = Maker.archive(self.here / APP, self.here / "launcher.zip")
        done = self.here.tool("launch", "--json", "--backup", archive, "--version", "5.1.0")
        self.assertEqual((done.code, self.here.launcher.exists()), (OK, True), done)

    def test_is_sound_to_the_doctor(self):
        self.assertEqual(make(self.here.folder).code, OK)
        states = {check["id"]: check["state"] for check in
                  self.here.tool("doctor", "--json", "--launcher", self.here / APP).json()["result"]["checks"]}
        self.assertEqual({name for name, state in states.items() if state not in ("PASS", "SKIP")}, set(), states)


class ByHand(FakeLauncher):
    def test_says_what_it_is_for_without_a_bundle(self):
        done = run([str(BUILD / "fake-launcher")])
        self.assertEqual(done.code, 64, done)
        self.assertIn("tksctl fake-launcher", done.err)

    def test_ends_with_its_channel(self):
        program = self.made({"end": [{"exit": 9}]}) / "Contents/MacOS/Tarvo Kovra Start"
        self.assertEqual(run([str(program)]).code, 9)
        program = self.made() / "Contents/MacOS/Tarvo Kovra Start"
        self.assertEqual(run([str(program)]).code, 1)


if __name__ == "__main__":
    unittest.main()
