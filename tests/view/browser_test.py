#!/usr/bin/env python3
"""The viewer's page in a real browser: what it shows is held against bar codes in the pictures.

    browser_test.py DISKACCESS DISKACCESS_SAMPLE

Each camera's picture shows the number of its frame as a row of 16 black and white fields, so that the frame that stands
on the page is known. Exits with 77 where there is no Chromium, no driver for it, or no ffmpeg.
"""

import contextlib
import datetime
import glob
import itertools
import json
import os
import random
import re
import shutil
import signal
import statistics
import struct
import subprocess
import tempfile
import threading
import time
import unittest
import urllib.request

from browser_support import (
    GOP, HEIGHT, HOSTILE, PROGRAM, START, WIDTH, ActionChains, Between, By, Keys, PageTest, make_clip, record, rfc3339,
    run, start_browser)

SECONDS = 20
AGAIN = 600  # seconds after START: the second journey
RATES = [10, 25, 15]  # of the cameras
EVENT = 7  # seconds after START

# Reads the frame number of each camera from its picture; null where the picture is dark.
READ_CODES = """
const codes = {};
for (const figure of document.querySelectorAll("figure")) {
  if (figure.hidden || figure.dataset.state !== "picture") { continue; }
  const source = figure.querySelector("canvas");
  const canvas = new OffscreenCanvas(source.width, source.height);
  const context = canvas.getContext("2d", { willReadFrequently: true });
  context.drawImage(source, 0, 0);
  const field = source.width / 16;
  let code = 0, bright = 0;
  for (let bit = 0; bit < 16; ++bit) {
    const [red] = context.getImageData(Math.floor((bit + 0.5) * field), 16, 1, 1).data;
    code += red > 127 ? 2 ** bit : 0;
  }
  for (const value of context.getImageData(0, 100, source.width, 1).data) { bright += value; }
  codes[figure.dataset.channel] = bright > 255 * source.width + 1000 ? code : null;
}
return codes;
"""


def micros(seconds):
    return int(START.timestamp() * 1000000) + round(seconds * 1000000)


def make_tone(path, seconds=SECONDS):
    subprocess.run(
        ["ffmpeg", "-nostdin", "-y", "-loglevel", "error", "-f", "lavfi", "-i",
         f"sine=frequency=440:duration={seconds}:sample_rate=8000", "-af", "volume=4", "-ac", "1", "-c:a", "pcm_alaw",
         "-f", "wav", path], check=True)


FRAME_HEAD = 24  # bytes: time stamp, sync, type, channel, length


def first_frame_head(image, clip):
    """Where on a disk the head of a clip's first frame lies."""
    with open(image, "rb") as disk, open(clip, "rb") as video:
        payload = disk.read().find(video.read(64))
    assert payload > FRAME_HEAD, "the clip was recorded as it is"
    return payload - FRAME_HEAD


def restamp(image, clip, stamp):
    """Gives a clip's frames other time stamps: stamp(number, before). Returns how many frames there are."""
    with open(image, "r+b") as file:
        disk = memoryview(bytearray(file.read()))
        at = first_frame_head(image, clip)
        sync, = struct.unpack_from("<I", disk, at + 8)
        frames = 0
        while struct.unpack_from("<I", disk, at + 8)[0] == sync:
            struct.pack_into("<q", disk, at, stamp(frames, struct.unpack_from("<q", disk, at)[0]))
            at += FRAME_HEAD + struct.unpack_from("<I", disk, at + 20)[0]
            frames += 1
        file.seek(0)
        file.write(disk)
    return frames


class Viewer:
    """A running viewer."""

    def __init__(self, image, folder, *more):
        self.process = subprocess.Popen(
            [PROGRAM, "view", image, "--utc", "--no-browser", "--export-dir", folder, *more],
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self.address = self.process.stdout.readline().strip()

    def end(self):
        self.process.send_signal(signal.SIGINT)
        status = self.process.wait(60)
        self.process.stdout.close()
        return status


class Killer:
    """Kills the children of a process, again and again."""

    def __init__(self, parent):
        self.parent = parent
        self.killed = set()
        self.ended = threading.Event()
        self.thread = threading.Thread(target=self.run)

    def __enter__(self):
        self.thread.start()
        return self

    def __exit__(self, *_):
        self.ended.set()
        self.thread.join()

    def run(self):
        while not self.ended.wait(0.001):
            for child in self.children():
                try:
                    os.kill(child, signal.SIGKILL)
                    self.killed.add(child)
                except ProcessLookupError:
                    pass

    def children(self):
        """No process of its own looks for them: they live for some milliseconds."""
        for path in glob.glob(f"/proc/{self.parent}/task/*/children"):
            try:
                with open(path, encoding="ascii") as file:
                    yield from map(int, file.read().split())
            except (FileNotFoundError, ProcessLookupError):
                pass  # the thread has ended


class BrowserTest(PageTest):
    """A browser, and a viewer of the disk that record_disk() makes."""

    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix="diskaccess-view-")
        cls.image = cls.record_disk()
        cls.browser = start_browser(
            ["--window-size=1400,900", "--autoplay-policy=no-user-gesture-required"], ["browser", "performance"],
            {
                "download.default_directory": cls.folder,
                "profile.default_content_setting_values.automatic_downloads": 1,
            })
        cls.viewer = Viewer(cls.image, cls.folder)

    @classmethod
    def tearDownClass(cls):
        cls.browser.quit()
        status = cls.viewer.end()
        shutil.rmtree(cls.folder)
        assert status == 0, "an interrupted viewer ends well"

    seeks = 0

    def setUp(self):
        self.open(self.viewer.address)

    def tearDown(self):
        self.assert_console_is_empty()

    # What the page is asked and told.

    def open(self, address):
        self.browser.get("about:blank")
        self.browser.get(address)
        self.wait(lambda: self.data("complete") == "true" and self.data("ready") == "true")
        self.settle()

    def data(self, name):
        return self.browser.execute_script("return document.body.dataset[arguments[0]] || ''", name)

    def settle(self):
        """Waits until the page has done what it was asked, and what was drawn is on the screen."""
        seen = [None, None]

        def still():
            seen[:] = [seen[1], (self.data("time"), self.codes())]
            time.sleep(0.1)
            return self.data("busy") == "false" and seen[0] == seen[1]

        self.wait(still)

    def key(self, key):
        self.browser.find_element(By.TAG_NAME, "body").send_keys(key)

    def text(self, identity):
        return self.browser.find_element(By.ID, identity).text

    def codes(self):
        return self.browser.execute_script(READ_CODES)

    def states(self):
        return self.browser.execute_script(
            "return [...document.querySelectorAll('figure')].map((figure) => figure.dataset.state)")

    def seek(self, seconds):
        """Goes to a time by the page's address."""
        at = START + datetime.timedelta(seconds=seconds)
        self.seeks += 1  # nothing happens when the address is what it was
        self.browser.execute_script(
            "location.hash = arguments[0]", f"t={at.strftime('%Y-%m-%dT%H:%M:%S.%f')}&n={self.seeks}")
        self.wait(lambda: self.data("time") == str(micros(seconds)))
        self.settle()

    def assert_becomes(self, read, expected):
        """What is drawn comes to the screen a little later, on a busy machine."""
        end = time.monotonic() + 10
        while (found := read()) != expected and time.monotonic() < end:
            time.sleep(0.1)
        self.assertEqual(found, expected)

    def assert_codes(self, expected):
        self.assert_becomes(self.codes, expected)

    def assert_camera_shows(self, channel, code):
        """Whatever the other cameras show."""
        self.assert_becomes(lambda: self.codes().get(str(channel)), code)


