#!/usr/bin/env python3
"""A host in Python, over ctypes: launches one meeting and says how that went.

  host.py LIBRARY LAUNCHER    libtksinterface.so, or the program in the framework; the launcher's bundle
"""
import ctypes
import json
import select
import sys


class Error(ctypes.Structure):
    _fields_ = [("domain", ctypes.c_char_p), ("code", ctypes.c_int64), ("text", ctypes.c_char_p),
                ("reason", ctypes.c_int32), ("reason_name", ctypes.c_char_p), ("suggestion", ctypes.c_char_p)]


FINISHED = ctypes.CFUNCTYPE(None, ctypes.c_void_p)
FAILED = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.POINTER(Error))
LOG = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_int32, ctypes.c_char_p)
RELEASE = ctypes.CFUNCTYPE(None, ctypes.c_void_p)


class Library:
    def __init__(self, path):
        self.c = ctypes.CDLL(path)
        self.c.tks_launch.argtypes = [ctypes.c_char_p, FINISHED, FAILED, ctypes.c_void_p, RELEASE]
        self.c.tks_set_log.argtypes = [LOG, ctypes.c_void_p, RELEASE]
        # What ctypes makes of a function has to live as long as the library may call it: until its release.
        self.kept = {}
        self.release = RELEASE(lambda key: self.kept.pop(key) and None)

    def set_log(self, show):
        self.log = LOG(lambda _, level, line: show(level, line.decode()))
        self.c.tks_set_log(self.log, None, RELEASE())

    def launch(self, parameters, finished, failed):
        finish = FINISHED(lambda _: finished())
        fail = FAILED(lambda _, error: failed(error.contents.text.decode(), error.contents.code))
        key = max(self.kept, default=0) + 1
        self.kept[key] = finish, fail
        self.c.tks_launch(json.dumps(parameters).encode(), finish, fail, key, self.release)

    def run_until(self, is_done):
        """The program's own loop: it waits for the library's descriptor, and could wait for others."""
        while not is_done():
            if select.select([self.c.tks_main_loop_descriptor()], [], [], 60)[0]:
                self.c.tks_main_loop_drain()


def main():
    library = Library(sys.argv[1])
    library.set_log(lambda level, line: print(line, file=sys.stderr) if level >= 4 else None)
    library.c.tks_set_launcher(sys.argv[2].encode())

    told = []
    library.launch({"gpcsitedomain": "https://meet.tarvo.example", "meetingkey": "123 456 789"},
                   lambda: told.append("The meeting was launched."),
                   lambda text, code: told.append(f"The meeting was not launched: {text} ({code})"))
    library.run_until(lambda: told)
    # Standard output belongs to the launcher while it is connected.
    print(told[0], file=sys.stderr)
    return 0 if told[0] == "The meeting was launched." else 1


if __name__ == "__main__":
    sys.exit(main())
