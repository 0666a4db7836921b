"""support-bundle: what somebody needs who supports users, and nothing that tells who the user is."""
import json
import os
import plistlib
import re
import stat
import time
import unittest
import zipfile

from support import *

COMPUTER = "anns-workplace"
PERSONAL = {
    "account": "annexample", "person": "Ann Exemplary", "given name": "Exemplary", "room": "Room 4711", "telephone": "+49 30 5550142",
    "other account": "tomcat7", "other person": "Tomasina Katz",
    "computer": COMPUTER, "computer on a network": f"{COMPUTER}.corp.example", "server": "mail.firma-katz.de",
    "site": "katz-kunden.meetings.example", "site in preferences": "geheim.katz.example", "room of a meeting": "annes-runde",
    "mail": "ann.exemplary@firma-katz.de", "escaped mail": "t.katz%40firma-katz.de", "network": "192.168.178.23",
    "network 6": "fe80::1c2d:3eff:fe4f:5a6b", "network card": "9c:b6:d0:1a:2b:3c", "token": "s3cr3t-t0k3n-value",
    "password": "hunter2hunter2", "meeting key": "987 654 321", "attendee": "Zacharias Unbekannt", "word": "Projekt Nachtfalter",
}


def people():
    return ("annexample:x:4711:4711:Ann Exemplary,Room 4711,+49 30 5550142:/home/annexample:/bin/sh\n"
            "tomcat7:x:4712:4712:Tomasina Katz:/home/tomcat7:/bin/sh\n")


def log():
    p = PERSONAL
    message = {"message_type": "launch_meeting", "token": p["token"], "domain": "https://" + p["site"],
               "message": {"attendee": p["attendee"], "meetingkey": p["meeting key"]}}
    lines = ["Switch TKS app status: 1 -> 2", f"Send message string: {json.dumps(message)}",
             f"host {p['computer on a network']} ({p['network']}, {p['network 6']}, {p['network card']}) of {p['person']}",
             f"https://annexample:{p['password']}@{p['site']}/meet/{p['room of a meeting']}?email={p['escaped mail']}&token={p['token']}",
             f"wrote to {p['mail']}; cannot reach {p['server']}:443", f"TKSToken = \"{p['token']}\"; password: {p['password']}",
             f"/home/annexample/Library, /home/tomcat7/x, USERNAME=annexample ANNEXAMPLE_HOME", f"about {p['word']} with {p['other person']}",
             f"redirect=https%3A%2F%2F{p['site']}%2Fjoin%2F{p['room of a meeting']}", "Launcher version 44.12.0.35 is newer than 44.1.0",
             f"meetingkey: '{p['meeting key']}' attendee=\"{p['attendee']}\"", f"call {p['telephone']} in {p['room']}"]
    return "\n".join(lines) + "\n"


class SupportBundle(LauncherTest):
    def setUp(self):
        super().setUp()
        self.out = self.here / "out.zip"

    def plant(self):
        """A user's computer, with what is personal wherever it may stand."""
        self.here.passwd.write_text(self.here.passwd.read_text() + people())
        preferences = self.here.home / "Library/Preferences"
        preferences.mkdir(parents=True)
        (preferences / "com.annexample.host.plist").write_bytes(plistlib.dumps(
            {"IsLabDevice": 1, "LabDeviceMeetingPath": "/home/annexample/Apps", "telemetryDomain": PERSONAL["server"]}))
        data = self.here.home / "Library/Application Support/Kovra Folder"
        data.mkdir(parents=True, exist_ok=True)
        (data / "annexample notes.txt").write_text(PERSONAL["word"])
        (data / "link").symlink_to("/home/tomcat7/somewhere")
        (self.here / "host.log").write_text(log())
        recording = [{"format": "tksinterface recording", "formatVersion": 1, "library": "0.1.0", "time": "2026-01-31T12:00:00.000Z"},
                     {"event": "message", "direction": "toLauncher", "seconds": 0.1, "time": "2026-01-31T12:00:00.100Z", "channel": "pipe",
                      "length": 9, "type": "launch_meeting", "message": {"message_type": "launch_meeting", "token": PERSONAL["token"],
                                                                         "message": {"attendee": PERSONAL["attendee"], "n": 7}}}]
        (self.here / "talk.jsonl").write_text("".join(json.dumps(line) + "\n" for line in recording))

    def bundle(self, *words, before="", **more):
        words = ("support-bundle", self.out, "--log", self.here / "host.log", "--recording", self.here / "talk.jsonl",
                 "--hide", PERSONAL["word"], *words)
        named = f"hostname {COMPUTER} 2>/dev/null || echo {COMPUTER} >/proc/sys/kernel/hostname; {before}"
        return self.here.run("unshare", "--uts", "sh", "-c", named + ' exec "$@"', "-", TOOL, *words, **more)

    def content(self):
        with zipfile.ZipFile(self.out) as archive:
            self.assertIsNone(archive.testzip())
            return {name: archive.read(name).decode() for name in archive.namelist()}

    def survivors(self, text):
        return {kind for kind, value in PERSONAL.items() if value.lower() in text.lower()}