class ViewerTest(BrowserTest):
    @classmethod
    def record_disk(cls):
        for channel, rate in enumerate(RATES):
            make_clip(os.path.join(cls.folder, f"c{channel}.h264"), rate, SECONDS)
        make_clip(os.path.join(cls.folder, "small.h264"), 5, 4)
        make_tone(os.path.join(cls.folder, "tone.wav"))
        cameras = [{"channel": channel, "frame_rate": rate, "gop": rate * GOP, "bitrate": 300000}
                   for channel, rate in enumerate(RATES)]
        cameras[0]["audio_frame"] = 320
        clips = [{"channel": channel, "video": f"c{channel}.h264"} for channel in range(len(RATES))]
        clips[0]["audio"] = "tone.wav"
        journeys = [{"start": rfc3339(at), "seconds": SECONDS, "clips": clips} for at in (0, AGAIN)]
        events = [{"time": rfc3339(EVENT), "type": "0x1", "channel": 1}]
        return record(cls.folder, "codes", cameras, journeys, events, HOSTILE)

    def assert_shows(self, seconds, begun=0):
        """Each camera shows its last frame at or before a time, of the journey that began at @p begun."""
        inside = round((seconds - begun) * 1000000)
        self.assert_codes({str(channel): inside * rate // 1000000 for channel, rate in enumerate(RATES)})

    # The tests.

    def test_text_of_the_disk_is_text(self):
        self.assertIn(HOSTILE, self.text("vehicle"))
        self.assertEqual(self.browser.find_elements(By.CSS_SELECTOR, "h1 img"), [])

    def test_calls_cameras_and_events_by_name(self):
        names = os.path.join(self.folder, "names.json")
        with open(names, "w", encoding="utf-8") as file:
            json.dump({"channels": {"1": HOSTILE, "2": "n" * 300}, "event_types": {"0x1": "panic button"}}, file)
        viewer = Viewer(self.image, self.folder, "--names", names)
        try:
            self.open(viewer.address)
            captions = [text.text for text in self.browser.find_elements(By.CSS_SELECTOR, "figcaption")]
            self.assertEqual(captions, ["channel 0", HOSTILE, "n" * 300])
            self.assertLess(self.browser.find_elements(By.CSS_SELECTOR, "figcaption")[2].size["height"], 40, "one line")
            self.assertLessEqual(self.browser.execute_script("return document.documentElement.scrollWidth"), 1400)
            self.assertIn("14:00:07.000 panic button", self.text("events"))
        finally:
            viewer.end()
        self.open(self.viewer.address)
        self.assertIn("14:00:07.000 type 0x1", self.text("events"))

    def test_begins_with_a_picture_of_every_camera(self):
        self.assertEqual(self.states(), ["picture"] * len(RATES))
        self.wait(lambda: None not in self.codes().values())

    def test_shows_the_frame_of_a_time(self):
        for seconds in (5.05, 12.93, 3.0, 19.5):
            self.seek(seconds)
            self.assert_shows(seconds)

    def test_shows_frames_of_the_other_journey(self):
        self.seek(AGAIN + 4.5)
        self.assert_shows(AGAIN + 4.5, AGAIN)

    def test_steps_frame_by_frame(self):
        self.seek(8.5)
        moments = sorted({frame * 1000000 // rate for rate in RATES for frame in range(SECONDS * rate)})
        place = moments.index(8500000)
        for direction, count in ((1, 12), (-1, 20)):
            for _ in range(count):
                place += direction
                self.key(Keys.ARROW_RIGHT if direction > 0 else Keys.ARROW_LEFT)
                # The recorder's time stamps are whole microseconds.
                self.wait(lambda: abs(int(self.data("time")) - micros(0) - moments[place]) <= 1)
                self.settle()
                shown = int(self.data("time")) - micros(0)
                expected = {str(channel): (shown + 1) * rate // 1000000 for channel, rate in enumerate(RATES)}
                self.assert_codes(expected)

    def test_jumps_to_events(self):
        self.key("n")
        self.wait(lambda: self.data("time") == str(micros(EVENT)))
        self.settle()
        self.assert_shows(EVENT)
        self.assertIn("14:00:07.000", self.text("events"))

    def test_goes_to_an_event_that_is_clicked(self):
        self.browser.find_element(By.CSS_SELECTOR, "#events button").click()
        self.wait(lambda: self.data("time") == str(micros(EVENT)))
        self.settle()
        self.assert_shows(EVENT)

    def test_says_what_lies_under_the_pointer(self):
        self.key("a")
        line = self.browser.find_element(By.ID, "timeline")
        title = self.browser.execute_script(
            "const line = arguments[0];"
            "for (let x = 60; x < line.clientWidth; ++x) {"
            "  line.dispatchEvent(new PointerEvent('pointermove',"
            "    {clientX: x + line.getBoundingClientRect().left, clientY: line.getBoundingClientRect().top + 40}));"
            "  if (line.title.includes('\\n')) { return line.title; }"
            "} return line.title;", line)
        self.assertRegex(title, r"^2026-11-20 14:00:0[67].*\n2026-11-20 14:00:07.000  type 0x1$")

    def test_shows_pictures_while_the_timeline_is_dragged(self):
        line = self.browser.find_element(By.ID, "timeline")
        width = line.size["width"]
        ActionChains(self.browser).move_to_element_with_offset(line, -width // 4, 60).click_and_hold().perform()
        self.wait(lambda: self.data("busy") == "false")
        first = int(self.data("time"))
        ActionChains(self.browser).move_by_offset(60, 0).perform()
        self.wait(lambda: self.data("busy") == "false" and int(self.data("time")) > first)
        self.assertEqual(self.states(), ["picture"] * len(RATES))
        ActionChains(self.browser).release().perform()
        self.settle()
        self.assert_shows((int(self.data("time")) - micros(0)) / 1000000)

    REST = 0.4  # seconds that a finger rests before it drags

    def order(self):
        return self.browser.execute_script(
            "return [...document.querySelectorAll('figure')].map((figure) => figure.dataset.channel)")

    def place_of(self, channel):
        box = self.browser.find_element(By.CSS_SELECTOR, f"figure[data-channel='{channel}']").rect
        return box["x"] + box["width"] / 2, box["y"] + box["height"] / 2

    def cameras_with(self, mark):
        return [figure.get_attribute("data-channel")
                for figure in self.browser.find_elements(By.CSS_SELECTOR, f"figure[data-{mark}]")]

    def assert_order(self, expected):
        self.assertEqual(self.order(), expected)
        self.assertEqual(self.cameras_with("dragged") + self.cameras_with("target"), [])
        self.settle()
        self.assertEqual(sorted(self.codes()), sorted(expected), "no camera is shown alone")
        self.assertEqual(self.states(), ["picture"] * len(RATES))

    def drag_by_mouse(self, one, other):
        figure = [self.browser.find_element(By.CSS_SELECTOR, f"figure[data-channel='{each}']") for each in (one, other)]
        return ActionChains(self.browser).click_and_hold(figure[0]).move_to_element(figure[1])

    def test_keys_order_cameras(self):
        self.browser.execute_script("document.querySelector('figure[data-channel=\"0\"]').focus()")
        self.browser.switch_to.active_element.send_keys("]]")
        self.assert_order(["1", "2", "0"])
        self.browser.switch_to.active_element.send_keys("[")
        self.assert_order(["1", "0", "2"])

    def test_the_mouse_orders_cameras(self):
        self.drag_by_mouse(0, 2).perform()
        self.assertEqual((self.cameras_with("dragged"), self.cameras_with("target")), (["0"], ["2"]))
        ActionChains(self.browser).release().perform()
        self.assert_order(["1", "2", "0"])
        self.drag_by_mouse(0, 1).release().perform()
        self.assert_order(["0", "1", "2"])

    def test_escape_leaves_the_order(self):
        self.drag_by_mouse(0, 2).send_keys(Keys.ESCAPE).release().perform()
        self.assert_order(["0", "1", "2"])

    def test_a_finger_that_rests_orders_cameras(self):
        self.touch("touchStart", self.place_of(0))
        self.wait(lambda: self.cameras_with("dragged") == ["0"])
        self.touch("touchMove", self.place_of(2))
        self.wait(lambda: self.cameras_with("target") == ["2"])
        self.touch("touchEnd")
        self.wait(lambda: self.order() == ["1", "2", "0"])
        self.assert_order(["1", "2", "0"])

    def move_at_once(self, one, other):
        """On a busy machine a finger may have rested before its move comes: then it begins anew."""
        places = self.place_of(one), self.place_of(other)
        for _ in range(20):
            begin = time.monotonic()
            self.touch("touchStart", places[0])
            self.touch("touchMove", places[1])
            if time.monotonic() - begin < self.REST:
                return
            self.touch("touchCancel")
        self.fail("this machine is too slow for a finger that moves at once")

    def test_a_finger_that_moves_at_once_leaves_the_order(self):
        self.move_at_once(0, 2)
        time.sleep(self.REST + 0.2)
        self.assertEqual(self.cameras_with("dragged"), [])
        self.touch("touchEnd")
        self.assert_order(["0", "1", "2"])

    def test_saves_stills(self):
        self.seek(6.3)
        self.key("s")
        names = [f"channel_{channel}_2026-11-20_14-00-06.{code}.png"
                 for channel, code in ((0, "300"), (1, "280"), (2, "266"))]
        self.wait(lambda: all(os.path.exists(os.path.join(self.folder, name)) for name in names))
        for name in names:
            with open(os.path.join(self.folder, name), "rb") as file:
                head = file.read(24)
            self.assertEqual(head[:8], b"\x89PNG\r\n\x1a\n")
            self.assertEqual((int.from_bytes(head[16:20], "big"), int.from_bytes(head[20:24], "big")), (WIDTH, HEIGHT))

    def test_plays_what_is_marked(self):
        self.seek(4)
        self.key("i")
        self.seek(5)
        self.key("o")
        self.seek(12)
        self.key("v")
        self.wait(lambda: self.data("time") == str(micros(5)) and self.data("playing") == "false")

    def test_has_a_label_for_everything(self):
        unnamed = self.browser.execute_script(
            "return [...document.querySelectorAll('button, select, canvas[role], figure, progress')]"
            "  .filter((each) => !each.hidden && !each.getAttribute('aria-label') && !each.textContent.trim())"
            "  .map((each) => each.outerHTML)")
        self.assertEqual(unnamed, [])
        self.assertEqual(self.browser.find_element(By.ID, "timeline").get_attribute("role"), "slider")

    def test_plays_all_cameras_in_step(self):
        for rate, spread, span in (("1", 0.25, 2.5), ("4", GOP + 0.1, 8), ("16", GOP + 0.1, 12)):
            self.seek(2)
            self.browser.execute_script(
                "const rate = document.getElementById('rate'); rate.value = arguments[0];"
                "rate.dispatchEvent(new Event('change'))", rate)
            self.key(" ")
            self.wait(lambda: self.data("playing") == "true")
            begun = time.monotonic()
            first = int(self.data("time"))
            spreads = []
            while int(self.data("time")) < first + span * 1000000:
                self.assertLess(time.monotonic(), begun + 60, "it does move")
                codes = self.codes()
                times = [code / RATES[int(channel)] for channel, code in codes.items() if code is not None]
                self.assertEqual(len(times), len(RATES))
                spreads.append(max(times) - min(times))
            passed = (int(self.data("time")) - first) / 1000000 / (time.monotonic() - begun)
            self.assertLess(passed, 1.1 * float(rate), "and not too fast")
            # The pictures are read one after the other, while they change.
            self.assertLessEqual(statistics.median(spreads), spread, f"at {rate}x")
            self.key(" ")
            self.wait(lambda: self.data("playing") == "false")
            self.settle()
            shown = (int(self.data("time")) - micros(0)) / 1000000
            self.assert_shows(shown, AGAIN if shown >= AGAIN else 0)

    def test_keeps_its_time_in_the_address(self):
        self.seek(2)
        self.key(" ")
        addresses = set()

        def changes():
            addresses.add(self.browser.execute_script("return location.hash"))
            return len(addresses) > 3

        self.wait(changes)
        # What is typed is not written over by the time that is shown meanwhile.
        at = (START + datetime.timedelta(seconds=12)).strftime("%Y-%m-%dT%H:%M:%S")
        self.browser.execute_script(
            "location.hash = arguments[0]; history.replaceState(null, '', '#t=2026-11-20T14:00:03.000')", "t=" + at)
        self.wait(lambda: int(self.data("time")) >= micros(12))
        self.key(" ")
        self.settle()
        self.wait(lambda: self.browser.execute_script("return location.hash").endswith(self.text("time").split()[1]))

    def test_does_what_is_asked_last(self):
        self.seek(1)
        for _ in range(3):
            self.browser.execute_script(
                "for (const key of arguments[0]) {"
                "  document.body.dispatchEvent(new KeyboardEvent('keydown', {key, bubbles: true, shiftKey: key !== ' '}));"
                "}", [" ", " ", "Home", "ArrowRight", "ArrowLeft", "ArrowRight"])
            self.wait(lambda: self.data("time") == str(micros(10)))
            self.settle()
            self.assert_shows(10)

    def test_plays_backwards(self):
        self.seek(15)
        self.key("b")
        self.wait(lambda: int(self.data("time")) < micros(13))
        self.key(" ")
        self.wait(lambda: self.data("playing") == "false")

    def test_goes_back_to_pictures_that_were_let_go(self):
        self.seek(8)
        self.key(" ")
        self.wait(lambda: int(self.data("time")) > micros(15))  # more pictures than are kept
        self.key(" ")
        self.settle()
        self.seek(8)
        self.assert_shows(8)
        self.key(Keys.ARROW_LEFT)  # what lies before was not read yet
        self.wait(lambda: self.data("time") == str(micros(7.96)))
        self.settle()
        self.assert_shows(7.96)

    def test_skips_the_gap_between_journeys(self):
        self.seek(SECONDS - 0.5)
        self.key(" ")
        self.wait(lambda: int(self.data("time")) >= micros(AGAIN))
        self.key(" ")

    # A decoder that hands out its pictures late, in their order, as on a slow machine. It says how often it was flushed.
    LATE_DECODER = """
        const Decoder = self.VideoDecoder;
        const late = (work) => new Promise((resolve) => setTimeout(resolve, 800)).then(work);
        self.VideoDecoder = class extends Decoder {
          constructor({ output, error }) {
            super({ output: (picture) => late(() => output(picture)), error });
          }
          flush() {
            new BroadcastChannel("flushes").postMessage("begun");
            return super.flush().then(() => late(() => {}));
          }
        };
        """

    def test_decodes_what_is_asked_for_while_a_decoder_ends_its_work(self):
        with Between(self.viewer.address, {"/worker.js": self.LATE_DECODER}) as between:
            self.open(between.address)
            self.seek(11)
            self.browser.execute_script(
                "window.flushes = 0; new BroadcastChannel('flushes').onmessage = () => ++window.flushes;"
                "location.hash = 't=2026-11-20T14:00:08.1'")
            self.wait(lambda: self.browser.execute_script("return window.flushes") > 0)
            self.seek(8.9)
            self.assertEqual(self.states(), ["picture"] * len(RATES))
            self.assert_shows(8.9)

    # Decoders of which each is slower than the one before, and whose pictures are so large that six are kept.
    LARGE_PICTURES = """
        const Decoder = self.VideoDecoder;
        const late = (work, delay) => new Promise((resolve) => setTimeout(resolve, delay)).then(work);
        let made = 0;
        self.VideoDecoder = class extends Decoder {
          constructor({ output, error }) {
            const delay = 700 * ++made;
            super({ error, output: (picture) => {
              Object.defineProperty(picture, "codedWidth", { value: 1000000 });
              late(() => output(picture), delay);
            } });
            this.delay = delay;
          }
          flush() {
            return super.flush().then(() => late(() => {}, this.delay));
          }
        };
        """

    def test_keeps_what_it_has_while_another_camera_decodes(self):
        with Between(self.viewer.address, {"/worker.js": self.LARGE_PICTURES}) as between:
            self.open(between.address)
            self.seek(8)
            self.seek(8.5)  # of camera 0 the pictures from 8.0 s are kept now, of camera 1 those from 8.28 s
            # The pictures on the way to 9.5 s come when those of 8.25 s are wanted, which camera 0 has.
            self.browser.execute_script(
                "location.hash = 't=2026-11-20T14:00:09.5'; location.hash = 't=2026-11-20T14:00:08.25'")
            self.wait(lambda: self.data("time") == str(micros(8.25)) and self.data("busy") == "false", 30)
            self.settle()
            self.assertEqual(self.states(), ["picture"] * len(RATES))
            self.assert_shows(8.25)

    def test_says_where_nothing_was_recorded(self):
        self.seek(300)
        self.assertEqual(self.states(), ["missing"] * len(RATES))
        self.assertIn("nothing was recorded", self.browser.find_element(By.CSS_SELECTOR, "figure p").text)

    def test_plays_sound(self):
        self.seek(1)
        self.assertEqual(float(self.data("soundLevel")), 0)
        self.key("m")
        self.key(" ")
        self.wait(lambda: float(self.data("soundLevel")) > 0.1)
        self.key(" ")
        self.wait(lambda: float(self.data("soundLevel")) == 0)

    def test_exports_what_is_marked(self):
        self.seek(4)
        self.key("i")
        self.seek(9)
        self.key("o")
        self.key("e")
        self.wait(lambda: "SHA-256" in self.text("export-result"), 60)
        path, digest = re.search(r"(/.*\.mkv), \d+ bytes, SHA-256 ([0-9a-f]{64})", self.text("export-result")).groups()
        other = os.path.join(self.folder, "command.mkv")
        subprocess.run([PROGRAM, "export", self.image, "--utc", "--from", "2026-11-20 14:00:04", "--to",
                        "2026-11-20 14:00:09", "--channel", "0-2", "-o", other], check=True, stdout=subprocess.DEVNULL)
        with open(path, "rb") as one, open(other, "rb") as two:
            self.assertEqual(one.read(), two.read())
        printed = subprocess.run(["sha256sum", path], check=True, stdout=subprocess.PIPE, text=True).stdout
        self.assertTrue(printed.startswith(digest))

    def test_shows_one_camera_alone(self):
        self.key("2")
        self.settle()
        self.assertEqual(list(self.codes()), ["1"])
        self.key("0")
        self.settle()
        self.assertEqual(len(self.codes()), len(RATES))

    def test_lists_its_keys(self):
        self.key("?")
        self.assertIn("one frame on", self.text("key-table"))
        self.assertEqual(self.browser.execute_script("return document.getElementById('keys').scrollTop"), 0)
        self.key(Keys.ESCAPE)

    def test_comes_back_to_its_time(self):
        self.seek(11.5)
        self.wait(lambda: "11.5" in self.browser.current_url)
        self.assertNotIn("token", self.browser.current_url)
        self.browser.refresh()
        self.wait(lambda: self.data("time") == str(micros(11.5)))
        self.settle()
        self.assert_shows(11.5)

    def test_asks_nobody_else(self):
        self.browser.get_log("performance")
        self.open(self.viewer.address)
        asked = set()
        for entry in self.browser.get_log("performance"):
            message = json.loads(entry["message"])["message"]
            if message["method"] == "Network.requestWillBeSent":
                asked.add(message["params"]["request"]["url"])
        own = self.viewer.address.split("#")[0]
        self.assertTrue(any(url.startswith(own) for url in asked))
        self.assertEqual([url for url in asked if not url.startswith((own, "data:", "blob:", "about:"))], [])

    def test_says_where_pictures_are_lost(self):
        damaged = os.path.join(self.folder, "damaged.img")
        shutil.copy(self.image, damaged)
        with open(self.image, "rb") as file:
            whole = file.read()
        with open(os.path.join(self.folder, "c1.h264"), "rb") as file:
            clip = file.read()
        middle = whole.find(clip[len(clip) // 2 : len(clip) // 2 + 64])  # a picture of camera 1, from 0.7 s to 3.5 s
        self.assertGreater(middle, 0)
        with open(damaged, "r+b") as file:
            file.seek(middle)
            file.write(b"\xee" * 60000)
        viewer = Viewer(damaged, self.folder)
        try:
            self.open(viewer.address)
            self.seek(1.5)
            self.assertIn("missing", self.states())
            texts = [text.text for text in self.browser.find_elements(By.CSS_SELECTOR, "figure p")]
            self.assertTrue(any("here video is missing" in text for text in texts), texts)
            self.assertNotEqual(self.browser.find_elements(By.CSS_SELECTOR, "#damages .loss"), [])
            explained = set()
            for seconds in (2.1, 2.7, 3.3, 3.9):
                self.seek(15)  # what is asked for there begins behind the loss, which took the key frame
                self.seek(seconds)
                explained.update(text.text[:21] for text in self.browser.find_elements(By.CSS_SELECTOR, "figure p"))
            self.assertEqual(explained - {""}, {"here video is missing"})
            self.seek(0.1)
            self.key("l")
            self.wait(lambda: int(self.data("time")) > micros(0.1))
            self.settle()
        finally:
            viewer.end()

    def test_lists_a_loss_that_no_frame_precedes(self):
        damaged = os.path.join(self.folder, "beginning.img")
        shutil.copy(self.image, damaged)
        with open(damaged, "r+b") as file:
            file.seek(first_frame_head(self.image, os.path.join(self.folder, "c0.h264")))
            file.write(b"\xee" * FRAME_HEAD)
        viewer = Viewer(damaged, self.folder)
        try:
            self.open(viewer.address)
            self.seek(0.5)
            self.wait(self.loss_is_listed)
            with self.between(viewer.address) as between:  # it is found before the lists are read
                between.failing = ("/api/damage",)
                self.browser.get("about:blank")
                self.browser.get(between.address)
                self.wait(self.loss_is_listed)
                between.failing = ()
                self.wait(lambda: self.data("complete") == "true")
                self.assertTrue(self.loss_is_listed())
        finally:
            viewer.end()

    def loss_is_listed(self):
        return self.browser.find_elements(By.CSS_SELECTOR, "#damages .loss") != []

    def test_begins_with_its_first_picture(self):
        camera = {"channel": 0, "frame_rate": 5, "gop": 10, "bitrate": 100000}
        recording = {"start": rfc3339(0), "seconds": 4, "clips": [{"channel": 0, "video": "small.h264"}]}
        image = record(self.folder, "beginnings", [camera], [recording])
        restamp(image, os.path.join(self.folder, "small.h264"), lambda _, before: before + 100000)
        viewer = Viewer(image, self.folder)
        try:
            self.open(viewer.address)
            for key in (Keys.HOME, "J"):
                self.seek(3)
                self.key(key)
                self.wait(lambda: self.data("time") == str(micros(0.1)))
                self.settle()
                self.assert_codes({"0": 0})
            self.seek(0)
            self.assertEqual(self.states(), ["missing"], "what is asked for is shown")
        finally:
            viewer.end()

    def test_goes_on_where_many_frames_have_one_time(self):
        clip = os.path.join(self.folder, "stamps.h264")
        make_clip(clip, 10, 20, gop=20)
        camera = {"channel": 0, "frame_rate": 10, "gop": 200, "bitrate": 100000}
        recording = {"start": rfc3339(0), "seconds": 20, "clips": [{"channel": 0, "video": "stamps.h264"}]}
        image = record(self.folder, "stamps", [camera], [recording])
        frames = restamp(image, clip, lambda number, _: micros(0.1 if number else 0))
        self.assertGreater(frames, 150)  # more than the pictures that a camera keeps
        viewer = Viewer(image, self.folder)
        try:
            self.open(viewer.address)
            for seconds in (0.5, 0.05, 0.8):
                self.seek(seconds)
        finally:
            viewer.end()

    def touch(self, kind, *points):
        self.browser.execute_cdp_cmd("Input.dispatchTouchEvent", {
            "type": kind, "touchPoints": [{"x": x, "y": y, "id": i} for i, (x, y) in enumerate(points)]})

    def tap(self, element):
        box = element.rect
        self.touch("touchStart", (box["x"] + box["width"] / 2, box["y"] + box["height"] / 2))
        self.touch("touchEnd")

    def seconds_in_sight(self):
        """The first and the last second that the timeline shows."""
        line = self.browser.find_element(By.ID, "timeline")
        texts = self.browser.execute_script(
            "const line = arguments[0], box = line.getBoundingClientRect();"
            "return [84, line.clientWidth - 1].map((x) => {"
            "  line.dispatchEvent(new PointerEvent('pointermove', {clientX: x + box.left, clientY: box.top + 100}));"
            "  return line.title.slice(0, 23); });", line)
        return [datetime.datetime.fromisoformat(text + "+00:00").timestamp() - START.timestamp() for text in texts]

    def move_fingers(self, begin, end):
        """Moves two fingers on the timeline: each pair are places from its left edge to its right, 0 to 1."""
        box = self.browser.find_element(By.ID, "timeline").rect
        at = [[(box["x"] + 84 + place * (box["width"] - 84), box["y"] + 100) for place in pair] for pair in (begin, end)]
        self.touch("touchStart", at[0][0])
        self.touch("touchStart", *at[0])
        for share in range(1, 11):
            self.touch("touchMove", *[(a[0] + (b[0] - a[0]) * share / 10, a[1]) for a, b in zip(*at)])
        self.touch("touchEnd", at[1][0])
        self.touch("touchEnd")
        self.settle()

    def test_two_fingers_zoom_and_move_the_timeline(self):
        self.seek(5)
        self.key("a")
        whole = self.seconds_in_sight()
        self.move_fingers((0.45, 0.55), (0.3, 0.7))
        near = self.seconds_in_sight()
        self.assertGreater(near[0], whole[0])
        self.assertLess(near[1], whole[1])
        self.move_fingers((0.4, 0.6), (0.5, 0.7))
        moved = self.seconds_in_sight()
        self.assertLess(moved[0], near[0])
        self.assertLess(moved[1], near[1])
        self.assertEqual(self.data("time"), str(micros(5)), "and choose no time")
        self.assert_shows(5)

    def test_one_finger_shows_pictures_while_it_drags(self):
        self.key("a")
        box = self.browser.find_element(By.ID, "timeline").rect
        y = box["y"] + 100
        self.touch("touchStart", (box["x"] + 150, y))
        self.wait(lambda: self.data("busy") == "false")
        first = int(self.data("time"))
        self.touch("touchMove", (box["x"] + 250, y))
        self.wait(lambda: self.data("busy") == "false" and int(self.data("time")) > first)
        self.assertEqual(self.states(), ["picture"] * len(RATES))
        self.touch("touchEnd")
        self.settle()
        self.assert_shows((int(self.data("time")) - micros(0)) / 1000000)

    def test_taps_play_and_choose_a_camera(self):
        self.seek(3)
        self.tap(self.browser.find_element(By.ID, "play"))
        self.wait(lambda: self.data("playing") == "true" and int(self.data("time")) > micros(3.5))
        self.tap(self.browser.find_element(By.ID, "play"))
        self.wait(lambda: self.data("playing") == "false")
        self.tap(self.browser.find_element(By.CSS_SELECTOR, "figure[data-channel='1']"))
        self.wait(lambda: list(self.codes()) == ["1"])

    def lines_of_a_loss(self, first, last):
        """How many lines hatch a loss, given in seconds of a day, where the timeline shows two seconds at noon."""
        return self.browser.execute_async_script("""
            const [first, last, done] = arguments;
            Promise.all([import("/timeline.js"), import("/clock.js")]).then(([{ Timeline }, { Clock, kSecond }]) => {
              const canvas = document.createElement("canvas");
              Object.assign(canvas.style, { width: "500px", height: "162px", flex: "none" });
              document.body.append(canvas);
              const timeline = new Timeline(canvas, new Clock(0, [[0, 0]], "UTC"));
              timeline.setJourneys([{ from: 0, to: 86400 * kSecond }], true);
              timeline.damages = [{ loss: true, first, last }];
              timeline.time = 43200 * kSecond;
              const { prototype } = CanvasRenderingContext2D;
              const { lineTo } = prototype;
              let lines = 0;
              prototype.lineTo = function (x, y) { ++lines; lineTo.call(this, x, y); };
              timeline.zoom(1e-9); // to the nearest
              prototype.lineTo = lineTo;
              canvas.remove();
              done(lines);
            });""", first, last)

    def test_hatches_losses_where_they_are_in_sight(self):
        # One line every 6 pixels, of 416 pixels and of the 162 that they slant.
        self.assertIn(self.lines_of_a_loss(0, 86399), range(90, 101))
        self.assertEqual(self.lines_of_a_loss(100, 200), 0)
        self.assertEqual(self.lines_of_a_loss(80000, 80100), 0)

    def test_says_that_the_disk_cannot_be_read(self):
        pulled = os.path.join(self.folder, "pulled.img")
        shutil.copy(self.image, pulled)
        viewer = Viewer(pulled, self.folder)
        try:
            self.open(viewer.address)
            os.truncate(pulled, 0)
            self.seek(AGAIN + 5)
            texts = [text.text for text in self.browser.find_elements(By.CSS_SELECTOR, "figure p")]
            self.assertEqual(len(texts), len(RATES))
            for text in texts:
                self.assertRegex(text, "^here video is missing: .* cannot be read")
        finally:
            viewer.end()

    def message(self):
        return self.text("message-text")

    def test_says_that_the_viewer_has_ended(self):
        viewer = Viewer(self.image, self.folder)
        try:
            self.open(viewer.address)
        finally:
            viewer.end()
        self.key("j")
        self.wait(lambda: self.message() == "The viewer does not answer. Start it again if it has ended, and open the "
                                            "address that it prints.")
        self.browser.get_log("browser")  # tells of the requests that failed

    @contextlib.contextmanager
    def between(self, address=None):
        """A server between page and viewer. The page is left before it ends, and what failed is taken from the console."""
        with Between(address or self.viewer.address) as between:
            try:
                yield between
            finally:
                self.browser.get("about:blank")
                self.browser.get_log("browser")

    def message_is_shown(self):
        return self.browser.find_element(By.ID, "message").is_displayed()

    def assert_asks_rarely(self, between):
        """Within four seconds, when every answer is an error: at 0, 0.5, 1.5 and 3.5 s."""
        before = len(between.times_of("/api/frames"))
        time.sleep(4)
        self.assertIn(len(between.times_of("/api/frames")) - before, range(1, 7))

    def test_goes_on_playing_when_the_server_answers_again(self):
        with self.between() as between:
            self.open(between.address)
            self.seek(1)
            between.failing = ("/api/",)
            self.key(" ")
            self.wait(self.message_is_shown)
            self.assertEqual(self.message(), "the server answers 500")
            self.assert_asks_rarely(between)
            between.failing = ()
            self.wait(lambda: int(self.data("time")) > micros(9))
            self.assertFalse(self.message_is_shown())
            self.key(" ")
            self.settle()

    def test_goes_to_a_time_when_the_server_answers_again(self):
        with self.between() as between:
            self.open(between.address)
            between.failing = ("/api/",)
            self.browser.execute_script("location.hash = 't=2026-11-20T14:00:15.5'")
            self.wait(self.message_is_shown)
            self.assert_asks_rarely(between)
            between.failing = ()
            self.wait(lambda: self.data("time") == str(micros(15.5)))
            self.settle()
            self.assert_shows(15.5)
            self.assertFalse(self.message_is_shown())

    def fail_to_draw_the_timeline(self, between):
        between.failing = ("/api/",)
        self.key(Keys.ARROW_UP)
        self.wait(self.message_is_shown)
        between.failing = ()

    def test_closes_its_message(self):
        with self.between() as between:
            self.open(between.address)
            for close in (lambda: self.key(Keys.ESCAPE),
                          lambda: self.browser.find_element(By.ID, "close-message").click(),
                          lambda: self.key(Keys.ARROW_UP)):  # it works again
                self.fail_to_draw_the_timeline(between)
                close()
                self.wait(lambda: not self.message_is_shown())

    def test_reads_the_disk_when_the_server_answers_again(self):
        with self.between() as between:
            between.failing = ("/api/coverage", "/api/events")
            self.browser.get("about:blank")
            self.browser.get(between.address)
            self.wait(self.message_is_shown)
            self.assertEqual(self.data("complete"), "")
            between.failing = ()
            self.wait(lambda: self.data("complete") == "true" and not self.message_is_shown())

    def test_says_that_its_key_is_wrong(self):
        self.browser.get("about:blank")
        self.browser.get(self.viewer.address.split("=")[0] + "=" + "0" * 32)
        self.wait(lambda: self.message() == "This page's key is not the viewer's. Open the address that the program "
                                            "printed last.")
        self.browser.get_log("browser")

    def test_leaves_room_for_pictures_in_a_small_window(self):
        try:
            for width, height in ((320, 600), (900, 420)):
                self.browser.execute_cdp_cmd(
                    "Emulation.setDeviceMetricsOverride",
                    {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": False})
                self.wait(lambda: self.browser.execute_script("return innerWidth") == width)
                room = self.browser.find_element(By.ID, "cameras").size
                self.assertGreaterEqual(room["height"], 180)
                self.assertGreater(room["width"], width / 2)
                self.assertLessEqual(self.browser.execute_script("return document.documentElement.scrollWidth"), width)
        finally:
            self.browser.execute_cdp_cmd("Emulation.clearDeviceMetricsOverride", {})

    def test_shows_32_cameras(self):
        cameras = [{"channel": channel, "frame_rate": 5, "gop": 10, "bitrate": 100000} for channel in range(32)]
        clips = [{"channel": channel, "video": "small.h264"} for channel in range(32)]
        image = record(self.folder, "many", cameras, [{"start": rfc3339(0), "seconds": 4, "clips": clips}])
        viewer = Viewer(image, self.folder)
        try:
            self.open(viewer.address)
            self.seek(2.1)
            self.assert_codes({str(channel): 10 for channel in range(32)})
        finally:
            viewer.end()


class ServerPicturesTest(BrowserTest):
    """A camera that Chromium decodes, and one whose pictures the server has to decode."""

    RATE = 10
    KILLED = 4  # at the least: the server tries twice

    @classmethod
    def record_disk(cls):
        make_clip(os.path.join(cls.folder, "own.h264"), cls.RATE, SECONDS)
        make_clip(os.path.join(cls.folder, "other.h265"), cls.RATE, SECONDS, "hevc")
        cameras = [{"channel": channel, "frame_rate": cls.RATE, "gop": cls.RATE * GOP, "bitrate": 300000}
                   for channel in range(2)]
        clips = [{"channel": 0, "video": "own.h264"}, {"channel": 1, "video": "other.h265"}]
        return record(cls.folder, "hevc", cameras, [{"start": rfc3339(0), "seconds": SECONDS, "clips": clips}])

    def assert_shows(self, seconds):
        frame = int(seconds * self.RATE + 0.001)
        self.assert_codes({"0": frame, "1": frame})

    def captions(self):
        return [text.text for text in self.browser.find_elements(By.CSS_SELECTOR, "figcaption")]

    def test_says_whose_pictures_they_are(self):
        self.assertEqual(self.captions(), ["channel 0", "channel 1, pictures from the server"])

    def test_shows_the_frame_of_a_time(self):
        for seconds in (5.05, 12.95, 3.0, 19.5, 0.0):
            self.seek(seconds)
            self.assert_shows(seconds)

    def test_steps_frame_by_frame(self):
        self.seek(7.5)
        at = 75
        for direction, count in ((1, 8), (-1, 14)):
            for _ in range(count):
                at += direction
                self.key(Keys.ARROW_RIGHT if direction > 0 else Keys.ARROW_LEFT)
                self.wait(lambda: abs(int(self.data("time")) - micros(at / self.RATE)) <= 1)
                self.assert_shows(at / self.RATE)

    def test_plays_in_step_with_the_others(self):
        self.seek(2)
        self.key(" ")
        spreads = []
        while int(self.data("time")) < micros(6):
            codes = self.codes()
            if len(codes) == 2:
                spreads.append(abs(codes["0"] - codes["1"]))
        self.key(" ")
        self.settle()
        # On a machine that is too slow key frames alone are shown.
        self.assertLessEqual(statistics.median(spreads), 1)
        self.assert_shows((int(self.data("time")) - micros(0)) / 1000000)

    def test_shows_key_frames_at_16x(self):
        self.seek(1)
        self.browser.execute_script(
            "const rate = document.getElementById('rate'); rate.value = '16'; rate.dispatchEvent(new Event('change'))")
        self.key(" ")
        self.wait(lambda: int(self.data("time")) > micros(12))
        self.key(" ")
        self.settle()

    def test_goes_on_when_the_decoder_is_killed(self):
        with Killer(self.viewer.process.pid) as killer:
            end = time.monotonic() + 120
            # What is asked for at one of these places ends before the other: each is decoded anew every time.
            for seconds in itertools.cycle((12, 2)):
                self.seek(seconds)
                self.assert_camera_shows(0, seconds * self.RATE)
                if len(killer.killed) >= self.KILLED or time.monotonic() > end:
                    break
        self.assertGreaterEqual(len(killer.killed), self.KILLED)
        # Pictures that the killed ones took with them stay missing: neither place lies where some were asked for.
        for seconds in (9, 18):
            self.seek(seconds)
            self.assert_shows(seconds)

    def test_takes_hostile_pictures(self):
        with open(os.path.join(self.folder, "other.h265"), "rb") as file:
            clip = file.read()
        with open(self.image, "rb") as file:
            whole = bytearray(file.read())
        noise = random.Random(1)
        spoilt = 0
        place = 0
        # Some bytes of each piece of the clip, but for its first and last parts: recorded one after the other.
        for at in range(200, len(clip) * 2 // 3, 400):
            piece = clip[at:at + 32]
            place = max(place, whole.find(piece, place))
            if at > len(clip) // 3 and whole[place:place + 32] == piece:
                spoilt += 1
                whole[place:place + 32] = noise.randbytes(32)
        self.assertGreater(spoilt, 3)
        hostile = os.path.join(self.folder, "hostile.img")
        with open(hostile, "wb") as file:
            file.write(whole)
        viewer = Viewer(hostile, self.folder)
        try:
            self.open(viewer.address)
            for seconds in (8, 9, 10, 11):
                self.seek(seconds)
                self.assert_camera_shows(0, seconds * self.RATE)
            self.seek(1)
            self.assert_shows(1)
        finally:
            self.assertEqual(viewer.end(), 0)


class MemoryTest(unittest.TestCase):
    """What the program keeps."""

    CLIENTS, QUESTIONS = 6, 20
    MOST_KIB = 12 << 10  # more than before; a block is 4 MiB
    MOST_OF_FILES_KIB = 16 << 10  # its libraries leave 24 MiB when they are loaded

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="diskaccess-view-")
        self.addCleanup(folder.cleanup)
        make_clip(os.path.join(folder.name, "c0.h264"), 25, SECONDS)
        cameras = [{"channel": channel, "frame_rate": 25, "gop": 50, "bitrate": 300000} for channel in range(32)]
        clips = [{"channel": channel, "video": "c0.h264"} for channel in range(32)]
        image = record(folder.name, "memory", cameras, [{"start": rfc3339(0), "seconds": SECONDS, "clips": clips}])
        self.viewer = Viewer(image, folder.name)
        self.addCleanup(self.viewer.end)

    def memory(self, kind):
        with open(f"/proc/{self.viewer.process.pid}/smaps_rollup", encoding="ascii") as file:
            return int(re.search(rf"^{kind}:\s+(\d+) kB$", file.read(), re.MULTILINE).group(1))

    def own_memory(self):
        return self.memory("Anonymous")

    def memory_of_files(self):
        return self.memory("Rss") - self.own_memory()

    def falls(self, memory, most):
        end = time.monotonic() + 30
        while memory() > most and time.monotonic() < end:
            time.sleep(0.1)
        self.assertLess(memory(), most)

    def read(self):
        site, token = self.viewer.address.split("/#token=")
        for number in range(self.QUESTIONS):
            at = micros(number * SECONDS // self.QUESTIONS)
            question = urllib.request.Request(
                f"{site}/api/frames?from={at}&to={at + 4000000}&channels=0&kind=all&start=key",
                headers={"Authorization": "Bearer " + token})
            with urllib.request.urlopen(question, timeout=60) as answer:
                self.assertGreater(len(answer.read()), 1000)

    def test_gives_its_memory_back(self):
        before = self.own_memory()
        clients = [threading.Thread(target=self.read) for _ in range(self.CLIENTS)]
        for client in clients:
            client.start()
        for client in clients:
            client.join()
        self.falls(self.own_memory, before + self.MOST_KIB)

    def test_keeps_little_of_its_libraries(self):
        self.falls(self.memory_of_files, self.MOST_OF_FILES_KIB)
        self.read()
        self.assertLess(self.memory_of_files(), self.MOST_OF_FILES_KIB)


if __name__ == "__main__":
    run()
