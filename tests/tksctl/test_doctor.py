"""doctor: finds faults that are planted in a throw-away world, names the remedy, and changes nothing."""
import os
import plistlib
import shlex
import struct
import unittest

from support import *


class DoctorTest(LauncherTest):
    def setUp(self):
        super().setUp()
        self.launcher = self.here.launcher
        self.program = self.launcher / "Contents/MacOS/Tarvo Kovra Start"
        self.add_ons = self.launcher.parent

    def doctor(self, *words, start=False, wrap=(), patience=60, **more):
        words = [TOOL, "doctor", "--json", "--timeout", patience, *([] if start else ["--no-start"]), *words]
        return self.here.run(*wrap, *words, **more)

    def finds(self, identifier, state, seen, remedy, code, *words, **more):
        """The check with this identifier says so, and gives the exit code when it is the first that fails."""
        result = self.doctor(*words, **more)
        checks = result.json()["result"]["checks"]
        found = [check for check in checks if check["id"] == identifier and check["state"] == state]
        self.assertEqual(len(found), 1, result)
        self.assertIn(seen, found[0]["seen"])
        self.assertIn(remedy, found[0]["remedy"])
        self.assertEqual(result.code, code, result)
        return result

    def give_all_to_nobody_but(self, path):
        """Installs a launcher for the user nobody, in whose folders this path alone is root's."""
        if os.geteuid() != 0:
            self.skipTest("needs root")
        self.install()
        self.here.give_to_nobody()
        os.chown(path, 0, 0)

    def says(self, *path):
        return shlex.quote(str(path[0]))


class Healthy(DoctorTest):
    def test_launcher_is_started_greeted_and_said_goodbye_to(self):
        self.install()
        result = self.expect(self.doctor(start=True), OK).json()["result"]
        self.assertTrue(result["canLaunch"])
        states = {check["id"]: check["state"] for check in result["checks"]}
        self.assertEqual({name for name, state in states.items() if state not in ("PASS", "SKIP")}, set(), states)
        for step in ("start.launch", "start.hello", "start.goodbye", "start.end"):
            self.assertEqual(states[step], "PASS")
        self.assertEqual([path for path in self.here.tmp.iterdir() if "lock" not in path.name], [])

    def test_launcher_talks_over_files_as_well(self):
        self.install()
        states = {check["id"]: check["state"] for check in
                  self.expect(self.doctor("--files", start=True), OK).json()["result"]["checks"]}
        self.assertEqual(states["start.goodbye"], "PASS")

    def test_report_is_a_line_a_check(self):
        self.install()
        shown = self.expect(self.here.tool("doctor", "--no-start"), OK)
        self.assertRegex(shown.err, r"^\d+ passed, 0 warnings, 0 failed, 2 left out\n$")
        for line in shown.out.splitlines():
            self.assertRegex(line, r"^(PASS|SKIP)  [^:]+: .+")
        self.assertIn("PASS  its version: 5.0.1\n", shown.out)

    def test_bad_calls_are_refused(self):
        self.expect_bad_input(tool("doctor", "--version", "1"), USAGE, "--backup")
        self.expect_bad_input(tool("doctor", "--timeout", "0"), USAGE, "--timeout")


class Tools(DoctorTest):
    def setUp(self):
        super().setUp()
        self.install()

    def hide(self, path):
        return f"mount --bind /dev/null {shlex.quote(os.path.realpath(path))}"

    def test_missing_unzip(self):
        self.finds("tools.unzip", "FAIL", "not found at /usr/bin/unzip", "package unzip", FAILED, before=self.hide("/usr/bin/unzip"))

    def test_missing_tar(self):
        self.finds("tools.tar", "WARN", "the list of delta updates", "package tar", OK, before=self.hide("/usr/bin/tar"))

    def test_missing_lsof(self):
        self.finds("tools.lsof", "WARN", "assessed each time anew", "package lsof", OK, before=self.hide(shutil.which("lsof")))

    def test_missing_shasum(self):
        self.finds("tools.shasum", "WARN", "not found at /usr/bin/shasum", "package perl", OK, before=self.hide("/usr/bin/shasum"))

    def test_missing_spctl(self):
        self.finds("tools.spctl", "WARN", "spctl", "libexec/tksinterface/spctl", OK, before=self.hide(BUILD / "spctl"))

    def test_spctl_is_found_beside_the_tool_whatever_the_tool_was_called_by(self):
        for name in ("tksctl", "./tksctl", "/elsewhere/tksctl"):
            result = self.expect(self.doctor(wrap=("bash", "-c", 'exec -a "$0" "$@"', name)), OK).json()["result"]
            found = next(check for check in result["checks"] if check["id"] == "tools.spctl")
            self.assertEqual((found["state"], found["seen"]), ("PASS", str(BUILD / "spctl")), name)


