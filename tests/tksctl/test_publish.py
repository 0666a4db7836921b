"""pack, publish and delta-list: what those do who publish launchers and delta packages."""
import functools
import hashlib
import http.server
import json
import os
import signal
import socket
import socketserver
import subprocess
import tarfile
import threading
import time
import unittest
import zipfile

from support import *

NAME = "Tarvo Kovra Start.app"


class Pack(LauncherTest):
    def pack(self, bundle, *words, **more):
        return tool("pack", bundle, *words, **more)

    def test_makes_an_archive_that_install_takes(self):
        archive = self.here / "launcher.zip"
        shown = self.expect(self.pack(self.made, "--to", archive), OK, err="")
        digest = hashlib.sha256(archive.read_bytes()).hexdigest()
        self.assertEqual(shown.out, f"packed 5.0.1 as {archive}\nSHA-256: {digest}\n")
        self.expect(self.here.tool("install", archive, "--version", "5.0.1", "-q"), OK)
        self.assertIn("5.0.1", (self.here.launcher / "Contents/Info.plist").read_text())
        self.expect(self.here.tool("verify", "--deep", self.here.launcher), OK)

    def test_gives_the_same_bytes_whenever_and_wherever_it_is_packed(self):
        again = pathlib.Path(shutil.copytree(self.made, self.folder() / "Another Name.app", symlinks=True))
        for path in sorted(again.rglob("*"), reverse=True):
            os.utime(path, (1234567890, 1234567890))
            path.chmod(0o700 if path.is_dir() or os.access(path, os.X_OK) else 0o600)
        archives = []
        for number, bundle in enumerate((self.made, again)):
            archives.append(self.here / f"{number}.zip")
            environment = clean_environment(TZ=("Asia/Tokyo", "America/Lima")[number], LC_ALL=("C", "C.UTF-8")[number])
            self.expect(self.pack(bundle, "--to", archives[-1], env=environment), OK)
        self.assertEqual(archives[0].read_bytes(), archives[1].read_bytes())

    def test_has_files_folders_and_links_as_installations_leave_them(self):
        def change(bundle):
            resources = bundle / "Contents/Resources"
            (resources / "en.lproj").mkdir(parents=True)
            (resources / "Ünïcode.txt").write_text("text")
            (resources / "Link").symlink_to("Ünïcode.txt")
        bundle = Maker.launcher(self.folder(), change=change)
        archive = self.here / "launcher.zip"
        result = self.expect(self.pack(bundle, "--to", archive, "--json"), OK).json()["result"]
        with zipfile.ZipFile(archive) as zipped:
            modes = {entry.filename: entry.external_attr >> 16 for entry in zipped.infolist()}
            names = zipped.namelist()
        self.assertEqual(names, sorted(names))
        self.assertEqual(result["entries"], len(names))
        self.assertEqual(modes[f"{NAME}/Contents/MacOS/Tarvo Kovra Start"], 0o100755)
        self.assertEqual(modes[f"{NAME}/Contents/Info.plist"], 0o100644)
        self.assertEqual(modes[f"{NAME}/Contents/Resources/Ünïcode.txt"], 0o100644)
        self.assertEqual(modes[f"{NAME}/Contents/Resources/en.lproj/"], 0o40755)
        self.assertEqual(modes[f"{NAME}/Contents/Resources/Link"] & 0o170000, 0o120000)
        self.expect(self.here.tool("install", archive, "--version", "5.0.1", "-q"), OK)
        self.assertEqual(os.readlink(self.here.launcher / "Contents/Resources/Link"), "Ünïcode.txt")

    def test_keeps_signatures_of_single_files_beside_them(self):
        # A program that is no Mach-O image and no bundle keeps its signature in its attributes, on a volume with room for them.
        place, archive = self.here / "volume", self.here / "launcher.zip"
        place.mkdir()
        script = """set -e
            cd "$1"; cp -R "$2" .; bundle=$(basename "$2"); helper=$bundle/Contents/Frameworks/helper
            mkdir "$bundle/Contents/Frameworks"; echo "#!/bin/sh" >"$helper"; chmod 755 "$helper"
            "$0" sign -i "$3" --storage attributes "$helper" || exit 77
            "$0" sign -i "$3" "$bundle"; [ ! -e "$bundle/Contents/Frameworks/._helper" ]
            exec "$0" pack "$bundle" --to "$4" --json"""
        done = self.here.run("bash", "-c", script, TOOL, place, self.made, Maker.identity(), archive,
                             before=f"mount -t tmpfs tmpfs {place}")
        if done.code == 77:
            self.skipTest("needs a volume with extended attributes")
        self.assertEqual(self.expect(done, OK).json()["result"]["sideCars"], 1)
        with zipfile.ZipFile(archive) as zipped:
            self.assertIn(f"{NAME}/Contents/Frameworks/._helper", zipped.namelist())
        self.expect(self.here.tool("install", archive, "--version", "5.0.1", "-q"), OK)
        self.expect(tool("verify", "--deep", self.here.launcher), OK)
        # What is packed from there again has them beside the files already.
        again = self.here / "again.zip"
        self.assertEqual(self.expect(self.pack(self.here.launcher, "--to", again, "--json"), OK).json()["result"]["sideCars"], 0)
        self.assertEqual(archive.read_bytes(), again.read_bytes())

    def test_names_the_archive_by_its_version(self):
        name = "Tarvo Kovra Start 5.0.1.zip"
        here = self.folder()
        self.expect(self.pack(self.made, cwd=here), OK)
        folder = here / "archives"
        folder.mkdir()
        self.expect(self.pack(self.made, "--to", folder), OK)
        self.assertEqual((here / name).read_bytes(), (folder / name).read_bytes())

    def test_refuses_what_hosts_would_refuse(self):
        here = self.folder()
        unsigned = Maker.launcher(here / "unsigned", identity=None)
        foreign = Maker.launcher(here / "foreign", identity=("--team", "STR4NG3R00"))
        old = Maker.launcher(here / "old", version="3.9.0")
        altered = Maker.launcher(here / "altered")
        with open(altered / "Contents/Info.plist", "a") as file:
            file.write("<!-- altered -->")
        archive = here / "launcher.zip"
        archive.write_text("what was there")
        for bundle, code, named in ((unsigned, NOT_TRUSTED, "not signed"), (foreign, NOT_TRUSTED, "not from Tarvo"),
                                    (altered, NOT_TRUSTED, "Info.plist"), (old, FAILED, "3.9.0"),
                                    (here / "none.app", BROKEN_LAUNCHER, "there is no launcher at"),
                                    (archive, BROKEN_LAUNCHER, "there is no launcher at")):
            with self.subTest(bundle.parent.name):
                self.expect_bad_input(self.pack(bundle, "--to", archive), code, named)
        self.expect_bad_input(self.pack(self.made, "--to", here / "no/such/folder.zip"), FAILED, "No such file")
        self.expect_bad_input(tool("pack"), USAGE, "bundle")
        self.assertEqual(archive.read_text(), "what was there")
        self.assertEqual([path.name for path in here.iterdir() if path.name.startswith(".")], [])

    def test_refuses_a_folder_that_is_not_the_users(self):
        if os.geteuid() != 0:
            self.skipTest("needs root")
        here = self.folder()
        here.chmod(0o755)
        pathlib.Path(self.keeper.name).chmod(0o755)
        done = run(["setpriv", f"--reuid={NOBODY}", f"--regid={NOBODY}", "--clear-groups", TOOL, "pack", str(self.made), "--to",
                    str(here / "launcher.zip")])
        self.expect_bad_input(done, NO_PERMISSION, "Permission denied")


