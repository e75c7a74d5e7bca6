"""Times the viewer in Chromium, and mpv and ffplay on the same stretch exported. Run by scripts/bench-view.

    view_bench.py DISKACCESS DISKACCESS_SAMPLE DIRECTORY [PART...]

Each camera's picture shows the number of its frame as 16 black and white fields. A picture stands when the fields that the
browser shows are those of the time that was asked for: what is timed ends there, not with a message that says so.
"""

import datetime
import json
import mmap
import os
import random
import re
import shutil
import signal
import socket
import statistics
import struct
import subprocess
import sys
import tempfile
import threading
import time

import Xlib.display
import Xlib.X
import Xlib.XK
from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from Xlib.ext import xtest

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
  cameras: CAMERAS, // that are shown
  codes() {
    return [...document.querySelectorAll("figure:not([hidden])")].map((figure) => {
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
    return codes.length === this.cameras && codes.every((each) => each === code);
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
    return round(seconds * 1000000) * RATE // 1000000 % (CLIP * RATE)  # as the page is told, in whole microseconds


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


def far_seeks(browser, places, cold=False):
    times, at = [], 0
    for _ in range(SEEKS):
        at = (at + places.uniform(30, SECONDS - 60)) % (SECONDS - 20)  # never where something is known already
        if cold:
            forget(DISK)
        times.append(browser.seek(at))
    return times


def seek():
    places = random.Random(1)

    def measure(viewer, browser):
        browser.open(viewer.address)
        for name, cold in (("far seek, disk cold", True), ("far seek, disk in the page cache", False)):
            line(name, spread(far_seeks(browser, places, cold)))
        browser.key("1")
        browser.script("window.bench.cameras = 1")
        browser.wait("document.body.dataset.busy === 'false'")
        line("far seek, one camera, disk in the page cache", spread(far_seeks(browser, places)))
        browser.key("0")
        browser.script(f"window.bench.cameras = {CAMERAS}")
        browser.wait("document.body.dataset.busy === 'false'")
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


# ---- mpv and ffplay

CORNERS = ((0, 0), (640, 0), (0, 360), (640, 360))  # of the cameras, 640x360 each
MPV_GRID = "".join(f"[vid{number + 1}]" for number in range(CAMERAS)) + "xstack=layout=0_0|w0_0|0_h0|w0_h0:inputs=4[vo]"
FFPLAY_GRID = ("movie=" + EXPORT + ":s=0+1+2+3" + "".join(f"[{number}]" for number in range(CAMERAS)) + ";" +
               "".join(f"[{number}]" for number in range(CAMERAS)) + "xstack=layout=0_0|w0_0|0_h0|w0_h0:inputs=4")


class Screen:
    """A screen without a monitor, whose pixels can be read."""

    SIZE = (1400, 900)

    def __init__(self):
        self.folder = tempfile.TemporaryDirectory(prefix="view-bench-")
        self.process = subprocess.Popen(["Xvfb", ":77", "-screen", "0", "{}x{}x24".format(*self.SIZE), "-nolisten", "tcp",
                                         "-fbdir", self.folder.name], stderr=subprocess.DEVNULL)
        os.environ["DISPLAY"] = ":77"
        time.sleep(2)
        with open(os.path.join(self.folder.name, "Xvfb_screen0"), "rb") as file:
            self.pixels = mmap.mmap(file.fileno(), 0, prot=mmap.PROT_READ)
        head = struct.unpack(">25I", self.pixels[:100])  # of an X window dump
        self.begin, self.line = head[0] + 12 * head[19], head[12]
        self.keyboard = Xlib.display.Display()

    def green(self, x, y):
        return self.pixels[self.begin + y * self.line + 4 * x + 1]

    def lit(self, cameras):
        return all(sum(self.green(left + x, top + 180) for x in range(0, 640, 16)) > 400 for left, top in CORNERS[:cameras])

    def codes(self, cameras):
        """The number of the frame of each camera."""
        return [sum((self.green(left + 20 + 40 * bit, top + 8) > 127) << bit for bit in range(16))
                for left, top in CORNERS[:cameras]]

    def until(self, action, holds, seconds=20):
        """Does something, and gives the milliseconds until something holds of the screen."""
        begin = time.monotonic()
        action()
        while not holds():
            if time.monotonic() > begin + seconds:
                raise TimeoutError(f"no picture within {seconds} s")
            time.sleep(0.0005)
        return (time.monotonic() - begin) * 1000

    def key(self, name):
        code = self.keyboard.keysym_to_keycode(Xlib.XK.string_to_keysym(name))
        for kind in (Xlib.X.KeyPress, Xlib.X.KeyRelease):
            xtest.fake_input(self.keyboard, kind, code)
        self.keyboard.sync()

    def click(self, x, y, button):
        xtest.fake_input(self.keyboard, Xlib.X.MotionNotify, x=x, y=y)
        for kind in (Xlib.X.ButtonPress, Xlib.X.ButtonRelease):
            xtest.fake_input(self.keyboard, kind, button)
        self.keyboard.sync()

    def end(self):
        self.keyboard.close()
        self.pixels.close()
        self.process.terminate()
        self.process.wait(30)
        self.folder.cleanup()


class Mpv:
    """mpv with all cameras in a square. It begins with its first picture, and waits. Seeks end at other frames than those
    that were asked for."""

    NAME, CAMERAS = "mpv", CAMERAS
    SHOWN = ["--geometry=1280x720+0+0", "--lavfi-complex=" + MPV_GRID]

    def __init__(self, screen):
        self.screen = screen
        self.socket = os.path.join(DIRECTORY, "mpv.socket")
        if os.path.exists(self.socket):
            os.remove(self.socket)
        self.process = subprocess.Popen(
            ["mpv", "--no-config", "--no-terminal", "--vo=x11", "--hwdec=no", "--no-audio", "--pause", "--hr-seek=yes",
             "--osd-level=0", "--no-border", "--input-ipc-server=" + self.socket, *self.SHOWN, EXPORT])

    def connect(self):
        self.channel = socket.socket(socket.AF_UNIX)
        while self.channel.connect_ex(self.socket) != 0:
            time.sleep(0.01)

    def say(self, *command):
        self.channel.sendall(json.dumps({"command": command}).encode() + b"\n")

    def pause(self):
        pass

    def play(self):
        self.say("set_property", "pause", False)

    def step(self):
        self.say("frame-step")


class MpvOfOne(Mpv):
    """mpv with the first camera. It seeks to any frame."""

    NAME, CAMERAS = "mpv, one camera", 1
    SHOWN = ["--geometry=640x360+0+0"]

    def seek(self, seconds):
        expected = [frame_at(seconds)]
        return self.screen.until(lambda: self.say("seek", seconds, "absolute+exact"),
                                 lambda: self.screen.codes(1) == expected, 2)


class Ffplay:
    """ffplay with all cameras in a square. It plays at once, and cannot seek."""

    NAME, CAMERAS = "ffplay", CAMERAS
    SHOWN = ["-x", "1280", "-y", "720", "-f", "lavfi", FFPLAY_GRID]

    def __init__(self, screen):
        self.screen = screen
        os.environ["SDL_RENDER_DRIVER"] = "software"
        self.process = subprocess.Popen(["ffplay", "-loglevel", "error", "-an", "-noborder", "-left", "0", "-top", "0",
                                         *self.SHOWN], stdin=subprocess.DEVNULL)

    def connect(self):
        self.screen.click(300, 200, 1)  # its window takes keys

    def pause(self):
        self.screen.key("p")
        time.sleep(0.5)

    play = pause

    def step(self):
        self.screen.key("s")


class FfplayOfOne(Ffplay):
    """ffplay with the first camera. It seeks to key frames."""

    NAME, CAMERAS = "ffplay, one camera, to a key frame", 1
    SHOWN = ["-x", "640", "-y", "360", EXPORT]

    def seek(self, seconds):
        before = self.screen.codes(1)[0]

        def there():
            code = self.screen.codes(1)[0]
            return code != before and code % GOP == 0 and abs(code - frame_at(seconds)) <= 2 * GOP

        return self.screen.until(lambda: self.screen.click(round(640 * seconds / SECONDS), 200, 3), there, 2)


def begin(screen, kind):
    """Starts a player; gives the milliseconds until a picture of each camera stands, too."""
    players = []
    took = screen.until(lambda: players.append(kind(screen)), lambda: screen.lit(kind.CAMERAS))
    return players[0], took


def end(screen, player):
    player.process.kill()  # ffplay does not always end when it is asked to
    player.process.wait(30)
    screen.until(lambda: None, lambda: not screen.lit(1))


def time_starts(screen, kind):
    times = []
    for _ in range(ROUNDS):
        player, took = begin(screen, kind)
        times.append(took)
        end(screen, player)
    line(f"{kind.NAME} begun to its first picture, file in the page cache", spread(times))


def time_seeks(screen, player):
    places = random.Random(1)
    times, frame = [], 0
    for _ in range(SEEKS):
        frame = (frame + places.randrange(30 * RATE, (SECONDS - 60) * RATE)) % ((SECONDS - 20) * RATE)
        try:
            times.append(player.seek(frame / RATE))
        except TimeoutError:
            pass
        time.sleep(0.1)
    line(f"{player.NAME}, far seek, file in the page cache", spread(times))
    line("  that showed the picture, of all", f"{len(times)} of {SEEKS}")


def time_steps(screen, player):
    times = []
    for _ in range(SEEKS):
        expected = [(code + 1) % (CLIP * RATE) for code in screen.codes(player.CAMERAS)]
        times.append(screen.until(player.step, lambda: screen.codes(player.CAMERAS) == expected))
        time.sleep(0.1)
    line(f"{player.NAME}, step forwards", spread(times))


def time_playing(screen, player):
    player.play()
    time.sleep(2)
    pids = [player.process.pid, screen.process.pid]
    before, begin = seconds_of(pids), time.monotonic()
    time.sleep(PLAYED)
    line(f"processor time of {player.NAME} and its screen at 1x",
         f"{100 * (seconds_of(pids) - before) / (time.monotonic() - begin):6.1f} % of a core")


def timed(screen, kind, *measures):
    player, _ = begin(screen, kind)
    try:
        player.connect()
        player.pause()
        for measure in measures:
            measure(screen, player)
    finally:
        end(screen, player)


def on_screen(measure):
    screen = Screen()
    try:
        measure(screen)
    finally:
        screen.end()


def mpv():
    def measure(screen):
        time_starts(screen, Mpv)
        timed(screen, Mpv, time_steps, time_playing)
        timed(screen, MpvOfOne, time_seeks)

    on_screen(measure)


def ffplay():
    def measure(screen):
        time_starts(screen, Ffplay)
        timed(screen, Ffplay, time_steps, time_playing)
        timed(screen, FfplayOfOne, time_seeks)

    on_screen(measure)


PARTS = {part.__name__: part for part in (prepare, start, seek, step, play, memory, ring, mpv, ffplay)}

if __name__ == "__main__":
    prepare()
    for part in sys.argv[4:] or list(PARTS)[1:]:
        if part not in PARTS:
            sys.exit(f"{part}: no part; there are {' '.join(PARTS)}")
        if part != "prepare":
            PARTS[part]()
