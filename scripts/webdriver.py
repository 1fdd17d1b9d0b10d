"""Chromium for tests: what they do with a page, and how they tell what they found."""
import json
import os
import subprocess
import sys
import urllib.error
import urllib.request

ELEMENT = "element-6066-11e4-a52e-4f735466cecf"  # the key of the WebDriver protocol
KEYS = {"left": "\ue012", "right": "\ue014", "end": "\ue010", "tab": "\ue004", "enter": "\ue007"}
# Answers no request: what the page would ask for fails, and shows in the log.
NO_NETWORK = ["--host-resolver-rules=MAP * ~NOTFOUND", "--proxy-server=127.0.0.1:9"]


class Browser:
    """A headless Chromium, driven over the WebDriver protocol (W3C, "WebDriver", 2018)."""

    def __init__(self, dark=False, arguments=NO_NETWORK):
        self.driver = subprocess.Popen(["chromedriver", "--port=0"], stdout=subprocess.PIPE, text=True)
        port = None
        for line in self.driver.stdout:
            if "successfully on port" in line:
                port = int(line.rsplit("port", 1)[1].strip(" .\n"))
                break
        if port is None:
            sys.exit("chromedriver does not start")
        self.url = f"http://127.0.0.1:{port}/session"
        arguments = ["--headless=new", "--window-size=1200,1000", "--disable-gpu", "--disable-dev-shm-usage", *arguments]
        if os.geteuid() == 0:
            arguments.append("--no-sandbox")
        if dark:
            arguments.append("--force-dark-mode")
        session = self.call("", {"capabilities": {"alwaysMatch": {
            "goog:chromeOptions": {"args": arguments}, "goog:loggingPrefs": {"browser": "ALL"}}}})
        self.url += "/" + session["sessionId"]

    def call(self, path, body=None, method=None):
        data = None if body is None else json.dumps(body).encode()
        request = urllib.request.Request(self.url + path, data, {"Content-Type": "application/json"}, method=method)
        try:
            with urllib.request.urlopen(request, timeout=120) as answer:
                return json.load(answer)["value"]
        except urllib.error.HTTPError as error:
            sys.exit(f"the browser refuses {path}: {error.read().decode()[:500]}")

    def close(self):
        try:
            self.call("", method="DELETE")
        finally:
            self.driver.terminate()
            self.driver.wait()

    def open(self, url):
        self.call("/url", {"url": url})

    def run(self, script, *arguments):
        return self.call("/execute/sync", {"script": script, "args": list(arguments)})

    def find(self, selector):
        return self.call("/element", {"using": "css selector", "value": selector})[ELEMENT]

    def text(self, selector):
        return self.call(f"/element/{self.find(selector)}/text")

    def click(self, selector):
        self.call(f"/element/{self.find(selector)}/click", {})

    def press(self, *keys):
        steps = [{"type": kind, "value": KEYS.get(key, key)} for key in keys for kind in ("keyDown", "keyUp")]
        self.call("/actions", {"actions": [{"type": "key", "id": "keys", "actions": steps}]})

    def give_files(self, selector, paths):
        """To an input of files."""
        self.call(f"/element/{self.find(selector)}/value", {"text": "\n".join(str(path) for path in paths)})

    def command(self, name, **parameters):
        """A command of the DevTools protocol."""
        return self.call("/goog/cdp/execute", {"cmd": name, "params": parameters})

    def drag(self, selector, dx, dy=0):
        origin = {ELEMENT: self.find(selector)}
        self.call("/actions", {"actions": [{"type": "pointer", "id": "mouse", "actions": [
            {"type": "pointerMove", "origin": origin, "x": 0, "y": 0, "duration": 0},
            {"type": "pointerDown", "button": 0},
            {"type": "pointerMove", "origin": "pointer", "x": dx, "y": dy, "duration": 50},
            {"type": "pointerUp", "button": 0}]}]})

    def complaints(self):
        return [entry["message"] for entry in self.call("/se/log", {"type": "browser"}) if entry["level"] == "SEVERE"]


def check(good, what, *seen):
    print(("ok      " if good else "FAILED  ") + what, *([] if good else seen))
    check.failed |= not good


check.failed = False