class Served:
    """A folder on a server of the loopback interface; `wrong`: answers every request with this, as bytes."""

    def __init__(self, folder, wrong=None):
        class Handler(http.server.SimpleHTTPRequestHandler):
            def do_GET(self):
                if wrong is None:
                    return super().do_GET()
                if wrong:
                    self.wfile.write(wrong)
                else:
                    self.server.silence.wait()

            def log_message(self, *_):
                pass

        class Server(socketserver.ThreadingMixIn, http.server.HTTPServer):
            daemon_threads = True
        self.server = Server(("127.0.0.1", 0), functools.partial(Handler, directory=str(folder)))
        self.server.silence = threading.Event()
        threading.Thread(target=self.server.serve_forever, daemon=True).start()
        self.url = f"http://127.0.0.1:{self.server.server_port}"

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.server.silence.set()
        self.server.shutdown()
        self.server.server_close()


class PublishTest(ToolTest):
    def setUp(self):
        self.here = self.folder()
        self.updates = self.here / "updates"
        self.updates.mkdir()
        self.tmp = self.here / "tmp"
        self.tmp.mkdir(mode=0o700)
        self.list = self.updates / "deltalist.json.delta"

    def tool(self, *words, **more):
        return tool(*words, env=clean_environment(TMPDIR=str(self.tmp)), **more)

    def put(self, **files):
        for name, content in files.items():
            (self.updates / name.replace("_", "-")).with_suffix(".delta").write_text(content)

    def publish(self, *words, identity=()):
        return self.tool("publish", self.updates, "-i", Maker.identity(*identity), *words)

    def expect_nothing_left(self):
        self.assertEqual(list(self.tmp.iterdir()), [])
        self.assertEqual([path.name for path in self.updates.iterdir() if path.name.startswith(".")], [])


