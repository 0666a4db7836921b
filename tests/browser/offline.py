"""A headless Chromium in a network of its own, which has nothing but the loopback interface. As root, on Linux."""
import fcntl
import os
import pathlib
import socket
import struct
import subprocess
import sys
import tempfile


def raise_loopback():
    """The driver is asked over it; nothing else is there."""
    with socket.socket() as control:
        fcntl.ioctl(control, 0x8914, struct.pack("16sh", b"lo", 0x1 | 0x40))  # SIOCSIFFLAGS: IFF_UP, IFF_RUNNING


def open_browser(profile):
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
    options = webdriver.ChromeOptions()
    options.binary_location = "/usr/lib/chromium/chromium"
    for word in ("--headless=new", "--no-sandbox", "--no-first-run", "--disable-gpu", "--disable-dev-shm-usage", f"--user-data-dir={profile}"):
        options.add_argument(word)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    return webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)


def run(program, words, check):
    """Runs check(browser, folder) in a network and with processes of its own; `folder` is for its files and goes afterwards.
    `program` is the script itself, which is started once more for that, with the same words."""
    if os.environ.get("TKS_OFFLINE") != "yes":
        space = ["unshare", "--net", "--mount", "--pid", "--fork", "--mount-proc", "--kill-child"]
        return subprocess.run([*space, sys.executable, program, *words], env={**os.environ, "TKS_OFFLINE": "yes"}).returncode
    raise_loopback()
    with tempfile.TemporaryDirectory() as folder:
        os.environ.update(HOME=folder, TMPDIR=folder)
        browser = open_browser(pathlib.Path(folder) / "profile")
        try:
            check(browser, pathlib.Path(folder))
        finally:
            browser.quit()
    return 0
