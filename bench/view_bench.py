"""Times the viewer in Chromium, and mpv on the same stretch exported. Run by scripts/bench-view.

    view_bench.py DISKACCESS DISKACCESS_SAMPLE DIRECTORY [PART...]

Each camera's picture shows the number of its frame as 16 black and white fields. A picture stands when the fields that the
browser shows are those of the time that was asked for: what is timed ends there, not with a message that says so.
"""

import datetime
import json
import os
import random
import re
import shutil
import signal
import socket
import statistics
import subprocess
import sys
import threading
import time

from selenium import webdriver
from selenium.webdriver.chrome.service import Service

PROGRAM, RECORDER, DIRECTORY = sys.argv[1:4]
CAMERAS, RATE, GOP = 4, 25, 50
CLIP = 60  # seconds; recorded again and again
SECONDS = 300
START = datetime.datetime(2026, 11, 20, 14, 0, 0, tzinfo=datetime.timezone.utc)
ROUNDS = int(os.environ.get("ROUNDS", "20"))  # starts
SEEKS = int(os.environ.get("SEEKS", "100"))
PLAYED = 30  # seconds
RING_BLOCKS = 65536
TABS = 3
DISK = os.path.join(DIRECTORY, "view.img")
RING = os.path.join(DIRECTORY, "ring.img")
EXPORT = os.path.join(DIRECTORY, "view.mkv")

# What is timed in the page. codes(): the frame that each camera shows; shown(time): whether all show theirs of that time.
WATCH = """
window.bench = {
  codes() {
    return [...document.querySelectorAll("figure")].map((figure) => {
      if (figure.dataset.state !== "picture") { return null; }
      const source = figure.querySelector("canvas");
      const canvas = (this.canvas ??= new OffscreenCanvas(640, 8));
      const context = (this.context ??= canvas.getContext("2d", { willReadFrequently: true }));
      context.drawImage(source, 0, 8, source.width, 8, 0, 0, source.width, 8);
      const { data } = context.getImageData(0, 4, source.width, 1);
      let code = 0;
      for (let bit = 0; bit < 16; ++bit) {
        code += data[4 * Math.floor((bit + 0.5) * source.width / 16)] > 127 ? 2 ** bit : 0;
      }
      return code;
    });
  },
  shows(code) {
    const codes = this.codes();
    return codes.length === CAMERAS && codes.every((each) => each === code);
  },
  // Does something, and gives the milliseconds until all cameras show a frame.
  async until(action, code) {
    const begin = performance.now();
    action();
    while (!this.shows(code)) {
      if (performance.now() - begin > 20000) { throw new Error("no picture within 20 s"); }
      await new Promise((resolve) => requestAnimationFrame(resolve));
    }
    return performance.now() - begin;
  },
  async first() {
    while (!this.shows(0)) { await new Promise((resolve) => requestAnimationFrame(resolve)); }
    this.firstAt = Date.now();
  },
};
if (location.protocol === "http:") { window.bench.first(); }
""".replace("CAMERAS", str(CAMERAS))

UNTIL = """
const [action, argument, code, done] = arguments;
const actions = {
  seek: () => { location.hash = argument; },
  key: () => document.body.dispatchEvent(new KeyboardEvent("keydown", {key: argument, bubbles: true})),
};
window.bench.until(actions[action], code).then(done, (error) => done(error.message));
"""


def micros(seconds):
    return round((START.timestamp() + seconds) * 1000000)


def frame_at(seconds):
    return int(seconds * RATE + 0.001) % (CLIP * RATE)


def line(name, value):
    print(f"{name:56} {value}", flush=True)


def spread(times):
    """Median and 99th percentile of milliseconds."""
    ordered = sorted(times)
    return f"{statistics.median(ordered):6.0f} ms   99 %: {ordered[int(len(ordered) * 0.99) - 1]:6.0f} ms"


# ---- the disks

def make_clip(number):
    """A minute of a moving picture with a camera's noise, below a strip with the number of the frame."""
    path = os.path.join(DIRECTORY, f"view-{number}.h264")
    strip = "if(lt(Y,16),255*mod(floor(N/pow(2,floor(X/40))),2),0)"
    subprocess.run(
        ["ffmpeg", "-nostdin", "-y", "-loglevel", "error", "-f", "lavfi", "-i",
         f"color=size=640x32:rate={RATE}:duration={CLIP},geq=lum='{strip}':cb=128:cr=128[strip];"
         f"testsrc2=size=640x328:rate={RATE}:duration={CLIP},hue=h={90 * number},noise=alls=12:allf=t[picture];"
         "[strip][picture]vstack", "-pix_fmt", "yuv420p",
         "-c:v", "libx264", "-preset", "ultrafast", "-threads", "1", "-bf", "0", "-g", str(GOP), "-keyint_min", str(GOP),
         "-b:v", "1000k", "-f", "h264", path], check=True)
    return os.path.basename(path)