class Publish(PublishTest):
    def test_makes_a_list_that_clients_read_from_any_server(self):
        self.put(**{"5_1_0": "one", "5_2_0": "two, longer"})
        (self.updates / "readme.txt").write_text("no package")
        shown = self.expect(self.publish(), OK, err=f"wrote {self.list}: serve the folder as it is\n")
        digests = [hashlib.sha256(text).hexdigest() for text in (b"one", b"two, longer")]
        self.assertEqual(shown.out, f"5.1.0.delta  3 bytes  {digests[0]}  file://{self.updates}/5-1-0.delta\n"
                         f"5.2.0.delta  11 bytes  {digests[1]}  file://{self.updates}/5-2-0.delta\n")
        with Served(self.updates) as server:
            result = self.expect(self.tool("delta-list", server.url, "--json"), OK, err="").json()["result"]
            self.assertEqual(result["packages"], [
                {"key": "5.1.0.delta", "version": "5-1-0.delta", "size": 3, "hash": digests[0], "path": f"{server.url}/5-1-0.delta"},
                {"key": "5.2.0.delta", "version": "5-2-0.delta", "size": 11, "hash": digests[1], "path": f"{server.url}/5-2-0.delta"}])
        self.expect_nothing_left()

    def test_the_list_is_a_signed_file_in_a_tar_archive(self):
        self.put(**{"5_1_0": "one"})
        self.expect(self.publish("--timestamp"), OK)
        with tarfile.open(self.list) as archive:
            self.assertEqual(archive.getnames(), ["._deltalist.json", "deltalist.json"])
            archive.extractall(self.here)
        self.assertEqual(json.loads((self.here / "deltalist.json").read_text()),
                         [{"name": "5-1-0.delta", "size": 3, "hash": hashlib.sha256(b"one").hexdigest()}])
        self.assertRegex(self.expect(tool("verify", self.here / "deltalist.json"), OK).out, r"time stamp: +\d{4}-")

    def test_the_list_says_when_it_expires_and_which_one_it_is(self):
        self.put(**{"5_1_0": "one"})
        strict = [word for value in ("listExpiry=true", "lowestListVersion=7") for word in ("--option", value)]
        self.expect(self.publish(), OK)
        self.expect_bad_input(self.tool("delta-list", f"file://{self.updates}", *strict), FAILED, "expires")
        self.expect(self.publish("--valid-days", "30", "--list-version", "7"), OK)
        self.assertIn("5.1.0.delta", self.expect(self.tool("delta-list", f"file://{self.updates}", *strict), OK, err="").out)
        with tarfile.open(self.list) as archive:
            itself = json.load(archive.extractfile("deltalist.json"))[-1]
        self.assertEqual(itself["listVersion"], 7)
        self.assertLess(abs(itself["expires"] - time.time() - 30 * 24 * 60 * 60), 3600)
        self.expect_bad_input(self.publish("--valid-days", "0"), USAGE, "--valid-days")

    def test_replaces_the_list_that_was_there(self):
        self.put(**{"5_1_0": "one"})
        self.expect(self.publish(), OK)
        self.put(**{"5_2_0": "two"})
        result = self.expect(self.publish("--json"), OK).json()["result"]
        self.assertEqual([each["key"] for each in result["packages"]], ["5.1.0.delta", "5.2.0.delta"])
        self.assertEqual(result["list"], str(self.list))

    def test_says_when_there_is_nothing_to_publish(self):
        (self.updates / "readme.txt").write_text("no package")
        self.list.write_text("an old list alone")
        self.expect(self.publish(), NOTHING_TO_DO, "", f"no file in {self.updates} ends in .delta\n")
        self.assertEqual(self.list.read_text(), "an old list alone")

    def test_refuses_what_clients_would_refuse_and_keeps_the_old_list(self):
        self.put(**{"5_1_0": "one"})
        self.list.write_text("what was there")
        self.expect_bad_input(self.publish(identity=("--team", "STR4NG3R00")), NOT_TRUSTED, "not from Tarvo")
        (self.updates / "5.1.0.delta").write_text("the same for clients")
        self.expect_bad_input(self.publish(), FAILED, "are one version for clients")
        (self.updates / "5.1.0.delta").unlink()
        (self.updates / "5\\2.delta").write_text("a name that clients skip")
        self.expect_bad_input(self.publish(), FAILED, "clients would skip the name 5\\2.delta")
        self.assertEqual(self.list.read_text(), "what was there")
        self.expect_nothing_left()

    def test_refuses_bad_input(self):
        self.put(**{"5_1_0": "one"})
        for words, code, named in (((self.updates,), USAGE, "with which identity"),
                                   ((self.here / "none", "-i", Maker.identity()), FAILED, "there is no folder at"),
                                   ((self.updates, "-i", self.here / "none"), FAILED, "none"),
                                   ((), USAGE, "folder")):
            with self.subTest(named):
                self.expect_bad_input(self.tool("publish", *words), code, named)
        self.assertFalse(self.list.exists())

    def test_refuses_a_package_that_it_may_not_read(self):
        if os.geteuid() != 0:
            self.skipTest("needs root")
        self.put(**{"5_1_0": "one"})
        (self.updates / "5-1-0.delta").chmod(0o600)
        identity = shutil.copytree(Maker.identity(), self.here / "identity")
        for path in (self.here, self.tmp, *pathlib.Path(identity).parent.rglob("identity"), *pathlib.Path(identity).iterdir()):
            os.chown(path, NOBODY, NOBODY)
        done = run(["setpriv", f"--reuid={NOBODY}", f"--regid={NOBODY}", "--clear-groups", TOOL, "publish", str(self.updates), "-i",
                    str(identity)], env=clean_environment(TMPDIR=str(self.tmp)))
        self.expect_bad_input(done, NO_PERMISSION, "Permission denied")


