#!/usr/bin/env python3
"""The pages that the program writes, in a real browser: the timeline and the report.

    pages_test.py DISKACCESS DISKACCESS_SAMPLE

Exits with 77 where there is no Chromium, no driver for it, or no ffmpeg.
"""

import base64
import json
import os
import re
import shutil
import subprocess
import tempfile
import time

from browser_support import (
    HOSTILE, PROGRAM, START, ActionChains, By, Keys, PageTest, make_clip, record, rfc3339, run, start_browser)

SECONDS = 40
EVENT = 15  # seconds after START
AGAIN = 3600  # the second journey
CTRL, SHIFT = 2, 8  # modifiers of the wheel
LIGHT, DARK = "rgb(255, 255, 255)", "rgb(21, 24, 27)"
LABELS, AXIS, ROW = 130, 22, 20  # pixels of a strip: its labels, its axis, a row


class Pages(PageTest):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix="diskaccess-pages-")
        make_clip(os.path.join(cls.folder, "c0.h264"), 10, SECONDS)
        cameras = [{"channel": channel, "frame_rate": 10, "gop": 20, "bitrate": 300000} for channel in (0, 1)]
        clips = [{"channel": channel, "video": "c0.h264"} for channel in (0, 1)]
        journeys = [{"start": rfc3339(at), "seconds": SECONDS, "clips": clips} for at in (0, AGAIN)]
        events = [{"time": rfc3339(EVENT), "type": "0x1", "channel": 1}]
        image = record(cls.folder, "pages", cameras, journeys, events, HOSTILE)
        names = os.path.join(cls.folder, "names.json")
        with open(names, "w", encoding="utf-8") as file:
            json.dump({"channels": {"0": HOSTILE, "1": "door"}, "event_types": {"0x1": HOSTILE}}, file)
        cls.timeline = os.path.join(cls.folder, "timeline.html")
        cls.report = os.path.join(cls.folder, "report.html")
        for command in (["timeline", image, "--html", cls.timeline],
                        ["report", image, "-o", cls.report, "--case", HOSTILE, "--note", HOSTILE]):
            subprocess.run([PROGRAM, *command, "--utc", "--names", names], check=True, stdout=subprocess.DEVNULL)
        cls.browser = start_browser(["--window-size=1200,900", "--hide-scrollbars"], ["browser"])

    @classmethod
    def tearDownClass(cls):
        cls.browser.quit()
        shutil.rmtree(cls.folder)

    def tearDown(self):
        for feature, value in (("setEmulatedMedia", {"media": "", "features": []}),
                               ("clearDeviceMetricsOverride", {})):
            self.browser.execute_cdp_cmd("Emulation." + feature, value)
        self.assert_console_is_empty()

    def open(self, page):
        self.browser.get("file://" + page)

    def script(self, text, *arguments):
        return self.browser.execute_script(text, *arguments)

    def scheme(self, name):
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia",
                                     {"features": [{"name": "prefers-color-scheme", "value": name}]})

    def size(self, width, height):
        self.browser.execute_cdp_cmd(
            "Emulation.setDeviceMetricsOverride",
            {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": False})

    def background(self):
        return self.script("return getComputedStyle(document.body).backgroundColor")

    def pdf(self):
        printed = self.browser.execute_cdp_cmd("Page.printToPDF", {"preferCSSPageSize": True})
        return base64.b64decode(printed["data"])

    def nothing_gets_through(self):
        """Tries what a page that has been taken over would try; the console says that it was refused."""
        self.assertEqual(self.script("""
            const image = document.createElement("img");
            image.src = "http://127.0.0.1:9/x";
            const script = document.createElement("script");
            script.textContent = "document.title = 'taken'";
            const style = document.createElement("style");
            style.textContent = "body { color: red }";
            document.body.append(image, script, style);
            return [document.title === "taken", getComputedStyle(document.body).color === "rgb(255, 0, 0)"];"""),
            [False, False])
        self.assertEqual(self.browser.execute_async_script(
            "fetch('http://127.0.0.1:9/x').then(() => arguments[0]('sent'), () => arguments[0]('refused'))"),
            "refused")
        self.wait(lambda: self.refusals() >= 4)

    refused = 0

    def refusals(self):
        for entry in self.browser.get_log("browser"):
            self.assertIn("Content Security Policy", entry["message"])
            self.refused += 1
        return self.refused


class Timeline(Pages):
    def setUp(self):
        self.open(self.timeline)
        self.wait(lambda: self.range(0))
        self.canvas = self.browser.find_elements(By.TAG_NAME, "canvas")[0]
        self.script("arguments[0].focus()", self.canvas)

    def range(self, strip):
        """The seconds that a strip shows, counted from START; None before it is drawn."""
        text = self.script("return document.querySelectorAll('.where')[arguments[0]].textContent", strip)
        times = re.findall(r"\d{4}-\d\d-\d\d (\d\d):(\d\d):(\d\d)", text)
        of_day = [int(h) * 3600 + int(m) * 60 + int(s) - START.hour * 3600 for h, m, s in times]
        return tuple(of_day) if len(of_day) == 2 else None

    def tip(self):
        return self.script("const tip = document.getElementById('tip'); return tip.hidden ? '' : tip.textContent")

    def press(self, *keys):
        for key in keys:
            ActionChains(self.browser).send_keys(key).perform()

    def wheel(self, x, delta, modifiers=0):
        box = self.canvas.rect
        self.browser.execute_cdp_cmd("Input.dispatchMouseEvent", {
            "type": "mouseWheel", "x": box["x"] + x, "y": box["y"] + AXIS + 5, "deltaX": 0, "deltaY": delta,
            "modifiers": modifiers})

    def x_of(self, second):
        return LABELS + (second + 0.5) / SECONDS * (self.canvas.size["width"] - LABELS)

    def point_at(self, x, y):
        box = self.canvas.rect
        self.browser.execute_cdp_cmd("Input.dispatchMouseEvent",
                                     {"type": "mouseMoved", "x": box["x"] + x, "y": box["y"] + y})

    def test_keys_zoom_and_pan(self):
        whole = self.range(0)
        self.assertEqual(whole, (0, SECONDS - 1))
        self.press("+")
        self.assertEqual(self.range(0), (10, 29))  # the middle half
        self.press("+")
        self.assertEqual(self.range(0), (15, 24))
        self.press("-")
        self.assertEqual(self.range(0), (10, 29))
        self.press(Keys.PAGE_DOWN)
        self.assertEqual(self.range(0), (20, 39))  # 18 seconds on, and no further than the end
        self.press(Keys.PAGE_UP)
        self.assertEqual(self.range(0), (2, 21))
        self.press(Keys.HOME)
        self.assertEqual(self.range(0), (0, 19))
        self.press(Keys.END)
        self.assertEqual(self.range(0), (20, 39))
        self.press("0")
        self.assertEqual(self.range(0), whole)
        self.press("-")
        self.assertEqual(self.range(0), whole)
        self.assertEqual(self.range(1), (AGAIN, AGAIN + SECONDS - 1), "the other journey stays")

    def test_keys_move_a_cursor_that_tells(self):
        self.press(Keys.ARROW_DOWN)
        self.assertIn("door: recorded", self.tip())
        self.press(Keys.ARROW_UP)
        self.assertIn(HOSTILE + ": recorded", self.tip())
        self.press(Keys.HOME)
        self.assertTrue(self.tip().startswith("2026-11-20 14:00:00"), self.tip())
        self.press(*[Keys.ARROW_RIGHT] * 19)  # steps of a fiftieth: 15.2 seconds
        self.assertTrue(self.tip().startswith("2026-11-20 14:00:15"), self.tip())
        self.assertIn("event at 2026-11-20 14:00:15: " + HOSTILE, self.tip())
        self.press(Keys.ARROW_LEFT)
        self.assertTrue(self.tip().startswith("2026-11-20 14:00:14"), self.tip())
        self.press(Keys.ESCAPE)
        self.assertEqual(self.tip(), "")

    def test_the_wheel_zooms_about_the_pointer(self):
        at = self.x_of(10)
        self.wheel(at, -100, CTRL)
        self.wait(lambda: self.range(0) != (0, SECONDS - 1))
        first, last = self.range(0)
        self.assertAlmostEqual(last - first + 1, SECONDS * 0.8, delta=1.5)
        self.assertAlmostEqual((10.5 - first) / (last + 1 - first), 10.5 / SECONDS, delta=0.05)
        before = self.range(0)
        self.wheel(at, 200, SHIFT)
        self.wait(lambda: self.range(0) != before)
        self.assertGreater(self.range(0)[0], before[0])
        self.assertAlmostEqual(self.range(0)[1] - self.range(0)[0], before[1] - before[0], delta=1)

    def test_the_wheel_scrolls_until_a_strip_is_chosen(self):
        self.script("document.activeElement.blur()")
        self.wheel(self.x_of(10), 100)
        time.sleep(0.3)
        self.assertEqual(self.range(0), (0, SECONDS - 1))

    def test_a_tip_tells_what_lies_under_the_pointer(self):
        self.point_at(self.x_of(5), AXIS + ROW + 5)
        self.wait(self.tip)
        self.assertEqual(self.tip(), "2026-11-20 14:00:05  door: recorded\n2026-11-20 14:00:00 to 2026-11-20 14:00:39\n"
                                     "alarm: " + HOSTILE)
        self.point_at(self.x_of(EVENT - 0.5), AXIS + 5)
        self.wait(lambda: "event at" in self.tip())
        self.point_at(20, AXIS + 5)
        self.wait(lambda: not self.tip())

    def test_buttons_do_as_the_keys(self):
        for title, expected in (("Zoom in", (10, 29)), ("Zoom out", (0, 39)), ("Zoom in", (10, 29)),
                                ("Show the whole journey", (0, 39))):
            self.browser.find_element(By.CSS_SELECTOR, f"button[title='{title}']").click()
            self.assertEqual(self.range(0), expected, title)

    def test_tab_leads_from_strip_to_strip(self):
        seen = set()
        self.script("document.activeElement.blur()")
        for _ in range(12):
            self.press(Keys.TAB)
            seen.add(self.script("return document.activeElement.getAttribute('aria-label')"))
        self.assertEqual(sum(1 for label in seen if label and label.startswith("Journey")), 2, seen)

    def colours(self):
        return self.script("return document.querySelector('canvas').toDataURL()")

    def test_dark_and_light(self):
        self.scheme("light")
        self.wait(lambda: self.background() == LIGHT)
        light = self.colours()
        self.scheme("dark")
        self.wait(lambda: self.background() == DARK and self.colours() != light)

    def test_narrow_and_wide(self):
        for width in (360, 2400):
            self.size(width, 800)
            self.wait(lambda: self.canvas.size["width"] > 0.7 * width)
            self.assertLessEqual(self.script("return document.documentElement.scrollWidth"), width)
            self.assertEqual(self.range(0), (0, SECONDS - 1))

    def test_prints(self):
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"media": "print"})
        self.assertEqual(
            self.script("return getComputedStyle(document.querySelector('button')).display"), "none")
        self.assertTrue(self.pdf().startswith(b"%PDF"))

    def test_takes_markup_of_the_disk_for_text(self):
        self.assertEqual(self.script("return document.images.length"), 0)
        self.assertIn(HOSTILE, self.script("return document.body.textContent"))

    def test_lets_nothing_through(self):
        self.nothing_gets_through()


