"""record, diagram and replay: conversations in files."""
import html.parser
import json
import os
import signal
import stat
import struct
import subprocess
import sys
import time
import unittest
import xml.etree.ElementTree

from support import *

LAUNCHER = f"""#!{sys.executable}
import json, struct, sys
answers = json.load(open(sys.argv[1])) if len(sys.argv) > 1 else {{}}
def read():
    head = sys.stdin.buffer.read(4)
    length = struct.unpack("<I", head)[0] if len(head) == 4 else 0
    payload = sys.stdin.buffer.read(length)
    return json.loads(payload) if length and len(payload) == length else None
def say(message):
    payload = json.dumps(message).encode()
    sys.stdout.buffer.write(struct.pack("<I", len(payload)) + payload)
    sys.stdout.buffer.flush()
while (message := read()) is not None:
    kind = message["message_type"]
    for answer in answers.get(kind, [{{"message_type": kind + "_ack", "message": kind + "_ack"}}]):
        if answer == "quit":
            sys.exit(3)
        if answer == "stray":
            sys.stdout.buffer.write(b"Segmentation fault\\n")
            sys.stdout.buffer.flush()
            continue
        say(answer)
    if kind == "disconnect":
        break
"""
HELLO = {"message_type": "hello", "message": "hello"}
LAUNCH = {"message_type": "launch_meeting", "token": "secret-token-1", "domain": "https://meet.tarvo.example",
          "message": {"attendee": "ann.example@tarvo.example", "meetingkey": "123 456 789", "isdownloadonly": "1",
                      "list": ["Ann Example", 7, True], "deep": {"name": "Ann Example", "status": "ok"}}}
DISCONNECT = {"message_type": "disconnect", "message": "disconnect"}
PERSONAL = ("secret-token-1", "meet.tarvo.example", "ann.example", "123 456", "Ann Example")


def frame(message):
    payload = json.dumps(message).encode()
    return struct.pack("<I", len(payload)) + payload


def messages(data):
    found = []
    while data:
        length = struct.unpack("<I", data[:4])[0]
        found.append(json.loads(data[4:4 + length]))
        data = data[4 + length:]
    return found


class RecordingTest(ToolTest):
    def setUp(self):
        self.here = self.folder()
        self.launcher = self.here / "launcher"
        self.launcher.write_text(LAUNCHER)
        self.launcher.chmod(0o755)
        self.file = self.here / "talk.jsonl"

    def launcher_with(self, answers):
        """The launcher's command: it answers as the protocol has it, but for the types in `answers`."""
        if answers is None:
            return [str(self.launcher)]
        (self.here / "answers").write_text(json.dumps(answers))
        return [str(self.launcher), str(self.here / "answers")]

    def record(self, *said, answers=None, raw=b""):
        """Plays the host; the tool's end, what the host heard, and the lines of the recording."""
        words = [TOOL, "record", str(self.file), "--", *self.launcher_with(answers)]
        done = subprocess.run(words, input=b"".join(map(frame, said)) + raw, capture_output=True, timeout=60,
                              env=clean_environment())
        lines = [json.loads(line) for line in self.file.read_text().splitlines()]
        return done, done.stdout, lines

    def recorded(self, *said, **more):
        done, heard, lines = self.record(*said, **more)
        self.assertEqual((done.returncode, done.stderr), (0, b""))
        return heard, lines