class DeltaList(PublishTest):
    def test_reads_a_folder_before_it_is_uploaded(self):
        self.put(**{"5_1_0": "one"})
        self.expect(self.publish(), OK)
        self.assertIn("5.1.0.delta", self.expect(self.tool("delta-list", f"file://{self.updates}"), OK, err="").out)

    def test_says_what_a_client_meets_in_one_line(self):
        refused = socket.socket()
        refused.bind(("127.0.0.1", 0))
        dead = f"http://127.0.0.1:{refused.getsockname()[1]}"
        for url, code, named in ((dead, FAILED, "Could not connect to the server."),
                                 (f"file://{self.here}/none", FAILED, "was not found"),
                                 ("gopher://nowhere", FAILED, "unsupported URL"),
                                 ("no address", FAILED, "URL"),
                                 ("", USAGE, "address")):
            with self.subTest(url):
                self.expect_bad_input(self.tool("delta-list", url), code, named)
        refused.close()
        self.expect_bad_input(self.tool("delta-list"), USAGE, "url")
        self.expect_nothing_left()

    def test_says_what_is_wrong_with_a_list(self):
        def archive(text, sign=None):
            (self.here / "deltalist.json").write_text(text)
            if sign is not None:
                self.expect(tool("sign", "-i", Maker.identity(*sign), "--storage", "side-car", self.here / "deltalist.json"), OK)
            with tarfile.open(self.list, "w") as made:
                for name in ("._deltalist.json", "deltalist.json"):
                    if (self.here / name).exists():
                        made.add(self.here / name, name)
            (self.here / "._deltalist.json").unlink(missing_ok=True)
        with Served(self.updates) as server:
            self.expect_bad_input(self.tool("delta-list", server.url), FAILED, "404")
            self.list.write_text("no archive")
            self.expect_bad_input(self.tool("delta-list", server.url), FAILED, "untar fail")
            archive('[{"name": "5-1-0.delta"}]')
            self.expect_bad_input(self.tool("delta-list", server.url), NOT_TRUSTED, "not signed")
            archive('[{"name": "5-1-0.delta"}]', sign=("--team", "STR4NG3R00"))
            self.expect_bad_input(self.tool("delta-list", server.url), NOT_TRUSTED, "not from Tarvo")
            archive("[", sign=())
            self.expect_bad_input(self.tool("delta-list", server.url), FAILED, "Convert")
            archive('[{"name": "readme.txt"}]', sign=())
            self.expect(self.tool("delta-list", server.url), NOTHING_TO_DO, "", "the list names no delta package\n")
        self.expect_nothing_left()

    def test_ctrl_c_ends_the_wait_for_a_silent_server_and_leaves_nothing(self):
        with Served(self.updates, wrong=b"") as server:
            child = subprocess.Popen([TOOL, "delta-list", server.url, "--json"], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                     env=clean_environment(TMPDIR=str(self.tmp)))
            end = time.monotonic() + 30
            while not list(self.tmp.glob("*/*/download")) and time.monotonic() < end:
                time.sleep(0.02)
            child.send_signal(signal.SIGINT)
            out, err = child.communicate(timeout=30)
        self.assertEqual((child.returncode, err), (INTERRUPTED, b""))
        self.assertEqual(json.loads(out)["error"]["message"], "interrupted")
        self.expect_nothing_left()


class SilentServer(PublishTest):
    """Takes as long as a server is given."""

    def test_that_never_answers_is_a_time_out(self):
        with Served(self.updates, wrong=b"") as server:
            self.expect_bad_input(self.tool("delta-list", server.url), TIMED_OUT, "The request timed out.")


if __name__ == "__main__":
    unittest.main()