class SilentTools(DoctorTest):
    """Takes as long as a tool is given."""

    def test_unzip_that_never_answers(self):
        self.install()
        script = self.here / "silent"
        script.write_text("#!/bin/sh\nexec sleep 60\n")
        script.chmod(0o755)
        self.finds("tools.unzip", "FAIL", "does not answer", "Repair or replace /usr/bin/unzip", FAILED,
                   patience=1, before=f"mount --bind {script} /usr/bin/unzip")


class Folders(DoctorTest):
    def test_full_disk(self):
        self.finds("folders.home", "FAIL", "MiB free", "Free space", FAILED, "--launcher", self.made,
                   before=f"mount -t tmpfs -o size=1m,mode=700 tmpfs {self.here.home}")

    def test_disk_that_takes_no_more_files(self):
        self.finds("folders.home", "FAIL", "no room for one more file", "Remove files", FAILED, "--launcher", self.made,
                   before=f"mount -t tmpfs -o nr_inodes=1,mode=700 tmpfs {self.here.home}")

    def test_full_temporary_folder(self):
        self.install()
        self.finds("folders.temporary", "FAIL", "MiB free", "Free space", FAILED,
                   before=f"mount -t tmpfs -o size=1m,mode=700 tmpfs {self.here.tmp}")

    def test_missing_home(self):
        self.finds("folders.home", "FAIL", "is not there", "password database", FAILED, "--launcher", self.made,
                   before=f"rmdir {self.here.home}")

    def test_folder_of_somebody_else(self):
        self.give_all_to_nobody_but(self.add_ons)
        self.finds("folders.addOns", "FAIL", "belongs to root", "chown nobody", NO_PERMISSION, as_nobody=True)

    def test_read_only_volume(self):
        self.install()
        place = self.says(self.add_ons)
        self.finds("folders.addOns", "FAIL", "read-only volume", "Mount the volume for writing", NO_PERMISSION,
                   before=f"mount --bind {place} {place}; mount -o remount,bind,ro {place}")

    def test_volume_with_noexec(self):
        self.install()
        place = self.says(self.add_ons)
        self.finds("folders.addOns", "FAIL", "noexec", "without noexec", NO_PERMISSION,
                   before=f"mount --bind {place} {place}; mount -o remount,bind,noexec {place}")

    def test_volume_without_extended_attributes(self):
        """It does not tell how much room it has either, which is no fault."""
        self.install()
        place, kept = self.says(self.add_ons), self.here / "kept"
        self.finds("folders.addOns", "WARN", "without extended attributes", "Nothing has to be done", OK,
                   before=f"cp -a {place} {kept}; mount -t ramfs -o mode=700 ramfs {place}; cp -a {kept}/. {place}")

    def test_link_in_place_of_the_folder(self):
        self.install()
        moved = self.here / "elsewhere"
        self.add_ons.rename(moved)
        self.add_ons.symlink_to(moved)
        self.finds("folders.addOns", "WARN", "is a link to", "Replace the link", OK)

    def test_file_in_place_of_the_folder(self):
        self.add_ons.parent.mkdir(parents=True)
        self.add_ons.write_text("in the way")
        self.finds("folders.addOns", "FAIL", "is no folder", "Move away", FAILED, "--launcher", self.made)

    def test_temporary_folder_that_is_open_to_others(self):
        self.install()
        self.here.tmp.chmod(0o777)
        # What the tool is run from may be below the folder that is covered, too.
        own = "mount -t tmpfs tmpfs /mnt; mkdir /mnt/w /mnt/b; mount --bind {0} /mnt/w; mount --bind {1} /mnt/b; mount -t tmpfs tmpfs /tmp; mkdir -p {0} {1}; mount --bind /mnt/w {0}; mount --bind /mnt/b {1}"
        if not str(self.here.folder).startswith("/tmp/"):
            self.skipTest("needs its folder below /tmp")
        self.finds("folders.temporary", "WARN", "is not this user's alone", "with the mode 0700", OK, before=own.format(self.here.folder, BUILD))