class Record(RecordingTest):
    def test_passes_everything_on_and_writes_each_message_down(self):
        heard, lines = self.recorded(HELLO, LAUNCH, DISCONNECT)
        self.assertEqual([each["message_type"] for each in messages(heard)],
                         ["hello_ack", "launch_meeting_ack", "disconnect_ack"])
        head, events = lines[0], lines[1:]
        self.assertEqual((head["format"], head["formatVersion"]), ("tksinterface recording", 1))
        self.assertEqual([(each["event"], each.get("direction")) for each in events if each["event"] != "message"],
                         [("started", None), *sorted([("closed", "toHost"), ("closed", "toLauncher")],
                          key=[(each["event"], each.get("direction")) for each in events].index), ("ended", None)])
        told = [(each["direction"], each["type"]) for each in events if each["event"] == "message"]
        self.assertEqual(sorted(told), sorted([("toLauncher", "hello"), ("toHost", "hello_ack"),
                                               ("toLauncher", "launch_meeting"), ("toHost", "launch_meeting_ack"),
                                               ("toLauncher", "disconnect"), ("toHost", "disconnect_ack")]))
        for kind in ("hello", "launch_meeting", "disconnect"):
            self.assertLess(told.index(("toLauncher", kind)), told.index(("toHost", kind + "_ack")))

    def test_tells_lengths_times_processes_and_ends(self):
        _, lines = self.recorded(HELLO, DISCONNECT)
        hello = next(each for each in lines[1:] if each.get("type") == "hello")
        self.assertEqual(hello["length"], len(frame(HELLO)) - 4)
        self.assertRegex(hello["time"], r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z$")
        seconds = [each["seconds"] for each in lines[1:]]
        self.assertTrue(all(each >= 0 for each in seconds), seconds)
        self.assertEqual(lines[-1]["note"], "exit code: 0")
        self.assertEqual(lines[-1]["pid"], lines[1]["pid"])

    def test_keeps_no_personal_data_and_is_the_users_alone(self):
        self.recorded(HELLO, LAUNCH, DISCONNECT)
        text = self.file.read_text()
        for personal in PERSONAL:
            self.assertNotIn(personal, text)
        message = next(json.loads(line) for line in text.splitlines() if '"launch_meeting"' in line)["message"]
        self.assertEqual(message["message"]["isdownloadonly"], "1")
        self.assertEqual(message["message"]["list"][1:], [7, True])
        self.assertEqual(message["message"]["deep"]["status"], "ok")
        self.assertEqual(stat.S_IMODE(self.file.stat().st_mode), 0o600)

    def test_tells_what_is_no_frame_and_goes_on_passing(self):
        done, heard, lines = self.record(HELLO, DISCONNECT, answers={"hello": ["stray"]})
        self.assertIn(b"Segmentation fault\n", heard)
        self.assertEqual([each["note"] for each in lines if each.get("event") == "noMessage"],
                         ["no frame: it announces 1835492691 bytes"])
        self.assertEqual(done.returncode, 0)

    def test_tells_a_frame_that_was_cut(self):
        _, lines = self.recorded(HELLO, raw=frame(LAUNCH)[:50])
        self.assertEqual([each["note"] for each in lines if each.get("event") == "noMessage"],
                         ["ended inside a frame, after 50 bytes of it"])

    def test_ends_with_7_when_the_launcher_fails(self):
        done, _, lines = self.record(HELLO, answers={"hello": ["quit"]})
        self.assertEqual((done.returncode, done.stderr), (7, b"tksctl: the command ended with exit code: 3\n"))
        self.assertEqual(lines[-1]["note"], "exit code: 3")

    def test_passes_large_messages_both_ways_at_once(self):
        large = {"message_type": "echo", "message": {"status": "x" * 9_000_000}}
        heard, lines = self.recorded(large, large, DISCONNECT, answers={"echo": [large]})
        self.assertEqual(messages(heard)[:2], [large, large])
        self.assertEqual(len([each for each in lines if each.get("type") == "echo"]), 4)

    def test_ends_with_its_host_and_takes_the_launcher_along(self):
        words = [TOOL, "record", str(self.file), "--", str(self.launcher)]
        running = subprocess.Popen(words, stdin=subprocess.PIPE, stdout=subprocess.PIPE, env=clean_environment())
        running.stdin.write(frame(HELLO))
        running.stdin.flush()
        running.stdout.read(4)
        running.stdin.close()
        self.assertEqual(running.wait(timeout=30), 0)
        running.stdout.close()

    def test_ends_its_launcher_when_it_is_interrupted(self):
        words = [TOOL, "record", str(self.file), "--", str(self.launcher)]
        running = subprocess.Popen(words, stdin=subprocess.PIPE, stdout=subprocess.PIPE, env=clean_environment())
        running.stdin.write(frame(HELLO))
        running.stdin.flush()
        running.stdout.read(4)
        running.send_signal(signal.SIGINT)
        self.assertEqual(running.wait(timeout=30), INTERRUPTED)
        last = json.loads(self.file.read_text().splitlines()[-1])
        self.assertEqual((last["event"], last["note"]), ("ended", "signal: 15"))
        self.assertFalse(os.path.exists(f"/proc/{last['pid']}"))
        running.stdin.close()
        running.stdout.close()

    def test_refuses_what_it_cannot_do_in_one_line(self):
        self.expect_bad_input(tool("record", self.here / "no/such/folder", "--", "/bin/true"), FAILED, "No such file")
        self.expect_bad_input(tool("record", self.file, "--", self.here / "missing"), BROKEN_LAUNCHER, "missing")
        self.expect_bad_input(tool("record", self.file), USAGE, "command")
        self.assertEqual(tool("record", self.file, "--json", "--", "/bin/true").code, USAGE)


class Diagram(RecordingTest):
    def setUp(self):
        super().setUp()
        self.recorded(HELLO, LAUNCH, DISCONNECT)

    def draw(self, form):
        return self.expect(tool("diagram", self.file, "--format", form), OK, err="").out

    def test_in_text_has_an_arrow_for_each_message(self):
        lines = self.expect(tool("diagram", self.file), OK, err="").out.splitlines()
        self.assertEqual(len(lines), len(self.file.read_text().splitlines()))
        arrows = [line for line in lines if "-- " in line]
        self.assertEqual(len(arrows), 6)
        self.assertRegex(lines[2], r"^ +\d+\.\d{3} s \|-- hello -+>\|  \d+ B$")
        self.assertTrue(any(" |<-- hello_ack ---" in line for line in arrows))

    def test_in_mermaid_names_both_sides_and_each_message(self):
        text = self.draw("mermaid")
        self.assertTrue(text.startswith("sequenceDiagram\n  participant H as Host\n  participant L as Launcher\n"))
        self.assertEqual(text.count("H->>L: "), 3)
        self.assertEqual(text.count("L->>H: "), 3)

    def test_in_svg_is_well_formed_and_complete(self):
        root = xml.etree.ElementTree.fromstring(self.draw("svg"))
        arrows = [each for each in root.iter("{http://www.w3.org/2000/svg}line") if each.get("class") == "arrow"]
        self.assertEqual(len(arrows), 6)

    def test_in_html_has_every_message_and_needs_no_network(self):
        class Page(html.parser.HTMLParser):
            def __init__(self):
                super().__init__()
                self.frames, self.links, self.bodies, self.inside = [], [], [], None

            def handle_starttag(self, tag, attributes):
                attributes = dict(attributes)
                if tag == "li" and "frame" in attributes["class"].split():
                    self.frames.append(attributes["data-type"])
                self.links += [attributes[name] for name in ("src", "href") if name in attributes]
                self.inside = tag

            def handle_data(self, data):
                if self.inside == "pre" and data.strip():
                    self.bodies.append(json.loads(data))

            def handle_endtag(self, tag):
                self.inside = None
        text = self.draw("html")
        page = Page()
        page.feed(text)
        self.assertEqual(len(page.frames), 6)
        self.assertEqual(page.links, [])
        self.assertNotIn("://", text)
        self.assertEqual([each["message_type"] for each in page.bodies], page.frames)

    def test_shows_markup_in_messages_as_text(self):
        self.recorded({"message_type": "<script>alert(1)</script>", "message": "</pre>&"}, DISCONNECT)
        for form in ("html", "svg"):
            self.assertNotIn("<script>alert", self.draw(form))
        self.assertIn("&lt;script&gt;alert(1)&lt;/script&gt;", self.draw("html"))

    def test_as_a_document_holds_the_text(self):
        document = self.expect(tool("diagram", self.file, "--json"), OK).json()
        self.assertIn("hello_ack", document["result"]["text"])

    def test_of_what_is_no_recording_is_one_clear_line(self):
        other = self.here / "other"
        whole = self.file.read_text()
        for content, words in (("", "is no recording"), ("{}\n", "is no recording"), ("text\n", "is no recording"),
                               (whole[:-20], "is cut: the recording was not finished"),
                               (whole + "{}\n", "is no event of a recording"),
                               (whole.replace('"formatVersion":1', '"formatVersion":2'), "another version")):
            other.write_text(content)
            for command in (("diagram", other), ("replay", other, "--as", "host", "--", "/bin/true")):
                self.expect_bad_input(tool(*command), FAILED, words)
        self.expect_bad_input(tool("diagram", self.here / "missing"), FAILED, "cannot read")
        self.expect_bad_input(tool("diagram", self.here), FAILED, "cannot read")
        self.expect_bad_input(tool("diagram", self.file, "--format", "gif"), USAGE, "gif")


class Replay(RecordingTest):
    def setUp(self):
        super().setUp()
        self.recorded(HELLO, LAUNCH, DISCONNECT)
        # A host that waits for each answer, as hosts do.
        lines = [json.loads(line) for line in self.file.read_text().splitlines()]
        order = {"hello": 1, "hello_ack": 2, "launch_meeting": 3, "launch_meeting_ack": 4, "disconnect": 5}
        body = sorted((each for each in lines[1:] if each["event"] == "message"), key=lambda each: order.get(each["type"], 6))
        for number, each in enumerate(body):
            each["seconds"] = number * 0.01
        self.file.write_text("".join(json.dumps(each) + "\n" for each in [lines[0], *body]))

    def as_host(self, *more, answers=None):
        return tool("replay", self.file, "--as", "host", *more, "--", *self.launcher_with(answers))

    def test_as_host_finds_no_difference_in_the_same_launcher(self):
        self.expect(self.as_host(), OK, "", "no difference: 3 messages sent, 3 received\n")

    def test_as_host_names_the_first_difference(self):
        changed = {"launch_meeting": [{"message_type": "error", "message": {"error_code": "7"}}]}
        self.expect_bad_input(self.as_host(answers=changed), FAILED, "line 5: expected launch_meeting_ack, came error")
        changed = {"hello": [{"message_type": "hello_ack", "message": {"status": "9"}}]}
        self.expect_bad_input(self.as_host(answers=changed), FAILED, 'line 3: expected hello_ack, it was {"message":')

    def test_as_host_tells_of_silence_and_of_a_launcher_that_ends(self):
        self.expect_bad_input(self.as_host("--wait", "0.2", answers={"hello": []}), TIMED_OUT, "nothing came")
        self.expect_bad_input(self.as_host(answers={"hello": ["quit"]}), FAILED, "the channel broke")

    def test_reports_in_one_document(self):
        document = self.expect(self.as_host("--json"), OK).json()
        self.assertEqual(document["result"], {"outcome": "same", "sent": 3, "received": 3})

    def play_host(self, *said):
        words = [TOOL, "replay", str(self.file), "--as", "launcher", "--wait", "5", "--", "-Communicate", "Pipe"]
        done = subprocess.run(words, input=b"".join(map(frame, said)), capture_output=True, timeout=60,
                              env=clean_environment())
        return done.returncode, done.stderr.decode(), messages(done.stdout)

    def test_as_launcher_answers_as_the_launcher_did(self):
        code, err, heard = self.play_host(HELLO, LAUNCH, DISCONNECT)
        self.assertEqual((code, err), (0, "no difference: 3 messages sent, 3 received\n"))
        self.assertEqual([each["message_type"] for each in heard], ["hello_ack", "launch_meeting_ack", "disconnect_ack"])

    def test_as_launcher_names_what_the_host_does_otherwise(self):
        code, err, _ = self.play_host(HELLO, DISCONNECT)
        self.assertEqual((code, err), (1, "tksctl: line 4: expected launch_meeting, came disconnect\n"))

    def test_makes_the_pauses_of_the_recording_unless_told_otherwise(self):
        lines = [json.loads(line) for line in self.file.read_text().splitlines()]
        for each in lines[3:]:
            each["seconds"] += 0.5
        self.file.write_text("".join(json.dumps(each) + "\n" for each in lines))
        def took(*more):
            begin = time.monotonic()
            self.expect(self.as_host(*more), OK)
            return time.monotonic() - begin
        self.assertGreater(took(), 0.5)
        self.assertGreater(took("--speed", "2"), 0.25)

    def test_refuses_what_it_cannot_do_in_one_line(self):
        self.expect_bad_input(tool("replay", self.file, "--as", "host"), USAGE, "--")
        self.expect_bad_input(tool("replay", self.file, "--as", "guest"), USAGE, "guest")
        self.expect_bad_input(tool("replay", self.file, "--as", "host", "--", self.here / "missing"), BROKEN_LAUNCHER,
                              "missing")
        self.expect_bad_input(tool("replay", self.file, "--as", "host", "--speed", "-1", "--", "/bin/true"), USAGE, "--speed")


if __name__ == "__main__":
    unittest.main()
