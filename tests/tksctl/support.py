"""Runs tksctl as a process, in a home of its own, and compares what it says and how it ends."""
import json
import os
import pathlib
import pty
import select
import shutil
import subprocess
import tempfile
import time
import unittest

import jsonschema

BUILD = pathlib.Path(os.environ["TKS_BUILD"])
SOURCE = pathlib.Path(__file__).resolve().parent.parent.parent
TOOL = str(BUILD / "tksctl")
# Made once a build, because keys take a third of a second; each program works on a copy.
MADE_IDENTITY = BUILD / "tests/tksctl/identity"
SIGN = str(BUILD / "tools/tkssign/tkssign")
SCHEMA = json.loads((SOURCE / "docs/tksctl.schema.json").read_text())
NOBODY = 65534

OK, FAILED, USAGE, NOTHING_TO_DO, NOT_TRUSTED, NO_PERMISSION, TIMED_OUT, BROKEN_LAUNCHER, INTERRUPTED = (
    0, 1, 2, 3, 4, 5, 6, 7, 130)


class Result:
    def __init__(self, code, out, err):
        self.code, self.out, self.err = code, out, err

    def json(self):
        """The one document on standard output, which is what docs/tksctl.schema.json says."""
        document = json.loads(self.out)
        jsonschema.validate(document, SCHEMA)
        return document

    def __repr__(self):
        return f"exit {self.code}\n--- standard output\n{self.out}\n--- standard error\n{self.err}"


def clean_environment(**changes):
    kept = {name: os.environ[name] for name in ("PATH", "ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS", "LD_LIBRARY_PATH")
            if name in os.environ}
    kept.update({"LC_ALL": "C.UTF-8", "TERM": "dumb", "COLUMNS": "100"})
    kept.update(changes)
    return kept


def run(words, stdin="", timeout=60, cwd=None, env=None):
    done = subprocess.run(words, input=stdin.encode() if isinstance(stdin, str) else stdin, capture_output=True,
                          timeout=timeout, cwd=cwd, env=env or clean_environment())
    return Result(done.returncode, done.stdout.decode(errors="replace"), done.stderr.decode(errors="replace"))


def tool(*words, **more):
    return run([TOOL, *map(str, words)], **more)


def can_make_namespaces():
    made = subprocess.run([*namespaces(), "true"], capture_output=True)
    return made.returncode == 0


def namespaces(net=False):
    words = ["unshare", "--mount", "--pid", "--fork", "--mount-proc", "--kill-child", "--propagation", "private"]
    if os.geteuid() != 0:
        words += ["--user", "--map-root-user"]
    return words + (["--net"] if net else [])


class World:
    """A throw-away home and temporary folder. Programs run in it see no other home, and no process but their own."""

    def __init__(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="tks-ctl-")).resolve()
        self.home = self.folder / "home"
        self.tmp = self.folder / "tmp"
        for folder in (self.home, self.tmp):
            folder.mkdir(mode=0o700)
        lines = [line.split(":") for line in pathlib.Path("/etc/passwd").read_text().splitlines()]
        self.passwd = self.folder / "passwd"
        self.passwd.write_text("".join(":".join([*line[:5], str(self.home), *line[6:]]) + "\n" for line in lines))

    def __truediv__(self, name):
        return self.folder / name

    @property
    def launcher(self):
        return self.home / "Library/Application Support/Kovra Folder/Add-ons/Tarvo Kovra Start.app"

    def environment(self, **changes):
        return clean_environment(TMPDIR=str(self.tmp), **changes)

    def command(self, words, before="", as_nobody=False):
        """The words for a program in this world; `before` are lines of shell that are run there first, as root."""
        user = ["setpriv", f"--reuid={NOBODY}", f"--regid={NOBODY}", "--clear-groups"] if as_nobody else []
        script = f'set -e; mount --bind "$1" /etc/passwd; shift; {before}\nexec "$@"'
        return [*namespaces(), "bash", "-c", script, "-", str(self.passwd), *user, *map(str, words)]

    def run(self, *words, before="", as_nobody=False, env=None, **more):
        return run(self.command(words, before, as_nobody), env=self.environment(**(env or {})), **more)

    def tool(self, *words, **more):
        return self.run(TOOL, *words, **more)

    def interrupted(self, *words, when, then="", times=1, pause=0.05, alone=False, before="", stdin="", env=None):
        """Runs the tool in this world; Ctrl-C, for its whole group of processes as in a terminal or for the tool `alone`, once the line of
        shell `when` is true (`$child` is the tool's number), and as often as `times` says; then the line `then` is run. What the tool
        said, how it ended, and as `left` the names of the processes that were left two seconds later."""
        script = """set -m; when=$1 then=$2 times=$3 left=$4 pause=$5 group=$6; shift 6
            "$@" <&0 & child=$!
            exec 2>/dev/null  # what the shell itself says of the end
            until eval "$when"; do kill -0 $child 2>/dev/null || exit 98; sleep 0.01; done
            for ((; times > 0; --times)); do kill -INT -- $group$child; sleep $pause; done
            eval "$then"
            wait $child; code=$?
            for ((wait = 0; wait < 40; ++wait)); do
              names=
              for process in /proc/[0-9]*; do
                [ ${process#/proc/} = $$ ] || { read -r name <$process/comm && names="$names $name"; } 2>/dev/null
              done
              [ -n "$names" ] || break
              sleep 0.05
            done
            echo $names >"$left"
            exit $code"""
        left = self.folder / "left"
        shown = self.run("bash", "-c", script, "-", when, then, str(times), left, str(pause), "" if alone else "-", TOOL, *words,
                         before=before, stdin=stdin, env=env)
        shown.left = left.read_text().split() if left.exists() else None
        return shown

    def stalled(self, tool):
        """A stand-in for a tool of the system that is reached, and goes on only when it is let: what to do before the world's programs
        run, and the lines of shell for "it is reached" and "it goes on"."""
        real, double = self.folder / f"real-{pathlib.Path(tool).name}", self.folder / f"stalled-{pathlib.Path(tool).name}"
        reached, goes = self.folder / "reached", self.folder / "goes"
        shutil.copy(os.path.realpath(tool), real)
        double.write_text(f'#!/bin/sh\ntouch {reached}\nuntil [ -e {goes} ]; do sleep 0.02; done\nexec {real} "$@"\n')
        double.chmod(0o755)
        return f"mount --bind {double} {os.path.realpath(tool)}", f"[ -e {reached} ]", f"touch {goes}"

    def give_to_nobody(self):
        for folder in (self.home, self.tmp):
            subprocess.run(["chown", "-R", f"{NOBODY}:{NOBODY}", folder], check=True)
        self.folder.chmod(0o755)

    def remove(self):
        shutil.rmtree(self.folder, ignore_errors=True)