class Limits(DoctorTest):
    def setUp(self):
        super().setUp()
        self.install()

    def test_no_inotify_watches(self):
        inner = "echo 0 >/proc/sys/user/max_inotify_instances || exit 99; exec \"$@\""
        wrap = ("unshare", "--user", "--map-root-user", "bash", "-c", inner, "-")
        if self.here.run(*wrap, "true").code != 0:
            self.skipTest("needs name spaces of users with limits of their own")
        self.finds("limits.inotify", "WARN", "no watches are to be had", "fs.inotify", OK, wrap=wrap)

    def test_too_few_descriptors(self):
        self.finds("limits.descriptors", "FAIL", "only 40 allowed", "ulimit -n", FAILED, before="ulimit -n 40")

    def test_no_threads(self):
        """Each needs 8 GiB of addresses for its stack, and there are 4 for all."""
        few = "ulimit -v 4194304"
        if self.here.tool("version", before=few).code != OK:
            self.skipTest("sanitizers need more addresses")
        self.finds("limits.threads", "FAIL", "none can be made", "ulimit -u", FAILED, before=f"ulimit -s 8388608; {few}")

    def test_no_process_table(self):
        self.finds("processes.table", "FAIL", "cannot be read", "Mount /proc", FAILED, before="mount -t tmpfs tmpfs /proc",
                   env={"ASAN_OPTIONS": "detect_leaks=0"})

    def test_launcher_without_a_host(self):
        before = f"sleep 60 | {self.says(self.program)} -Communicate Pipe >/dev/null 2>&1 & until cat /proc/[0-9]*/comm | grep -q Tarvo; do sleep 0.05; done"
        self.finds("processes.left", "WARN", "launchers whose host is gone", "End them: kill", OK, before=before)

    def test_held_lock(self):
        place = self.says(self.add_ons)
        before = f"flock {place} sleep 60 & while flock -n {place} true; do sleep 0.05; done"
        self.finds("locks.addOns", "FAIL", "is held by process", "Wait until its installation is done", TIMED_OUT, before=before)

    def test_held_lock_of_installations(self):
        place = self.says(self.here.tmp)
        before = f"flock {place} sleep 60 & while flock -n {place} true; do sleep 0.05; done"
        self.finds("locks.temporary", "FAIL", "(flock)", "Wait until", TIMED_OUT, before=before)

    def test_held_lock_of_a_hosts_installations(self):
        (self.here.tmp / "my.host").mkdir(mode=0o700)
        place = self.says(self.here.tmp / "my.host")
        before = f"flock {place} sleep 60 & while flock -n {place} true; do sleep 0.05; done"
        self.finds("locks.host", "FAIL", "my.host is held by process", "Wait until", TIMED_OUT, before=before)