def prepare():
    os.makedirs(DIRECTORY, exist_ok=True)
    if not os.path.exists(DISK):
        scenario = {
            "partition": {"block_count": 40, "block_size": 8388608, "layout": "extended"},
            "cameras": [{"channel": number, "frame_rate": RATE, "gop": GOP, "bitrate": 1000000}
                        for number in range(CAMERAS)],
            "recordings": [{"start": START.strftime("%Y-%m-%dT%H:%M:%SZ"), "seconds": SECONDS,
                            "clips": [{"channel": number, "video": make_clip(number)} for number in range(CAMERAS)]}],
        }
        path = os.path.join(DIRECTORY, "view.json")
        with open(path, "w", encoding="utf-8") as file:
            json.dump(scenario, file)
        subprocess.run([RECORDER, "record", path, DISK, "--media", DIRECTORY], check=True, stdout=subprocess.DEVNULL)
    if not os.path.exists(EXPORT):
        subprocess.run([PROGRAM, "export", DISK, "-o", EXPORT], check=True, stdout=subprocess.DEVNULL)
    if not os.path.exists(RING):
        subprocess.run([RECORDER, "ring", RING, "--blocks", str(RING_BLOCKS), "--block-size", "8MiB"], check=True,
                       stdout=subprocess.DEVNULL)


def forget(path):
    """Takes a file out of the page cache."""
    with open(path, "rb") as file:
        os.fsync(file.fileno())
        os.posix_fadvise(file.fileno(), 0, 0, os.POSIX_FADV_DONTNEED)


# ---- processes

def children_of(pid):
    found = []
    for task in os.listdir(f"/proc/{pid}/task"):
        with open(f"/proc/{pid}/task/{task}/children", encoding="ascii") as file:
            for child in map(int, file.read().split()):
                found += [child, *children_of(child)]
    return found


def seconds_of(pids):
    """Processor time of processes, and of those that they have waited for."""
    ticks = 0
    for pid in pids:
        with open(f"/proc/{pid}/stat", encoding="ascii") as file:
            ticks += sum(map(int, file.read().rpartition(")")[2].split()[11:15]))
    return ticks / os.sysconf("SC_CLK_TCK")


class Memory:
    """Watches a process's memory in MiB: what is resident, and what of it no file holds."""

    def __init__(self, pid):
        self.pid = pid
        self.most = (0, 0)
        self.ended = threading.Event()
        self.thread = threading.Thread(target=self.watch)
        self.thread.start()

    def now(self):
        with open(f"/proc/{self.pid}/smaps_rollup", encoding="ascii") as file:
            text = file.read()
        return tuple(int(re.search(rf"^{name}:\s+(\d+) kB$", text, re.MULTILINE).group(1)) / 1024
                     for name in ("Rss", "Anonymous"))

    def watch(self):
        while not self.ended.wait(0.05):
            now = self.now()
            self.most = tuple(max(pair) for pair in zip(self.most, now))

    def end(self):
        self.ended.set()
        self.thread.join()