class Maker:
    """Makes identities, and launchers around the program in tests/support/fake_launcher, signed with them."""
    identities = {}
    keeper = None

    @classmethod
    def identity(cls, *options):
        if cls.keeper is None:
            cls.keeper = tempfile.TemporaryDirectory(prefix="tks-ctl-identities-")
        if options not in cls.identities:
            folder = f"{cls.keeper.name}/{len(cls.identities)}"
            if options or not MADE_IDENTITY.exists():
                done = run([TOOL, "sign", "--make-identity", folder, *options])
                assert done.code == 0, done
            else:
                shutil.copytree(MADE_IDENTITY, folder)
            cls.identities[options] = folder
        return cls.identities[options]

    @classmethod
    def launcher(cls, folder, version="5.0.1", identity=(), name="Tarvo Kovra Start.app", change=lambda bundle: None,
                 ticket=True):
        """A launcher in a folder; `identity`: options of its identity, None: signed by nobody."""
        bundle = pathlib.Path(folder) / name
        bundle.parent.mkdir(parents=True, exist_ok=True)
        shutil.copytree(BUILD / "tests/bundles/Tarvo Kovra Start.app", bundle)
        information = bundle / "Contents/Info.plist"
        information.write_text(information.read_text().replace("44.1.0", version))
        change(bundle)
        if identity is not None:
            done = run([TOOL, "sign", "-i", cls.identity(*identity), "--timestamp", str(bundle)])
            assert done.code == 0, done
            if ticket:
                (bundle / "Contents/CodeResources").write_text("s8ch, as a stapled ticket begins")
        return bundle

    @staticmethod
    def archive(bundle, path):
        subprocess.run(["zip", "-qry", str(path), bundle.name], cwd=bundle.parent, check=True)
        return path


def in_terminal(words, stdin=b"", timeout=30, env=None, columns=100):
    """Runs words with a terminal as all three descriptors; what they wrote, and their exit code."""
    import fcntl
    import struct
    import termios
    leader, follower = pty.openpty()
    fcntl.ioctl(follower, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
    child = subprocess.Popen(words, stdin=follower, stdout=follower, stderr=follower, close_fds=True,
                             env=env or clean_environment(TERM="xterm"), start_new_session=True)
    os.close(follower)
    os.write(leader, stdin)
    shown, end = b"", time.monotonic() + timeout
    while time.monotonic() < end:
        ready, _, _ = select.select([leader], [], [], 0.2)
        if ready:
            try:
                piece = os.read(leader, 65536)
            except OSError:
                break
            if not piece:
                break
            shown += piece
        elif child.poll() is not None:
            break
    code = child.wait(timeout=timeout)
    os.close(leader)
    return shown.decode(errors="replace"), code


class ToolTest(unittest.TestCase):
    maxDiff = None

    def world(self):
        if not can_make_namespaces():
            self.skipTest("needs namespaces")
        world = World()
        self.addCleanup(world.remove)
        return world

    def folder(self):
        made = pathlib.Path(tempfile.mkdtemp(prefix="tks-ctl-")).resolve()
        self.addCleanup(shutil.rmtree, made, True)
        return made

    def expect(self, result, code, out=None, err=None):
        self.assertEqual(result.code, code, result)
        if out is not None:
            self.assertEqual(result.out, out)
        if err is not None:
            self.assertEqual(result.err, err)
        return result

    def expect_bad_input(self, result, code, words):
        """One clear line on standard error with these words, and nothing on standard output."""
        self.assertEqual(result.code, code, result)
        self.assertEqual(result.out, "", result)
        self.assertEqual(result.err.count("\n"), 1, result)
        self.assertIn(words, result.err, result)
        return result


class LauncherTest(ToolTest):
    """Tests with a signed launcher, `made` once for all of a class, and a world for each of them."""

    @classmethod
    def setUpClass(cls):
        cls.keeper = tempfile.TemporaryDirectory(prefix="tks-ctl-")
        cls.made = Maker.launcher(cls.keeper.name)

    @classmethod
    def tearDownClass(cls):
        cls.keeper.cleanup()

    def setUp(self):
        self.here = self.world()

    def install(self, launcher=None):
        shutil.copytree(launcher or self.made, self.here.launcher, symlinks=True)
