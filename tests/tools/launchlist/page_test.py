"""The report's page in headless Chromium: wide and phone, light and dark.

    page_test.py LAUNCHLIST

No console message, nothing loaded, no figure that differs from `report --json`, readable, and usable
by keyboard and screen reader. Needs chromium, chromedriver and Python's selenium.
"""

import json
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

from selenium import webdriver
from selenium.webdriver.chrome.options import Options
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.keys import Keys

# Name, width, height, colour scheme.
VIEWS = [
    ("wide and light", 1200, 900, "light"),
    ("wide and dark", 1200, 900, "dark"),
    ("phone and light", 390, 844, "light"),
    ("phone and dark", 390, 844, "dark"),
]

# The figures that the page shows, by their names in the JSON.
FIGURES = (
    "starts ends restarts most_restarts_a_minute shortest_run_ms median_run_ms longest_run_ms state"
).split()

LEAST_CONTRAST = 4.5
LEAST_FONT_SIZE = 13

HOSTILE = r"\x1b[31m\u202e</style><script>document.title='owned'</script><img src=x onerror=a()>"


def time_at(milliseconds):
    minutes, rest = divmod(milliseconds, 60000)
    return f"2026-11-21T02:{minutes:02}:{rest // 1000:02}.{rest % 1000:03}Z"


class Log:
    """A log of some items, as text."""

    def __init__(self):
        self.text = ""

    def start(self, time, name, process=100):
        self.text += (
            f"{time_at(time)} DEBUG    launcher[{process}] [LAUNCHER  ] Start to fork {name}\n"
        )

    def end(self, time, name, child, wait_status, process=100):
        self.text += (
            f"{time_at(time)} ERROR    launcher[{process}] [LAUNCHER  ] {name} {child} is killed. "
            f"ret = {child}, status = {wait_status}\n"
        )


def sample_log():
    log = Log()
    log.start(0, "agent")
    for i in range(30):
        log.start(1000 + 400 * i, "crasher")
        log.end(1350 + 400 * i, "crasher", 200 + i, 139 if i % 3 else 768)
    log.start(20000, "missing")
    log.start(20050, "missing", 300)
    log.end(30000, HOSTILE, 400, 0)
    log.end(31000, "x" * 300, 401, 9)
    log.text += "a foreign line <b>\x1b[2J\n"
    log.end(600000, "agent", 101, 9)
    return log.text


def contrast(first, second):
    """The contrast of two colours, as the accessibility guidelines count it."""

    def luminance(color):
        parts = [part / 255 for part in color]
        linear = [p / 12.92 if p <= 0.03928 else ((p + 0.055) / 1.055) ** 2.4 for p in parts]
        return 0.2126 * linear[0] + 0.7152 * linear[1] + 0.0722 * linear[2]

    light, dark = sorted((luminance(first), luminance(second)), reverse=True)
    return (light + 0.05) / (dark + 0.05)


# For every text of the page: the text, its colour, the colour behind it, its size.
TEXTS = """
const parse = text => text.match(/[\\d.]+/g).map(Number);
const behind = element => {
    for (; element; element = element.parentElement) {
        const color = parse(getComputedStyle(element).backgroundColor);
        if (color.length < 4 || color[3] > 0) return color.slice(0, 3);
    }
    return [255, 255, 255];
};
const found = [];
for (const element of document.body.querySelectorAll('*')) {
    const text = [...element.childNodes].filter(n => n.nodeType === 3).map(n => n.data.trim()).join('');
    if (text && !element.closest('svg')) {
        const style = getComputedStyle(element);
        found.push([text, parse(style.color).slice(0, 3), behind(element), parseFloat(style.fontSize)]);
    }
}
return found;
"""


