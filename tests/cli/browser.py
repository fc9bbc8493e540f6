"""A browser without a window, driven through the two pipes of its DevTools protocol."""

import base64
import json
import os
import shutil
import signal
import subprocess

PROGRAM = shutil.which("chromium")
SWITCHES = ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--hide-scrollbars", "--no-first-run",
            "--disable-extensions", "--disable-background-networking", "--disable-component-update", "--disable-sync",
            "--proxy-server=127.0.0.1:9", "--remote-debugging-pipe")


class Browser:
    """Shows one page at a time; problems holds what its console says, and everything it wants to fetch."""

    def __init__(self, folder):
        to_us, self.send_end = os.pipe()
        self.receive_end, from_us = os.pipe()
        environment = {**os.environ, "HOME": folder, "XDG_CONFIG_HOME": folder, "XDG_CACHE_HOME": folder}
        command = [PROGRAM, "--user-data-dir=" + os.path.join(folder, "profile"), *SWITCHES, "about:blank"]
        self.process = subprocess.Popen(["sh", "-c", f'exec "$@" 3<&{to_us} 4>&{from_us}', "sh", *command],
                                        pass_fds=(to_us, from_us), stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                        stderr=subprocess.DEVNULL, env=environment, start_new_session=True)
        os.close(to_us)
        os.close(from_us)
        self.buffer, self.number, self.session, self.problems, self.events = b"", 0, None, [], []
        page = self.call("Target.createTarget", url="about:blank")["targetId"]
        self.session = self.call("Target.attachToTarget", targetId=page, flatten=True)["sessionId"]
        for domain in ("Page", "Runtime", "Log", "Network"):
            self.call(domain + ".enable")

    def close(self):
        os.close(self.send_end)
        os.close(self.receive_end)
        os.killpg(self.process.pid, signal.SIGKILL)
        self.process.wait()

    def receive(self):
        while b"\0" not in self.buffer:
            piece = os.read(self.receive_end, 1 << 16)
            if not piece:
                raise RuntimeError("the browser has ended")
            self.buffer += piece
        text, self.buffer = self.buffer.split(b"\0", 1)
        message = json.loads(text)
        kind, told = message.get("method"), message.get("params", {})
        self.events.append(kind)
        if kind == "Network.requestWillBeSent" and not told["request"]["url"].startswith(("file:", "data:")):
            self.problems.append(told["request"]["url"])
        if kind in ("Runtime.consoleAPICalled", "Runtime.exceptionThrown", "Log.entryAdded"):
            self.problems.append(told)
        return message

    def call(self, method, **arguments):
        self.number += 1
        message = {"id": self.number, "method": method, "params": arguments}
        if self.session:
            message["sessionId"] = self.session
        os.write(self.send_end, json.dumps(message).encode() + b"\0")
        while True:
            answer = self.receive()
            if answer.get("id") == self.number:
                if "error" in answer:
                    raise RuntimeError(answer["error"])
                return answer["result"]

    def show(self, path, width=1000, scheme="light", height=900):
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1, mobile=False)
        self.call("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": scheme}])
        self.events.clear()
        self.call("Page.navigate", url="file://" + path)
        while "Page.loadEventFired" not in self.events:
            self.receive()

    def value(self, expression):
        """Of an expression in the page."""
        return self.call("Runtime.evaluate", expression=expression, returnByValue=True)["result"]["value"]

    def picture(self):
        """All of the page, as PNG."""
        shot = self.call("Page.captureScreenshot", captureBeyondViewport=True)
        return base64.b64decode(shot["data"])