class Content(SupportBundle):
    def test_has_nothing_personal_in_it(self):
        self.install()
        self.plant()
        result = self.expect(self.bundle(), OK, out=f"{self.out}\n")
        content = self.content()
        for name, text in content.items():
            self.assertEqual(self.survivors(name + "\n" + text), set(), name)
            self.assertNotIn(str(self.here.home), text, name)
        # The stubs that masking leaves of a value are gone as well.
        self.assertNotRegex(content["logs/1.txt"], r"\b(Zac|ann|987|s3c)\*")
        self.assertEqual(stat.S_IMODE(self.out.stat().st_mode), 0o600)
        self.assertEqual(self.survivors(result.err), set())

    def test_has_what_helps(self):
        self.install()
        self.plant()
        self.expect(self.bundle(), OK)
        content = self.content()
        self.assertEqual(sorted(content), ["doctor.json", "folders.txt", "log.txt", "logs/1.txt", "manifest.json", "preferences.json",
                                           "recordings/1.jsonl", "signature.json", "versions.json"])
        states = {check["id"]: check["state"] for check in json.loads(content["doctor.json"])["checks"]}
        self.assertEqual((states["start.goodbye"], states["preferences.labDevice"]), ("PASS", "WARN"))
        self.assertEqual(json.loads(content["signature.json"])["version"], "5.0.1")
        self.assertIn("IsLabDevice", content["preferences.json"])
        self.assertNotIn("telemetryDomain", content["preferences.json"])
        self.assertRegex(content["folders.txt"], r"(?m)^drwx\S+ self .* ~/Library/Application Support/Kovra Folder$")
        self.assertIn("Send message string: ", content["log.txt"])
        log = content["logs/1.txt"]
        for kept in ("Switch TKS app status: 1 -> 2", '"message_type":"launch_meeting"', "Launcher version 44.12.0.35 is newer than 44.1.0"):
            self.assertIn(kept, log)
        # One name has one stand-in, so that what belongs together can be seen.
        self.assertEqual(len(set(re.findall(r"https://(HOST-\d+)", log))), 1, log)

    def test_manifest_lists_what_is_in_it_and_what_was_masked(self):
        self.install()
        self.plant()
        (self.here / "old.log").write_text("old")
        os.utime(self.here / "old.log", (time.time() - 9 * 86400,) * 2)
        result = self.expect(self.bundle("--json", "--log", self.here / "old.log"), OK).json()["result"]
        content = self.content()
        manifest = json.loads(content["manifest.json"])
        self.assertEqual((result["path"], result["manifest"]), (str(self.out), manifest))
        self.assertEqual({entry["name"]: entry["bytes"] for entry in manifest["entries"]},
                         {name: len(text.encode()) for name, text in content.items() if name != "manifest.json"})
        masked = {entry["name"]: entry["masked"] for entry in manifest["entries"]}["logs/1.txt"]
        for kind in ("user names", "host names", "mail addresses", "network addresses", "secrets", "words to hide"):
            self.assertGreater(masked[kind], 0, kind)
        self.assertIn("1 left out: not changed in the last 7 days", json.dumps(manifest["missing"]))

    def test_preview_prints_the_manifest_and_writes_nothing(self):
        self.install()
        self.plant()
        shown = self.expect(self.bundle("--preview"), OK, err="")
        self.assertFalse(self.out.exists())
        self.assertRegex(shown.out, r"(?m)^logs/1.txt: a log: host.log, \d+ bytes; masked: .*\d+ secrets")
        self.assertEqual(self.survivors(shown.out), set())
        self.assertIn("not in it: logs of hosts: none was named (--log)", self.here.tool("support-bundle", "--preview", "--no-start").out)