class Page(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp()
        log = os.path.join(cls.folder, "qv7log")
        with open(log, "w", encoding="utf-8") as file:
            file.write(sample_log())
        cls.page = os.path.join(cls.folder, "report.html")
        output = subprocess.run(
            [launchlist, "report", "--json", "--html", cls.page, log],
            stdout=subprocess.PIPE,
            check=True,
        ).stdout
        cls.report = json.loads(output)
        options = Options()
        for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--hide-scrollbars"):
            options.add_argument(argument)
        options.binary_location = shutil.which("chromium")
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        cls.browser = webdriver.Chrome(
            options=options, service=Service(shutil.which("chromedriver"))
        )

    @classmethod
    def tearDownClass(cls):
        cls.browser.quit()
        shutil.rmtree(cls.folder)

    def open(self, width, height, scheme):
        self.browser.execute_cdp_cmd(
            "Emulation.setDeviceMetricsOverride",
            {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": width < 500},
        )
        self.browser.execute_cdp_cmd(
            "Emulation.setEmulatedMedia",
            {"features": [{"name": "prefers-color-scheme", "value": scheme}]},
        )
        self.browser.get("file://" + self.page)

    def script(self, text):
        return self.browser.execute_script(text)

    def in_every_view(self, check):
        for name, *view in VIEWS:
            with self.subTest(name):
                self.open(*view)
                check()

    def test_no_console_message_and_nothing_loaded(self):
        def check():
            self.assertEqual([], self.browser.get_log("browser"))
            self.assertEqual([], self.script("return performance.getEntriesByType('resource')"))
            self.assertEqual(
                0, self.script("return document.querySelectorAll('script, img').length")
            )
            self.assertEqual("Launch report", self.browser.title)

        self.in_every_view(check)

    def test_the_figures_are_those_of_the_json(self):
        def check():
            cards = self.script(
                "return [...document.querySelectorAll('article')].map(card => Object.fromEntries("
                "[...card.querySelectorAll('data')].map(data => [data.className, data.value])))"
            )
            self.assertEqual(5, len(cards))
            for card, told in zip(cards, self.report["items"]):
                expected = {key: told[key] for key in FIGURES}
                expected = {
                    key: "null" if value is None else str(value) for key, value in expected.items()
                }
                self.assertEqual(expected, card)

        self.in_every_view(check)

    def test_what_is_shown_is_what_the_figures_say(self):
        self.open(*VIEWS[0][1:])
        shown = self.script(
            "return [...document.querySelectorAll('article data')].map(data => [data.value, data.innerText])"
        )
        for value, text in shown:
            if value.isdigit() and text.isdigit():
                self.assertEqual(value, text)
            elif value.isdigit() and text.endswith(" s") and "min" not in text:
                self.assertAlmostEqual(int(value) / 1000, float(text[:-2]), delta=0.051)
            elif value == "null":
                self.assertIn(text, ("unknown", "-"))

    def test_names_are_text(self):
        self.open(*VIEWS[0][1:])
        names = self.script("return [...document.querySelectorAll('h3')].map(h => h.textContent)")
        self.assertEqual(["agent", "crasher", "missing"], names[:3])
        self.assertTrue(names[3].startswith("\\x1b[31m\\u{202e}</style><script>"), names[3])

    def test_it_fits_its_window(self):
        def check():
            wide, window = self.script("return [document.documentElement.scrollWidth, innerWidth]")
            self.assertLessEqual(wide, window)
            for bar in self.script(
                "return [...document.querySelectorAll('.bar')].map(b => b.getBoundingClientRect().width)"
            ):
                self.assertGreater(bar, 0.6 * window)

        self.in_every_view(check)

    def test_every_text_can_be_read(self):
        def check():
            texts = self.script(TEXTS)
            self.assertGreater(len(texts), 50)
            for text, color, behind, size in texts:
                self.assertGreaterEqual(contrast(color, behind), LEAST_CONTRAST, text)
                self.assertGreaterEqual(size, LEAST_FONT_SIZE, text)

        self.in_every_view(check)

    def test_dark_is_dark_and_light_is_light(self):
        color = "return getComputedStyle(document.body).backgroundColor.match(/\\d+/g).map(Number)"
        for name, *view in VIEWS:
            self.open(*view)
            self.assertEqual(view[2] == "light", sum(self.script(color)) > 3 * 128, name)

    def test_the_keyboard_reaches_every_item(self):
        self.open(*VIEWS[0][1:])

        def press(key):
            ActionChains(self.browser).send_keys(key).perform()
            return self.script(
                "const e = document.activeElement; const r = e.getBoundingClientRect();"
                "return [e.getAttribute('href'), r.left >= 0 && r.width > 0]"
            )

        self.assertEqual(["#items", True], press(Keys.TAB))
        for number in range(len(self.report["items"])):
            self.assertEqual([f"#item-{number}", True], press(Keys.TAB))
        press(Keys.ENTER)
        last = len(self.report["items"]) - 1
        self.assertEqual(f"#item-{last}", self.script("return location.hash"))
        self.assertTrue(
            self.script(
                f"const r = document.getElementById('item-{last}').getBoundingClientRect();"
                "return r.top >= 0 && r.top < innerHeight"
            )
        )

    def test_a_screen_reader_is_told_all(self):
        self.open(*VIEWS[0][1:])
        nodes = self.browser.execute_cdp_cmd("Accessibility.getFullAXTree", {})["nodes"]
        named = [
            (node["role"]["value"], node.get("name", {}).get("value", ""))
            for node in nodes
            if not node["ignored"]
        ]
        bars = [name for role, name in named if role in ("image", "img") and ": now " in name]
        self.assertEqual(len(self.report["items"]), len(bars))
        self.assertIn("crashes in a loop", bars[1])
        headings = [name for role, name in named if role == "heading"]
        self.assertEqual(["Launch report", "Timeline", "Items"], headings[:3])
        self.assertIn("main", [role for role, _ in named])
        self.assertEqual("en", self.script("return document.documentElement.lang"))


if __name__ == "__main__":
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    launchlist = os.path.abspath(sys.argv.pop(1))
    unittest.main(verbosity=2)
