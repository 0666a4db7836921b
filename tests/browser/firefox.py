"""Drives a real Firefox without a display, over Marionette: LENGTH:[0, number, command, parameters]."""
import json
import socket
import subprocess
import time
import zipfile

PROGRAM = "/usr/lib/firefox-esr/firefox-esr"
# The host part of the extension's pages, which the browser would choose anew for each profile.
PAGES = "5d2c7a0e-6f0b-4d6e-9a53-3c1f0c9c7f11"
IDENTIFIER = "kovra-start-example@tarvo.example"
ELEMENT = "element-6066-11e4-a52e-4f735466cecf"


class Firefox:
    name = "firefox"

    def __init__(self, work, extension, environment):
        self.profile = work / "profile"
        self.profile.mkdir(parents=True)
        home = work / "browser-home"
        self.manifests = home / ".mozilla" / "native-messaging-hosts"
        self.manifests.mkdir(parents=True)
        self.environment = {**environment, "HOME": str(home)}
        self.package = work / "extension.xpi"
        with zipfile.ZipFile(self.package, "w") as package:
            for file in extension.iterdir():
                package.write(file, file.name)
        self.number, self.pending = 0, b""

    def start(self):
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            port = probe.getsockname()[1]
        preferences = {"marionette.port": port, "extensions.webextensions.uuids": json.dumps({IDENTIFIER: PAGES}),
                       "datareporting.policy.dataSubmissionEnabled": False, "browser.shell.checkDefaultBrowser": False}
        (self.profile / "user.js").write_text(
            "".join(f"user_pref({json.dumps(name)}, {json.dumps(value)});\n" for name, value in preferences.items()))
        self.process = subprocess.Popen([PROGRAM, "--headless", "--marionette", "--remote-allow-system-access", "--no-remote",
                                         "--profile", str(self.profile)],
                                        env=self.environment, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                        stderr=subprocess.DEVNULL)
        self.connection = self.connect(port)
        self.receive()
        self.ask("WebDriver:NewSession", {})
        self.ask("Addon:Install", {"path": str(self.package), "temporary": True})

    def connect(self, port):
        end = time.monotonic() + 60
        while time.monotonic() < end:
            try:
                return socket.create_connection(("127.0.0.1", port), timeout=60)
            except ConnectionRefusedError:
                time.sleep(0.1)
        raise TimeoutError("the browser does not listen")

    def receive(self):
        while b":" not in self.pending:
            self.more()
        length, self.pending = self.pending.split(b":", 1)
        while len(self.pending) < int(length):
            self.more()
        text, self.pending = self.pending[:int(length)], self.pending[int(length):]
        return json.loads(text)

    def more(self):
        piece = self.connection.recv(65536)
        if not piece:
            raise EOFError("the browser ended")
        self.pending += piece

    def ask(self, command, parameters):
        self.number += 1
        text = json.dumps([0, self.number, command, parameters]).encode()
        self.connection.sendall(str(len(text)).encode() + b":" + text)
        _, _, error, result = self.receive()
        if error:
            raise RuntimeError(f"{command}: {error}")
        return result

    def open_page(self):
        """As the extension does when its button is pressed; a page of the web may not go there."""
        self.ask("Marionette:SetContext", {"value": "chrome"})
        self.ask("WebDriver:ExecuteScript",
                 {"script": "gBrowser.selectedTab = gBrowser.addTrustedTab(arguments[0]);",
                  "args": [f"moz-extension://{PAGES}/page.html"], "sandbox": None})
        self.ask("Marionette:SetContext", {"value": "content"})
        self.ask("WebDriver:SwitchToWindow", {"handle": self.ask("WebDriver:GetWindowHandles", {})[-1]})

    def evaluate(self, expression):
        return self.ask("WebDriver:ExecuteScript", {"script": f"return {expression}", "args": [], "sandbox": None})["value"]

    def press_button(self):
        button = self.ask("WebDriver:FindElement", {"using": "css selector", "value": "#launch"})["value"]
        self.ask("WebDriver:ElementClick", {"id": button[ELEMENT]})

    def names_for_screen_readers(self):
        """Role and name of each element that has a part in the page, as the browser computes them."""
        found = set()
        for element in self.ask("WebDriver:FindElements", {"using": "css selector", "value": "input, button, p"}):
            identifier = {"id": element[ELEMENT]}
            role = self.ask("WebDriver:GetComputedRole", identifier)["value"]
            found.add((role, self.ask("WebDriver:GetComputedLabel", identifier)["value"]))
        return found

    def close(self):
        try:
            self.ask("Marionette:Quit", {"flags": ["eForceQuit"]})
        except (EOFError, ConnectionResetError):
            pass
        self.process.wait(timeout=60)
        self.connection.close()

    def kill(self):
        self.process.kill()
        self.process.wait()
        self.connection.close()