class BrokenWorlds(SupportBundle):
    def test_works_when_everything_else_is_broken(self):
        hidden = [os.path.realpath(path) for path in ("/usr/bin/unzip", "/usr/bin/tar", shutil.which("lsof"), "/usr/bin/shasum")]
        before = "".join(f"mount --bind /dev/null {path}; " for path in (*hidden, BUILD / "spctl"))
        before += f"rmdir {self.here.home}; chmod 777 {self.here.tmp}; ulimit -n 64; "
        shown = self.here.tool("support-bundle", self.out, "--launcher", "/nonexistent", before=before)
        self.expect(shown, OK)
        self.assertIn("not found at /usr/bin/unzip", self.content()["doctor.json"])
        missing = json.loads(self.content()["manifest.json"])["missing"]
        self.assertIn("signature", [each["what"] for each in missing])

    def test_works_with_broken_preferences_and_a_broken_launcher(self):
        self.install()
        preferences = self.here.home / "Library/Preferences"
        preferences.mkdir(parents=True)
        (preferences / "host.plist").write_bytes(b"bplist00 nothing of the kind")
        (self.here.launcher / "Contents/Info.plist").write_text("no list")
        self.expect(self.here.tool("support-bundle", self.out), OK)
        self.assertIn("cannot be read", self.content()["preferences.json"])
        self.assertNotEqual(json.loads(self.content()["signature.json"])["status"], 0)

    def test_refuses_bad_input(self):
        (self.here / "there.zip").write_text("mine")
        self.expect_bad_input(self.here.tool("support-bundle"), USAGE, "say where the bundle goes")
        self.expect_bad_input(self.here.tool("support-bundle", self.here / "there.zip"), FAILED, "there is something at")
        self.assertEqual((self.here / "there.zip").read_text(), "mine")
        self.expect_bad_input(self.here.tool("support-bundle", self.here / "no/such/out.zip", "--no-start"), FAILED, "no/such")
        self.expect_bad_input(tool("support-bundle", "x.zip", "--days", "0"), USAGE, "--days")

    def test_names_what_cannot_be_read(self):
        (self.here / "no.jsonl").write_text("no recording\n")
        shown = self.expect(self.here.tool("support-bundle", "--preview", "--no-start", "--log", "/nonexistent/log", "--recording",
                                           self.here / "no.jsonl"), OK)
        self.assertIn("/nonexistent/log: No such file or directory", shown.out)
        self.assertIn("is no recording of a conversation", shown.out)

    def test_interrupted_leaves_nothing(self):
        self.install()
        heard = self.here / "heard"
        command = self.here.command(["bash", "-c", f'"$@" & child=$!; until [ -e {heard} ]; do sleep 0.05; done; kill -INT $child; '
                                     'wait $child', "-", TOOL, "support-bundle", self.out])
        done = run(command, env=self.here.environment(TKS_FAKE_LAUNCHER=f"--received {heard} --mute"))
        self.assertEqual(done.code, INTERRUPTED, done)
        self.assertEqual([path.name for path in self.here.folder.iterdir() if "out" in path.name], [])


if __name__ == "__main__":
    unittest.main()