class Viewer:
    def __init__(self, image):
        self.begun = time.time()
        self.process = subprocess.Popen([PROGRAM, "view", image, "--utc", "--no-browser", "--export-dir", DIRECTORY],
                                        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self.address = self.process.stdout.readline().strip()
        self.listening = time.time()

    def end(self):
        self.process.send_signal(signal.SIGINT)
        self.process.wait(60)
        self.process.stdout.close()


class Browser:
    def __init__(self):
        options = webdriver.ChromeOptions()
        for argument in ("--headless=new", "--no-sandbox", "--window-size=1400,900", "--disable-background-networking"):
            options.add_argument(argument)
        self.driver = webdriver.Chrome(service=Service(shutil.which("chromedriver")), options=options)
        self.driver.set_script_timeout(60)
        self.driver.execute_cdp_cmd("Page.addScriptToEvaluateOnNewDocument", {"source": WATCH})
        self.number = 0

    def processes(self):
        return children_of(self.driver.service.process.pid)

    def script(self, text, *arguments):
        return self.driver.execute_script(text, *arguments)

    def wait(self, text):
        end = time.monotonic() + 60
        while not self.script("return " + text):
            if time.monotonic() > end:
                raise RuntimeError("waited in vain for: " + text)
            time.sleep(0.02)

    def open(self, address):
        self.driver.get("about:blank")
        self.driver.get(address)
        self.wait("document.body.dataset.complete === 'true' && document.body.dataset.busy === 'false'")

    def hash_of(self, seconds):
        self.number += 1  # nothing happens when the address is what it was
        at = START + datetime.timedelta(seconds=seconds)
        return f"t={at.strftime('%Y-%m-%dT%H:%M:%S.%f')}&n={self.number}"

    def until(self, action, argument, code):
        took = self.driver.execute_async_script(UNTIL, action, argument, code)
        if isinstance(took, str):
            raise RuntimeError(took)
        return took

    def seek(self, seconds):
        took = self.until("seek", self.hash_of(seconds), frame_at(seconds))
        self.wait("document.body.dataset.busy === 'false'")
        return took

    def key(self, key):
        self.script("document.body.dispatchEvent(new KeyboardEvent('keydown', {key: arguments[0], bubbles: true}))", key)

    def end(self):
        self.driver.quit()


def viewed(measure, image=DISK):
    viewer = Viewer(image)
    browser = Browser()
    try:
        measure(viewer, browser)
    finally:
        browser.end()
        viewer.end()


# ---- the viewer

def start():
    browser = Browser()
    for name, cold in (("disk cold", True), ("disk in the page cache", False)):
        listening, pictures = [], []
        for _ in range(ROUNDS):
            browser.driver.get("about:blank")
            if cold:
                forget(DISK)
            viewer = Viewer(DISK)
            browser.driver.get(viewer.address)
            browser.wait("window.bench.firstAt !== undefined")
            pictures.append(browser.script("return window.bench.firstAt") - viewer.begun * 1000)
            listening.append((viewer.listening - viewer.begun) * 1000)
            viewer.end()
        line(f"program begun to its address printed, {name}", spread(listening))
        line(f"program begun to first pictures of all cameras, {name}", spread(pictures))
    browser.end()


def seek():
    places = random.Random(1)

    def measure(viewer, browser):
        browser.open(viewer.address)
        for name, cold in (("far seek, disk cold", True), ("far seek, disk in the page cache", False)):
            times, at = [], 0
            for _ in range(SEEKS):
                at = (at + places.uniform(30, SECONDS - 60)) % (SECONDS - 20)  # never where something is known already
                if cold:
                    forget(DISK)
                times.append(browser.seek(at))
            line(name, spread(times))
        times = []
        for _ in range(SEEKS):
            base = places.uniform(10, SECONDS - 20)
            browser.seek(base)
            times.append(browser.seek(base + places.uniform(0.1, 3)))
        line("near seek: frames fetched already", spread(times))

    viewed(measure)


def step():
    def measure(viewer, browser):
        browser.open(viewer.address)
        browser.seek(100)
        for name, key, direction in (("step forwards", "ArrowRight", 1), ("step backwards", "ArrowLeft", -1)):
            times, frame = [], 100 * RATE
            browser.seek(100)
            for _ in range(SEEKS):
                frame += direction
                times.append(browser.until("key", key, frame % (CLIP * RATE)))
                browser.wait("document.body.dataset.busy === 'false'")
            line(name, spread(times))

    viewed(measure)


def play():
    def measure(viewer, browser):
        browser.open(viewer.address)
        browser.seek(20)
        browser.key(" ")
        browser.wait(f"Number(document.body.dataset.time) > {micros(22)}")
        server, pages = [viewer.process.pid], browser.processes()
        begin, first = time.monotonic(), int(browser.script("return document.body.dataset.time"))
        before = (seconds_of(server), seconds_of(pages))
        time.sleep(PLAYED)
        passed = time.monotonic() - begin
        shown = (int(browser.script("return document.body.dataset.time")) - first) / 1000000
        used = (seconds_of(server) - before[0], seconds_of(pages) - before[1])
        line("played at 1x, of real time", f"{shown / passed:6.3f}   mode: " + browser.script("return document.body.dataset.mode"))
        line("processor time of the server at 1x", f"{100 * used[0] / passed:6.1f} % of a core")
        line("processor time of the browser at 1x", f"{100 * used[1] / passed:6.1f} % of a core")

    viewed(measure)


def three_tabs(image, name, seconds):
    """Three windows that seek about and play: hidden tabs would rest."""
    def measure(viewer, browser):
        memory = Memory(viewer.process.pid)
        for number in range(TABS):
            if number > 0:
                browser.driver.switch_to.new_window("window")
            browser.open(viewer.address)
        places = random.Random(2)
        for turn in range(30):
            browser.driver.switch_to.window(browser.driver.window_handles[turn % TABS])
            at = datetime.datetime.fromtimestamp(places.uniform(*seconds), datetime.timezone.utc)
            browser.script("location.hash = arguments[0]", f"t={at.strftime('%Y-%m-%dT%H:%M:%S.%f')}")
            time.sleep(0.3)
            if turn >= 30 - TABS:
                browser.key(" ")
        time.sleep(10)
        memory.end()
        now = memory.now()
        line(f"server's memory, {TABS} windows, {name}", f"{now[0]:6.1f} MiB resident, {now[1]:5.1f} of its own")
        line("  at most, while they seek and play", f"{memory.most[0]:6.1f} MiB resident, {memory.most[1]:5.1f} of its own")

    viewed(measure, image)


def memory():
    three_tabs(DISK, "the sample", (START.timestamp(), START.timestamp() + SECONDS - 60))


def ring():
    out = subprocess.run([PROGRAM, "info", RING, "--json"], check=True, stdout=subprocess.PIPE, text=True).stdout
    times = [int(each) for each in re.findall(r'"(?:first|start|last|end)[a-z_]*":\s*(\d{9,10})\b', out)]
    seconds = (min(times), max(times)) if times else (1700000000, 1700000000 + RING_BLOCKS)
    three_tabs(RING, f"a ring of {RING_BLOCKS:,} blocks", seconds)


# ---- mpv

class Player:
    """mpv with all cameras in a square, on a screen of its own."""

    def __init__(self):
        self.socket = os.path.join(DIRECTORY, "mpv.socket")
        self.rest = b""
        if os.path.exists(self.socket):
            os.remove(self.socket)
        self.begun = time.monotonic()
        grid = "".join(f"[vid{number + 1}]" for number in range(CAMERAS)) + "xstack=layout=0_0|w0_0|0_h0|w0_h0:inputs=4[vo]"
        self.process = subprocess.Popen(
            ["mpv", "--no-config", "--no-terminal", "--vo=x11", "--hwdec=no", "--no-audio", "--pause", "--hr-seek=yes",
             "--geometry=1280x720", "--input-ipc-server=" + self.socket, "--lavfi-complex=" + grid, EXPORT])
        while not os.path.exists(self.socket):
            time.sleep(0.002)
        self.channel = socket.socket(socket.AF_UNIX)
        while self.channel.connect_ex(self.socket) != 0:
            time.sleep(0.002)

    def say(self, *command):
        self.channel.sendall(json.dumps({"command": command}).encode() + b"\n")

    def wait(self, event):
        while True:
            text, found, self.rest = self.rest.partition(b"\n")
            if not found:
                self.rest = text + self.channel.recv(65536)
            elif json.loads(text).get("event") == event:
                return

    def end(self):
        self.say("quit")
        self.channel.close()
        self.process.wait(30)


def players():
    with subprocess.Popen(["Xvfb", ":77", "-screen", "0", "1400x900x24", "-nolisten", "tcp"]) as screen:
        os.environ["DISPLAY"] = ":77"
        time.sleep(2)
        times = []
        for _ in range(ROUNDS):
            player = Player()
            player.wait("playback-restart")
            times.append((time.monotonic() - player.begun) * 1000)
            player.end()
        line("mpv begun to its first picture, file in the page cache", spread(times))
        player = Player()
        player.wait("playback-restart")
        places = random.Random(1)
        times, at = [], 0
        for _ in range(SEEKS):
            at = (at + places.uniform(30, SECONDS - 60)) % (SECONDS - 20)
            begin = time.monotonic()
            player.say("seek", at, "absolute+exact")
            player.wait("playback-restart")
            times.append((time.monotonic() - begin) * 1000)
        line("mpv, far seek, file in the page cache", spread(times))
        player.say("set_property", "pause", False)
        time.sleep(2)
        pids = [player.process.pid, screen.pid]
        before, begin = seconds_of(pids), time.monotonic()
        time.sleep(PLAYED)
        line("processor time of mpv and its screen at 1x",
             f"{100 * (seconds_of(pids) - before) / (time.monotonic() - begin):6.1f} % of a core")
        player.end()
        screen.terminate()


PARTS = {part.__name__: part for part in (prepare, start, seek, step, play, memory, ring, players)}

if __name__ == "__main__":
    prepare()
    for part in sys.argv[4:] or list(PARTS)[1:]:
        if part not in PARTS:
            sys.exit(f"{part}: no part; there are {' '.join(PARTS)}")
        if part != "prepare":
            PARTS[part]()
