"""Drives a real Chromium without a display, over the descriptors of its DevTools: JSON, each message closed by a NUL byte."""
import json
import os
import select
import subprocess
import time

PROGRAM = "/usr/lib/chromium/chromium"


class Chromium:
    name = "chromium"

    def __init__(self, work, extension, environment):
        self.profile = work / "profile"
        self.manifests = self.profile / "NativeMessagingHosts"
        self.manifests.mkdir(parents=True)
        self.extension, self.environment = extension, environment
        self.number, self.pending, self.session = 0, b"", None

    def start(self):
        to_browser, self.write_end = os.pipe()
        self.read_end, from_browser = os.pipe()

        def give_descriptors():
            # Out of the way first: either may have the number that the other is to get.
            first, second = os.dup(to_browser), os.dup(from_browser)
            os.dup2(first, 3)
            os.dup2(second, 4)

        self.process = subprocess.Popen(
            [PROGRAM, "--headless=new", "--no-sandbox", "--no-first-run", "--disable-gpu", "--disable-dev-shm-usage",
             "--remote-debugging-pipe", "--enable-unsafe-extension-debugging", f"--user-data-dir={self.profile}"],
            env=self.environment, close_fds=False, preexec_fn=give_descriptors, stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(to_browser)
        os.close(from_browser)
        self.identifier = self.ask("Extensions.loadUnpacked", path=str(self.extension))["id"]

    def ask(self, method, session=None, **parameters):
        self.number += 1
        message = {"id": self.number, "method": method, "params": parameters}
        if session:
            message["sessionId"] = session
        os.write(self.write_end, json.dumps(message).encode() + b"\0")
        end = time.monotonic() + 60
        while time.monotonic() < end:
            answer = self.receive(end)
            if answer.get("id") == self.number:
                if "error" in answer:
                    raise RuntimeError(f"{method}: {answer['error']}")
                return answer["result"]
        raise TimeoutError(method)

    def receive(self, end):
        while b"\0" not in self.pending:
            if not select.select([self.read_end], [], [], max(0, end - time.monotonic()))[0]:
                raise TimeoutError("the browser is silent")
            piece = os.read(self.read_end, 65536)
            if not piece:
                raise EOFError("the browser ended")
            self.pending += piece
        text, self.pending = self.pending.split(b"\0", 1)
        return json.loads(text)

    def open_page(self):
        target = self.ask("Target.createTarget", url=f"chrome-extension://{self.identifier}/page.html")["targetId"]
        self.session = self.ask("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]

    def evaluate(self, expression):
        answer = self.ask("Runtime.evaluate", self.session, expression=expression, returnByValue=True)
        if "exceptionDetails" in answer:
            raise RuntimeError(f"{expression}: {answer['exceptionDetails']}")
        return answer["result"].get("value")

    def press_key(self, key, code):
        for kind in ("rawKeyDown", "char", "keyUp"):
            text = {"text": "\r"} if kind == "char" and key == "Enter" else {}
            if kind == "char" and not text:
                continue
            self.ask("Input.dispatchKeyEvent", self.session, type=kind, key=key, code=key, windowsVirtualKeyCode=code, **text)

    def press_button(self):
        """As somebody without a mouse does: from field to field, then Enter."""
        for _ in range(10):
            self.press_key("Tab", 9)
            if self.evaluate("document.activeElement.id") == "launch":
                return self.press_key("Enter", 13)
        raise RuntimeError("the button cannot be reached with the keyboard")

    def names_for_screen_readers(self):
        nodes = self.ask("Accessibility.getFullAXTree", self.session)["nodes"]
        return {(node["role"]["value"], node.get("name", {}).get("value", "")) for node in nodes if "role" in node}

    def close(self):
        try:
            self.ask("Browser.close")
        except EOFError:
            pass
        self.process.wait(timeout=30)
        self.release()

    def kill(self):
        self.process.kill()
        self.process.wait()
        self.release()

    def release(self):
        os.close(self.write_end)
        os.close(self.read_end)