class Preferences(DoctorTest):
    def setUp(self):
        super().setUp()
        self.install()
        self.preferences = self.here.home / "Library/Preferences"
        self.preferences.mkdir(parents=True)

    def test_lab_device(self):
        (self.preferences / ".GlobalPreferences.plist").write_bytes(plistlib.dumps({"IsLabDevice": True}))
        self.finds("preferences.labDevice", "WARN", "IsLabDevice is set", "prefs set IsLabDevice --remove", OK)

    def test_lab_device_of_one_host(self):
        (self.preferences / "my.host.plist").write_bytes(plistlib.dumps({"IsLabDevice": "yes"}))
        self.finds("preferences.labDevice", "WARN", "is no number", "--domain my.host", OK)

    def test_broken_preferences(self):
        (self.preferences / "my.host.plist").write_text("damaged")
        self.finds("preferences.files", "FAIL", "cannot be read", "Move the file away", FAILED)

    def test_preferences_that_were_damaged_before(self):
        (self.preferences / "my.host.plist.damaged").write_text("damaged")
        self.finds("preferences.damaged", "WARN", "my.host.plist.damaged", "Look at what the file held", OK)


class Launcher(DoctorTest):
    def put(self, change=lambda bundle: None, **more):
        self.install(Maker.launcher(self.here / "made", change=change, **more))

    def test_good(self):
        self.install()
        result = self.expect(self.doctor(), OK).json()["result"]
        seen = {check["id"]: check["seen"] for check in result["checks"]}
        self.assertIn(f", for {os.uname().machine}", seen["launcher.program"])
        self.assertEqual(seen["launcher.team"], "T4RV0K0VRA")
        leaf, *authorities = seen["launcher.chain"].split("; ")
        self.assertRegex(leaf, r"^Developer ID Application: Tarvo \(T4RV0K0VRA\) \(valid until \d{4}-\d\d-\d\d")
        self.assertEqual(len(authorities), 2)

    def test_missing(self):
        self.finds("launcher.path", "FAIL", "none at", "tksctl install", BROKEN_LAUNCHER)

    def test_altered(self):
        self.install()
        data = bytearray(self.program.read_bytes())
        data[2000] ^= 1
        self.program.write_bytes(data)
        self.finds("launcher.signature", "FAIL", "(-67061)", "Remove the launcher and install it again", NOT_TRUSTED)

    def test_unsigned(self):
        self.put(identity=None)
        self.finds("launcher.signature", "FAIL", "not signed at all (-67062)", "from its maker", NOT_TRUSTED)

    def test_signed_by_a_stranger(self):
        self.put(identity=("--team", "STR4NG3R00"))
        self.finds("launcher.maker", "FAIL", "not from Tarvo", "do not start what is there", NOT_TRUSTED)

    def test_not_notarized(self):
        self.put(ticket=False)
        self.finds("launcher.assessment", "WARN", "rejected", "use a notarized launcher", OK)

    def test_program_that_may_not_be_executed(self):
        self.install()
        self.program.chmod(0o644)
        self.finds("launcher.program", "FAIL", "may not be executed", "chmod 755", NO_PERMISSION)

    def test_program_for_another_processor(self):
        def other(bundle):
            program = bundle / "Contents/MacOS/Tarvo Kovra Start"
            data = bytearray(program.read_bytes())
            data[18:20] = struct.pack("<H", 2)
            program.write_bytes(data)
        self.put(change=other)
        self.finds("launcher.program", "FAIL", "another processor", "for this computer", BROKEN_LAUNCHER)

    def test_program_that_is_missing(self):
        self.install()
        self.program.unlink()
        self.finds("launcher.program", "FAIL", "is not there", "Install the launcher again", BROKEN_LAUNCHER)

    def test_damaged_information(self):
        self.install()
        (self.launcher / "Contents/Info.plist").write_text("damaged")
        self.finds("launcher.path", "FAIL", "no readable Contents/Info.plist", "Install the launcher again", BROKEN_LAUNCHER)

    def test_too_old(self):
        self.put(version="1.0.0")
        self.finds("launcher.version", "FAIL", "not supported any more", "Install a newer launcher", BROKEN_LAUNCHER)

    def test_identifier_of_another_application(self):
        def other(bundle):
            information = bundle / "Contents/Info.plist"
            information.write_text(information.read_text().replace("com.tarvo.kovra.Tarvo-Kovra-Start", "com.tarvo.kovra.Other"))
        self.put(change=other)
        self.finds("launcher.identifier", "WARN", "com.tarvo.kovra.Other", "com.tarvo.kovra.Tarvo-Kovra-Start", OK)

    def test_launcher_that_this_user_may_not_replace(self):
        self.give_all_to_nobody_but(self.launcher)
        self.finds("launcher.rights", "WARN", "may not replace", "Give the launcher and its folder to this user", OK, as_nobody=True)

    def test_mark_of_downloads(self):
        self.install()
        try:
            os.setxattr(self.launcher, "user.com.apple.quarantine", b"0083;5;Browser;")
        except OSError:
            self.skipTest("needs extended attributes")
        self.finds("launcher.quarantine", "WARN", "marked as downloaded", "Remove the mark", OK)


