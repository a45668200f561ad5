#!/usr/bin/python3
"""Looks at pages of `tarn report` in Chromium, on a screen and printed, and checks them with HTML Tidy.

    html_report_test.py TARN
"""
# SPDX-License-Identifier: MIT

import base64
import io
from pathlib import Path
import re
import subprocess
import sys
import tempfile
import unittest
import wave

import matplotlib.image
from selenium import webdriver
from selenium.webdriver.common.by import By
from selenium.webdriver.common.print_page_options import PrintOptions

PAPERS = {"A4": (21.0, 29.7), "Letter": (21.59, 27.94)}  # cm
POINTS_PER_CM = 72 / 2.54
TARN = str(Path(sys.argv[1]).resolve())


class Page(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.directory = tempfile.TemporaryDirectory(prefix="tarn-report-test-")
        cls.addClassCleanup(cls.directory.cleanup)
        folder = Path(cls.directory.name)
        subprocess.run([TARN, "demo", "scene.wav"], cwd=folder, check=True, capture_output=True)
        stereo = folder / "scene-stereo.wav"
        for name, length in (("b.wav", 300000), ("a.wav", 600000), ("c.wav", 900000)):
            (folder / name).write_bytes(stereo.read_bytes()[:length])
        # The files are cut, which exit code 1 says.
        files = ["b.wav", "a.wav", "c.wav"]
        for theme, layout in (("dark", "5.1"), ("light", "3.0")):
            command = [
                TARN,
                "report",
                "--theme",
                theme,
                "--layout",
                layout,
                *files,
                "missing.wav",
                "-o",
                f"{theme}.html",
            ]
            result = subprocess.run(command, cwd=folder, capture_output=True, text=True)
            assert result.returncode == 66, result.stderr
        command = [TARN, "report", "--layout", "5.1", "scene-stereo.wav", "-o", "one.html"]
        subprocess.run(command, cwd=folder, check=True, capture_output=True)
        frames = stereo.read_bytes()[44:]
        cls.write_wave(folder / "silence.wav", bytes(len(frames)))
        cls.write_wave(folder / "short.wav", frames[200000:204000])
        files = ["silence.wav", "b.wav", "short.wav", "scene-stereo.wav"]
        command = [TARN, "report", "--no-limiter", *files, "-o", "levels.html"]
        subprocess.run(command, cwd=folder, capture_output=True)
        cls.pages = {path.stem: path for path in folder.glob("*.html")}

        options = webdriver.ChromeOptions()
        options.add_argument("--headless=new")
        options.add_argument("--no-sandbox")
        options.add_argument("--hide-scrollbars")
        options.add_argument(f"--user-data-dir={folder}/profile")
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        cls.browser = webdriver.Chrome(options=options)
        cls.addClassCleanup(cls.browser.quit)

    @staticmethod
    def write_wave(path, frames):
        with wave.open(str(path), "wb") as file:
            file.setparams((2, 2, 48000, 0, "NONE", ""))
            file.writeframes(frames)

    def open(self, name, width, height):
        metrics = {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": False}
        self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", metrics)
        self.browser.get(self.pages[name].as_uri())

    def tearDown(self):
        self.assertEqual(self.browser.get_log("browser"), [])

    def test_is_valid_html(self):
        self.assertEqual(sorted(self.pages), ["dark", "levels", "light", "one"])
        for path in self.pages.values():
            result = subprocess.run(["tidy", "-errors", "-quiet", str(path)], capture_output=True, text=True)
            self.assertEqual((result.returncode, result.stderr), (0, ""), path.name)

    def test_loads_nothing(self):
        for name in self.pages:
            self.open(name, 1300, 900)
            loaded = self.browser.execute_script("return performance.getEntriesByType('resource').map((e) => e.name)")
            self.assertEqual([url for url in loaded if not url.startswith("data:")], [])

    def test_shows_the_picture(self):
        """The pixels of the picture are on the screen."""
        for name in self.pages:
            self.open(name, 1300, 900)
            image = self.browser.find_element(By.TAG_NAME, "img")
            place = "position: fixed; left: 0; top: 0; width: 1200px; max-width: none"
            self.browser.execute_script("arguments[0].style.cssText = arguments[1]", image, place)
            source = image.get_attribute("src").partition(",")[2]
            expected = matplotlib.image.imread(io.BytesIO(base64.b64decode(source)))[:900, :, :3]
            self.assertEqual(expected.shape[1], 1200)
            screen = matplotlib.image.imread(io.BytesIO(self.browser.get_screenshot_as_png()))
            self.assertTrue((screen[: len(expected), :1200, :3] == expected).all(), name)

    def test_fits_a_phone(self):
        for name in self.pages:
            self.open(name, 390, 844)
            widths = self.browser.execute_script("return [document.documentElement.scrollWidth, innerWidth]")
            self.assertEqual(widths, [390, 390])
            for text in self.browser.find_elements(By.CSS_SELECTOR, "h1, h2, p, dd, td, th"):
                self.assertGreaterEqual(float(text.value_of_css_property("font-size")[:-2]), 14)

    def test_headings_break_between_words(self):
        """Every word of a heading is on one line of a phone."""
        count = """return [...document.querySelectorAll("th")].map((th) => {
            const range = document.createRange();
            const text = document.createTreeWalker(th, NodeFilter.SHOW_TEXT).nextNode();
            return [...text.data.matchAll(/\\S+/g)].map((word) => {
                range.setStart(text, word.index);
                range.setEnd(text, word.index + word[0].length);
                return [word[0], range.getClientRects().length];
            });
        }).flat()"""
        for name in self.pages:
            self.open(name, 390, 844)
            words = self.browser.execute_script(count)
            self.assertGreater(len(words), 4)
            self.assertEqual([word for word, lines in words if lines != 1], [], name)

    def test_a_phone_shows_the_picture_whole_and_after_a_tap_at_full_size(self):
        for name in self.pages:
            self.open(name, 390, 844)
            image = self.browser.find_element(By.TAG_NAME, "img")
            frame = self.browser.find_element(By.CSS_SELECTOR, "figure .wide")
            self.assertLess(image.size["width"], 390)
            self.assertTrue(self.browser.find_element(By.CSS_SELECTOR, "label.zoom").is_displayed())
            image.click()
            self.assertEqual(image.size["width"], 1200)
            self.assertGreater(int(frame.get_property("scrollWidth")), int(frame.get_property("clientWidth")))
            self.browser.find_element(By.CSS_SELECTOR, "input.zoom").click()
            self.assertLess(image.size["width"], 390)
            self.open(name, 1300, 900)
            self.assertFalse(self.browser.find_element(By.CSS_SELECTOR, "label.zoom").is_displayed())

    def test_a_table_that_scrolls_says_so(self):
        for width in (390, 1300):
            self.open("dark", width, 900)
            frame = self.browser.find_element(By.XPATH, "//table[@id='all']/..")
            scrolls = int(frame.get_property("scrollWidth")) > int(frame.get_property("clientWidth"))
            self.assertEqual(scrolls, width == 390)
            self.assertEqual(self.browser.find_element(By.CSS_SELECTOR, ".more").is_displayed(), scrolls)

    def test_bars_begin_at_the_same_place(self):
        self.open("one", 1300, 900)
        bars = self.browser.find_elements(By.CSS_SELECTOR, ".bar")
        self.assertEqual(len(bars), 6)
        self.assertEqual(len({(bar.location["x"], bar.size["width"]) for bar in bars}), 1)

    def test_text_has_contrast(self):
        """At least 4.5 to 1, as WCAG 2 asks for."""

        def luminance(colour):
            parts = [int(part) / 255 for part in colour[colour.index("(") + 1 : -1].split(",")[:3]]
            linear = [p / 12.92 if p <= 0.03928 else ((p + 0.055) / 1.055) ** 2.4 for p in parts]
            return 0.2126 * linear[0] + 0.7152 * linear[1] + 0.0722 * linear[2]

        for name in self.pages:
            self.open(name, 1300, 900)
            paper = luminance(self.browser.find_element(By.TAG_NAME, "body").value_of_css_property("background-color"))
            for text in self.browser.find_elements(By.CSS_SELECTOR, "h1, h2, p, dt, dd, td, th, a, li"):
                ink = luminance(text.value_of_css_property("color"))
                self.assertGreaterEqual((max(ink, paper) + 0.05) / (min(ink, paper) + 0.05), 4.5)

    def names(self):
        return [cell.text for cell in self.browser.find_elements(By.CSS_SELECTOR, "#all tbody td:first-child")]

    def test_table_is_sorted_by_a_click(self):
        self.open("dark", 1300, 900)
        self.assertEqual(self.names(), ["b.wav", "a.wav", "c.wav"])
        headings = {th.text: th for th in self.browser.find_elements(By.CSS_SELECTOR, "#all th")}
        script = "return getComputedStyle(arguments[0].firstElementChild, '::after').content"
        for heading in headings.values():
            self.assertIn("\u2195", self.browser.execute_script(script, heading), heading.text)
        for heading, expected in (
            ("Recording", "abc"),
            ("Recording", "cba"),
            ("Length", "cab"),
            ("Length", "bac"),
            ("Recording", "abc"),
        ):
            headings[heading].find_element(By.TAG_NAME, "button").click()
            self.assertEqual(self.names(), [f"{letter}.wav" for letter in expected], heading)
        self.assertEqual(headings["Recording"].get_attribute("aria-sort"), "ascending")
        self.assertIsNone(headings["Length"].get_attribute("aria-sort"))
        self.assertIn("\u25b2", self.browser.execute_script(script, headings["Recording"]))

    def test_levels_are_sorted_as_numbers(self):
        """Silent recordings, and those without a loudness, are below all numbers."""
        self.open("levels", 1300, 900)
        headings = self.browser.find_elements(By.CSS_SELECTOR, "#all th")
        for column, heading in enumerate(headings):
            if heading.text not in ("Before, LUFS", "After, LUFS", "Peak, dBFS", "Left", "Centre", "Right"):
                continue
            cells = f"#all tbody td:nth-child({column + 1})"
            for descending in (True, False):
                heading.find_element(By.TAG_NAME, "button").click()
                texts = [cell.text for cell in self.browser.find_elements(By.CSS_SELECTOR, cells)]
                numbers = [float(text.rstrip(" %")) if text[-1] not in "te" else -1000 for text in texts]
                self.assertEqual(numbers, sorted(numbers, reverse=descending), texts)
                self.assertGreater(len(set(numbers)), 2)

    def test_rows_lead_to_recordings(self):
        self.open("dark", 1300, 900)
        self.browser.find_element(By.LINK_TEXT, "c.wav").click()
        article = self.browser.find_element(By.CSS_SELECTOR, "article:target h2")
        self.assertEqual(article.text, "c.wav")

    def test_failures_are_at_the_end(self):
        self.open("dark", 1300, 900)
        self.browser.find_element(By.LINK_TEXT, "1 not upmixed").click()
        self.assertEqual(self.browser.find_element(By.CSS_SELECTOR, ":target h2").text, "Not upmixed")
        items = self.browser.find_elements(By.CSS_SELECTOR, "#failures li")
        self.assertEqual([item.text.split(":")[0] for item in items], ["missing.wav"])

    def printed(self, name, paper):
        """Prints a page. Returns its PDF file and the words of every sheet: (left, right, text), in cm."""
        self.open(name, 1300, 900)
        options = PrintOptions()
        options.page_width, options.page_height = PAPERS[paper]
        options.background = True
        file = self.pages[name].with_suffix(f".{paper}.pdf")
        file.write_bytes(base64.b64decode(self.browser.print_page(options)))
        boxes = subprocess.run(["pdftotext", "-bbox", str(file), "-"], check=True, capture_output=True, text=True)
        word = re.compile(r'<word xMin="([0-9.]+)" .*xMax="([0-9.]+)" .*>(.*)</word>')
        return file, [
            [
                (float(left) / POINTS_PER_CM, float(right) / POINTS_PER_CM, text)
                for left, right, text in word.findall(sheet)
            ]
            for sheet in boxes.stdout.split("<page ")[1:]
        ]

    def test_print_fits_the_paper(self):
        for paper, (width, _) in PAPERS.items():
            for name in self.pages:
                _, sheets = self.printed(name, paper)
                for left, right, text in (word for sheet in sheets for word in sheet):
                    self.assertGreaterEqual(left, 1.1, text)
                    self.assertLessEqual(right, width - 1.1, text)
                shown = {text for _, _, text in sheets[0]}
                headings = self.browser.find_elements(By.CSS_SELECTOR, "#all th")
                self.assertEqual(len(headings), {"dark": 10, "levels": 9, "light": 9, "one": 0}[name])
                for heading in headings:
                    self.assertLessEqual(set(heading.text.split()), shown)

    def test_print_keeps_together_what_belongs_together(self):
        """Every recording is on one sheet, and so is every heading with what follows it."""
        for paper in PAPERS:
            for name in self.pages:
                _, sheets = self.printed(name, paper)
                words = [[text for _, _, text in sheet] for sheet in sheets]
                for sheet in words:
                    counts = {text: sheet.count(text) for text in ("(Microsoft),", "Output", "RMS,", "before", "Gain")}
                    self.assertEqual(len(set(counts.values())), 1, (paper, name, counts))
                    self.assertEqual("Not" in sheet, "missing.wav:" in sheet)
                self.assertEqual(sum(sheet.count("Output") for sheet in words), {"levels": 4, "one": 1}.get(name, 3))
                # The head shares its sheet with the first recording.
                self.assertIn("Upmix", words[0])
                self.assertIn("Output", words[0])

    def test_print_is_light(self):
        for name in self.pages:
            file, sheets = self.printed(name, "A4")
            subprocess.run(["pdftoppm", "-r", "20", "-png", str(file), str(file)], check=True)
            images = sorted(file.parent.glob(f"{file.name}-*.png"))
            self.assertEqual(len(images), len(sheets))
            for image in images:
                pixels = matplotlib.image.imread(image)[:, :, :3]
                self.assertTrue((pixels[0] == 1).all() and (pixels[:, 0] == 1).all())
                self.assertGreater(pixels.mean(), 0.7)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[2:], verbosity=1)
