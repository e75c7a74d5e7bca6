"""What tests of pages in a real browser begin with: disks whose pictures are known, and the browser.

A test is called with the paths of diskaccess and diskaccess-sample, and ends with run().
"""

import datetime
import http.server
import json
import os
import shutil
import subprocess
import sys
import threading
import time
import unittest
import urllib.error
import urllib.request

try:
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.action_chains import ActionChains
    from selenium.webdriver.common.by import By
    from selenium.webdriver.common.keys import Keys
except ImportError:
    webdriver = ActionChains = By = Keys = None

PROGRAM, RECORDER = sys.argv[1:3]
NEEDED = ["chromium", "chromedriver", "ffmpeg"]
START = datetime.datetime(2026, 11, 20, 14, 0, 0, tzinfo=datetime.timezone.utc)
GOP = 2  # seconds
HOSTILE = "<img src=x onerror=alert(1)>"
WIDTH, HEIGHT, BITS = 320, 240, 16

ENCODERS = {
    "h264": ["-c:v", "libx264", "-preset", "ultrafast", "-threads", "1", "-qp", "20"],
    "hevc": ["-c:v", "libx265", "-preset", "ultrafast", "-x265-params",
             "log-level=none:pools=none:frame-threads=1:repeat-headers=1:qp=20:scenecut=0:open-gop=0:aud=0"],
}


def make_clip(path, rate, seconds, codec="h264", gop=GOP):
    """Each picture shows the number of its frame as a row of 16 black and white fields."""
    field = WIDTH // BITS
    code = f"if(lt(Y,32),255*mod(floor(N/pow(2,floor(X/{field}))),2),100+50*lt(mod(X+8*N,64),32))"
    subprocess.run(
        ["ffmpeg", "-nostdin", "-y", "-loglevel", "error", "-f", "lavfi", "-i",
         f"color=size={WIDTH}x{HEIGHT}:rate={rate}:duration={seconds}", "-vf", f"geq=lum='{code}':cb=128:cr=128",
         *ENCODERS[codec], "-bf", "0", "-g", str(rate * gop), "-keyint_min", str(rate * gop), "-f", codec, path],
        check=True)


def record(folder, name, cameras, recordings, events=(), description="Bar codes"):
    """Has the recorder write a disk; returns its path."""
    scenario = {
        "partition": {"block_count": 8, "block_size": 4194304, "layout": "extended", "description": description},
        "vehicle": {"number": "BUS 7", "id": "bus-7"},
        "cameras": cameras,
        "recordings": recordings,
        "events": list(events),
    }
    path = os.path.join(folder, name + ".json")
    with open(path, "w", encoding="utf-8") as file:
        json.dump(scenario, file)
    image = os.path.join(folder, name + ".img")
    subprocess.run([RECORDER, "record", path, image, "--media", folder], check=True, stdout=subprocess.DEVNULL)
    return image


def rfc3339(seconds):
    return (START + datetime.timedelta(seconds=seconds)).strftime("%Y-%m-%dT%H:%M:%SZ")


def start_browser(arguments, logs, preferences=None):
    """A browser without a window; @p logs are those that it keeps."""
    options = webdriver.ChromeOptions()
    for argument in ("--headless=new", "--no-sandbox", "--disable-background-networking", *arguments):
        options.add_argument(argument)
    options.add_experimental_option("prefs", preferences or {})
    options.set_capability("goog:loggingPrefs", {log: "ALL" for log in logs})
    return webdriver.Chrome(service=Service(shutil.which("chromedriver")), options=options)


class Between:
    """Stands between a browser and a viewer: counts what is asked, refuses to answer, and puts code before a script."""

    def __init__(self, address, scripts=None):
        site, self.fragment = address.split("#")
        self.site = site.rstrip("/")
        self.scripts = scripts or {}  # what goes before each, by its path
        self.failing = ()  # how the paths begin for which the answer is an error
        self.asked = []  # paths, with the times at which they were asked for
        between = self

        class Handler(http.server.BaseHTTPRequestHandler):
            def do_GET(self):
                between.answer(self)

            def log_message(self, *_):
                pass

        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        self.server.daemon_threads = True
        self.thread = threading.Thread(target=self.server.serve_forever)
        self.address = f"http://127.0.0.1:{self.server.server_port}/#{self.fragment}"

    def __enter__(self):
        self.thread.start()
        return self

    def __exit__(self, *_):
        self.server.shutdown()
        self.thread.join()
        self.server.server_close()

    def answer(self, request):
        self.asked.append((request.path, time.monotonic()))
        if request.path.startswith(self.failing):
            request.send_error(500)
            return
        kept = {name: value for name, value in request.headers.items() if name.lower() not in ("host", "connection")}
        try:
            with urllib.request.urlopen(urllib.request.Request(self.site + request.path, headers=kept), timeout=60) as found:
                status, headers, body = found.status, found.headers, found.read()
        except urllib.error.HTTPError as error:
            status, headers, body = error.code, error.headers, error.read()
        body = self.scripts.get(request.path, "").encode() + body
        request.send_response(status)
        for name, value in headers.items():
            if name.lower() not in ("content-length", "connection", "transfer-encoding", "date"):
                request.send_header(name, value)
        request.send_header("Content-Length", str(len(body)))
        request.end_headers()
        try:
            request.wfile.write(body)
        except (BrokenPipeError, ConnectionResetError):
            pass  # the page asks for something else meanwhile

    def times_of(self, path):
        """When what begins like @p path was asked for."""
        return [at for each, at in self.asked if each.startswith(path)]


class PageTest(unittest.TestCase):
    """A test of pages in cls.browser, which subclasses start."""

    def wait(self, holds, seconds=60):
        end = time.monotonic() + seconds
        while not holds():
            self.assertLess(time.monotonic(), end, "nothing came of it")
            time.sleep(0.03)

    def assert_console_is_empty(self):
        self.assertEqual([entry["message"] for entry in self.browser.get_log("browser")], [], "the console is empty")


def run():
    """Runs the calling program's tests. Exits with 77 where something that they need is missing."""
    missing = [name for name in NEEDED if shutil.which(name) is None]
    if webdriver is None:
        missing.append("python3-selenium")
    if missing:
        print("not run for want of:", ", ".join(missing))
        sys.exit(77)
    unittest.main(argv=[sys.argv[0], "-v", *sys.argv[3:]])