class Archive(DoctorTest):
    def setUp(self):
        super().setUp()
        self.install()

    def check(self, identifier, seen, remedy, code, archive, version="5.0.1"):
        self.finds(identifier, "FAIL", seen, remedy, code, "--backup", archive, "--version", version)
        self.assertEqual([path.name for path in self.here.tmp.iterdir() if path.name.startswith("tksctl-")], [])

    def test_good(self):
        archive = Maker.archive(self.made, self.here / "a.zip")
        result = self.expect(self.doctor("--backup", archive, "--version", "5.0.1"), OK).json()["result"]
        seen = {check["id"]: check["seen"] for check in result["checks"]}
        self.assertIn("is not newer than 5.0.1", seen["archive.newer"])
        self.assertIn("signed by the maker", seen["archive.safe"])

    def test_missing(self):
        self.check("archive.readable", "No such file", "Check the path", FAILED, self.here / "none.zip")

    def test_no_archive(self):
        (self.here / "a.zip").write_text("no archive")
        self.check("archive.readable", "no zip archive", "get the archive again", FAILED, self.here / "a.zip")

    def test_with_a_link_that_leads_out(self):
        (self.here / "x").mkdir()
        (self.here / "x/link").symlink_to("../../etc")
        subprocess.run(["zip", "-qry", self.here / "a.zip", "link"], cwd=self.here / "x", check=True)
        self.check("archive.readable", "leads out", "get the archive again", FAILED, self.here / "a.zip")

    def test_without_a_launcher(self):
        (self.here / "x").write_text("something else")
        subprocess.run(["zip", "-q", self.here / "a.zip", "x"], cwd=self.here.folder, check=True)
        self.check("archive.safe", "there is no \"Tarvo Kovra Start.app\"", "Install the launcher again", BROKEN_LAUNCHER, self.here / "a.zip")

    def test_of_another_version(self):
        archive = Maker.archive(self.made, self.here / "a.zip")
        self.check("archive.safe", "Version not match", "Give the version that the package has", FAILED, archive, "9.9.9")

    def test_of_a_stranger(self):
        archive = Maker.archive(Maker.launcher(self.here / "made", identity=("--team", "STR4NG3R00")), self.here / "a.zip")
        self.check("archive.safe", "not from Tarvo", "Get the archive from the maker", NOT_TRUSTED, archive)


class Start(DoctorTest):
    def setUp(self):
        super().setUp()
        self.install()

    def check(self, switches, identifier, seen, remedy, code, **more):
        self.finds(identifier, "FAIL", seen, remedy, code, start=True, env={"TKS_FAKE_LAUNCHER": switches}, **more)
        self.assertTrue(self.program.exists(), "the doctor removed its patient")

    def test_launcher_that_never_answers(self):
        self.check("--mute", "start.hello", "no answer within 1 s", "Look whether the launcher hangs", TIMED_OUT, patience=1)

    def test_launcher_that_ends_at_once(self):
        self.check("--exit 3", "start.launch", "exit code: 3", "install it again", BROKEN_LAUNCHER)

    def test_launcher_that_crashes_after_the_greeting(self):
        self.check("--exit-after hello_ack", "start.goodbye", "", "", BROKEN_LAUNCHER)

    def test_launcher_that_sends_what_is_no_message(self):
        self.check("--noise something", "start.hello", "exceed max message size", "versions that fit together", FAILED)


if __name__ == "__main__":
    unittest.main()