class Report(Pages):
    def setUp(self):
        self.open(self.report)

    def test_takes_markup_of_the_disk_for_text(self):
        text = self.browser.find_element(By.TAG_NAME, "body").text
        self.assertGreaterEqual(text.count(HOSTILE), 4)  # case, note, description, event
        self.assertEqual(self.script("return document.scripts.length"), 0)

    def test_shows_all_pictures(self):
        pictures = self.script("return [...document.images].map(each => [each.src.slice(0, 15), each.naturalWidth])")
        self.assertEqual([kind for kind, _ in pictures], ["data:image/svg+", "data:image/svg+", "data:image/jpeg"])
        self.assertEqual(pictures[2][1], 320)  # of the event, as large as it was recorded
        self.assertIn("channel door, 2026-11-20 14:00:15.000, block 0",
                      self.browser.find_element(By.TAG_NAME, "body").text)

    def test_dark_and_light(self):
        for name, colour in (("light", LIGHT), ("dark", DARK)):
            self.scheme(name)
            self.wait(lambda: self.background() == colour)

    def test_narrow(self):
        self.size(360, 800)
        self.assertLessEqual(self.script("return document.documentElement.scrollWidth"), 360)

    def test_prints_on_few_pages(self):
        printed = self.pdf()
        self.assertTrue(printed.startswith(b"%PDF"))
        self.assertLessEqual(len(re.findall(rb"/Type\s*/Page[^s]", printed)), 4)
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {
            "media": "print", "features": [{"name": "prefers-color-scheme", "value": "dark"}]})
        self.wait(lambda: self.background() == LIGHT)  # paper is white

    def test_lets_nothing_through(self):
        self.nothing_gets_through()


del Pages  # has no tests itself

if __name__ == "__main__":
    run()
