"""A launcher in a few lines of its own, which breaks one rule of the protocol: faulty_launcher.py FAULT ARGUMENT...

What the behaviours of fake launchers cannot break, because the library's side for launchers keeps it for them.
"""
import json
import os
import struct
import sys
import time

FAULT, ARGUMENTS = sys.argv[1], sys.argv[2:]
LARGEST = 1 << 20 if FAULT == "takes only a mebibyte" else 10485760


def argument(name):
    return ARGUMENTS[ARGUMENTS.index(name) + 1] if name in ARGUMENTS else None


class Pipes:
    def read(self, size):
        data = os.read(0, size)
        return data or sys.exit(0)

    def write(self, data):
        os.write(1, data)


class Files:
    def __init__(self, folder):
        self.folder, self.host = folder, os.getppid()
        self.sent, self.heard = (os.path.join(folder, name) for name in ("ipcFile_TKS2Interface", "ipcFile_Interface2TKS"))
        self.input = open(self.heard, "rb", buffering=0)

    def read(self, size):
        while not (data := self.input.read(size)):
            if os.getppid() != self.host:
                sys.exit(0)
            time.sleep(0.01)
        return data

    def write(self, data):
        if FAULT == "cuts the host's file":
            os.truncate(self.heard, 0)
            self.input.seek(0)
        if FAULT == "makes a file":
            open(os.path.join(self.folder, "launcher.log"), "w").close()
        if FAULT == "removes its file":
            os.remove(self.sent)
        elif FAULT == "replaces its file":
            with open(self.sent + ".new", "wb") as file:
                file.write(data)
            os.rename(self.sent + ".new", self.sent)
        else:
            with open(self.sent, "wb" if FAULT == "writes its file anew" else "ab") as file:
                file.write(data)


def channel():
    if argument("-Communicate") == "File" and FAULT != "knows no files":
        return Files(argument("-TempIPCFilePath"))
    if argument("-Communicate") is None and FAULT == "wants to be told of pipes":
        sys.exit("which channel?")
    return Pipes()


def exactly(size):
    data = bytearray()
    while len(data) < size:
        data += talk.read(size - len(data))
    return bytes(data)


def receive():
    length, = struct.unpack("<I", exactly(4))
    if length > LARGEST and FAULT != "takes any length":
        sys.exit(1)
    message = json.loads(exactly(length))
    if FAULT == "takes names in any case, the first":
        message = {name.lower(): value for name, value in reversed(message.items())}
    if FAULT == "takes names in any case, the last":
        message = {name.lower(): value for name, value in message.items()}
    return message


def send(kind, body=None):
    payload = json.dumps({"message_type": kind, "message": body or kind}).encode()
    talk.write(struct.pack("<I", len(payload)) + payload)


def launch(body):
    if isinstance(body, str) and FAULT == "has no ear for texts":
        return
    if isinstance(body, str) and "{" in body and FAULT != "takes texts for no parameters":
        body = json.loads(body)
    if "meetingkey" in body and isinstance(body, dict):
        return send("launch_meeting_ack", {"result": "0"})
    send("error", {"error_code": "2005", "error_message": "no meeting"})


talk = channel()
while True:
    heard = receive()
    if heard.get("message_type") == "hello":
        send("hello_ack")
    if heard.get("message_type") == "launch_meeting":
        launch(heard.get("message", {}))
    if heard.get("message_type") == "disconnect":
        send("disconnect_ack")
        sys.exit(0)
