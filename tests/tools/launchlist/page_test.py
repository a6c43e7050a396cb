"""Tests the report's page in headless Chromium: on wide screen and phone, light and dark.

    page_test.py LAUNCHLIST

The page must cause no console message, load nothing, show the figures of `report --json`, and be
readable and usable with keyboard and screen reader. Needs chromium, chromedriver and Python's
selenium.
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

# The figures that the page shows, in their order, by their names in the JSON.
FIGURES = (
    "starts ends crashes restarts most_restarts_a_minute shortest_run_ms median_run_ms "
    "longest_run_ms state"
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


def printable(name):
    """A name in the sample log as the page shows it."""
    return name.replace("\x1b", "\\x1b").replace("\u202e", "\\u{202e}")


def contrast(first, second):
    """The contrast of two colours, as the accessibility guidelines define it."""

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
        cls.directory = tempfile.mkdtemp()
        log = os.path.join(cls.directory, "qv7log")
        with open(log, "w", encoding="utf-8") as file:
            file.write(sample_log())
        cls.page = os.path.join(cls.directory, "report.html")
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
        shutil.rmtree(cls.directory)

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

    def script(self, text, *arguments):
        return self.browser.execute_script(text, *arguments)

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
                1, self.script("return document.querySelectorAll('script, img').length")
            )
            self.assertEqual("Launch report", self.browser.title)

        self.in_every_view(check)

    def names(self):
        return self.script(
            "return [...document.querySelectorAll('article')].filter(a => a.checkVisibility()).map("
            "a => (l => l.title || l.textContent)(a.querySelector('h3 a')))"
        )

    def open_healthy(self):
        self.script("document.querySelectorAll('details').forEach(d => { d.open = true; })")

    def test_the_figures_are_those_of_the_json(self):
        items = {printable(entry["name"]): entry for entry in self.report["items"]}

        def check():
            cards = self.script(
                "return [...document.querySelectorAll('article')].map(card => ["
                "(l => l.title || l.textContent)(card.querySelector('h3 a')), "
                "[...card.querySelectorAll('data')].map(data => data.value)])"
            )
            self.assertEqual(len(items), len(cards))
            for name, values in cards:
                entry = items[name]
                expected = ["null" if entry[key] is None else str(entry[key]) for key in FIGURES]
                self.assertEqual(expected, values)

        self.in_every_view(check)

    def test_what_is_shown_is_what_the_figures_say(self):
        self.open(*VIEWS[0][1:])
        shown = self.script(
            "return [...document.querySelectorAll('article data')].map(data => [data.value, data.textContent])"
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
        self.open_healthy()
        names = self.names()
        self.assertIn("crasher", names)
        self.assertTrue(
            any(name.startswith("\\x1b[31m\\u{202e}</style><script>") for name in names)
        )

    def test_the_worst_comes_first(self):
        self.open(*VIEWS[0][1:])
        first = self.script("return document.querySelector('.worst li').innerText")
        self.assertIn("crasher", first)
        self.assertIn("crashes repeatedly: 30 crashes", first)
        self.assertEqual("crasher", self.names()[0])
        self.assertNotIn("agent", self.names())  # Healthy items are folded.

    def test_search_and_sorting(self):
        self.open(*VIEWS[0][1:])
        field = self.browser.find_element("id", "search")
        field.send_keys("AGE")
        self.assertEqual(["agent"], self.names())
        for _ in "AGE":
            field.send_keys(Keys.BACKSPACE)
        self.open_healthy()
        self.browser.find_element("css selector", "#sort option[value=name]").click()
        names = self.script(
            "return [...document.querySelector('.items').children].map(a => "
            "(l => l.title || l.textContent)(a.querySelector('h3 a')))"
        )
        collator = self.script("return arguments[0].sort((a, b) => a.localeCompare(b))", names)
        self.assertEqual(collator, names)

    def test_items_of_unknown_median_come_last_when_sorted_by_it(self):
        self.open(*VIEWS[0][1:])
        self.browser.find_element("css selector", "#sort option[value=median]").click()
        for medians in self.script(
            "return [...document.querySelectorAll('.items')].map(list => "
            "[...list.querySelectorAll('article')].map(card => [...card.querySelectorAll('li')]"
            ".find(li => li.textContent.startsWith('median')).querySelector('data').value))"
        ):
            known = [int(median) for median in medians if median != "null"]
            self.assertEqual(sorted(known), known)
            self.assertEqual([str(median) for median in known], medians[: len(known)])
        self.assertIn("null", medians)

    def test_a_tip_across_midnight_names_both_days(self):
        log = os.path.join(self.directory, "days")
        page = os.path.join(self.directory, "days.html")
        with open(log, "w", encoding="utf-8") as file:
            # A cell of the bar is an hour.
            for moment in ("20T12:00", "20T23:30", "25T12:00"):
                file.write(
                    f"2026-11-{moment}:00.000Z ERROR    launcher[100] [LAUNCHER  ] "
                    "a 200 is killed. ret = 200, status = 0\n"
                )
        subprocess.run(
            [launchlist, "report", "--html", page, log], stdout=subprocess.DEVNULL, check=True
        )
        self.browser.get("file://" + page)
        self.script("arguments[0].focus()", self.browser.find_element("css selector", ".bar"))
        tip = self.browser.find_element("id", "tip")
        self.assertIn("2026-11-20 12:00:00 to 13:00:00 UTC: ", tip.text)
        ActionChains(self.browser).send_keys(Keys.ARROW_RIGHT).perform()
        self.assertIn("2026-11-20 23:00:00 to 2026-11-21 00:00:00 UTC: ", tip.text)

    def test_a_bar_names_count_and_causes_on_hover_and_focus(self):
        self.open(*VIEWS[0][1:])
        bar = self.browser.find_element("css selector", "article .bar")
        self.script("arguments[0].focus()", bar)
        tip = self.browser.find_element("id", "tip")
        self.assertRegex(tip.text, r"UTC: \d+ events?: (exit status 3|killed by SIGSEGV)")
        focused = tip.text
        ActionChains(self.browser).send_keys(Keys.ARROW_RIGHT).perform()
        self.assertNotEqual(focused, tip.text)
        counts = self.script(
            "return arguments[0].dataset.m.split(/[;,]/).reduce("
            "(sum, n) => sum + (Number(n) || 0), 0)",
            bar,
        )
        self.assertEqual(30, counts)
        ActionChains(self.browser).send_keys(Keys.ESCAPE).perform()
        self.assertFalse(tip.is_displayed())
        size = bar.size
        ActionChains(self.browser).move_to_element_with_offset(
            bar, 3 - size["width"] // 2, 0
        ).perform()
        self.assertTrue(tip.is_displayed())

    def test_without_its_script_it_shows_everything(self):
        self.browser.execute_cdp_cmd("Emulation.setScriptExecutionDisabled", {"value": True})
        try:
            self.open(*VIEWS[0][1:])
            text = self.browser.find_element("tag name", "body").text
            self.assertIn("crashes repeatedly: 30 crashes", text)
            self.assertIn("3 healthy items", text)
            self.assertFalse(self.browser.find_element("id", "tools").is_displayed())
        finally:
            self.browser.execute_cdp_cmd("Emulation.setScriptExecutionDisabled", {"value": False})

    def test_paper_shows_what_is_folded(self):
        self.open(*VIEWS[0][1:])
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"media": "print"})
        try:
            self.assertIn("agent", self.names())
            self.assertFalse(self.browser.find_element("id", "tools").is_displayed())
        finally:
            self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"media": ""})

    def test_it_fits_its_window(self):
        def check():
            wide, window = self.script("return [document.documentElement.scrollWidth, innerWidth]")
            self.assertLessEqual(wide, window)
            for bar in self.script(
                "return [...document.querySelectorAll('.bar')].filter(b => b.checkVisibility())"
                ".map(b => b.getBoundingClientRect().width)"
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
        self.open_healthy()
        reached = set()
        for _ in range(60):
            ActionChains(self.browser).send_keys(Keys.TAB).perform()
            reached.add(
                self.script(
                    "const e = document.activeElement; const a = e.closest('article');"
                    "return a ? a.id + (e.matches('.bar') ? ' bar' : '') : e.getAttribute('href')"
                )
            )
        self.assertIn("#items", reached)
        for number in range(len(self.report["items"])):
            self.assertIn(f"i{number}", reached)
            self.assertIn(f"i{number} bar", reached)

    def test_a_screen_reader_reads_every_item(self):
        self.open(*VIEWS[0][1:])
        self.open_healthy()
        nodes = self.browser.execute_cdp_cmd("Accessibility.getFullAXTree", {})["nodes"]
        named = [
            (node["role"]["value"], node.get("name", {}).get("value", ""))
            for node in nodes
            if not node["ignored"]
        ]
        bars = [name for role, name in named if name.startswith("timeline: at the end ")]
        self.assertEqual(len(self.report["items"]), len(bars))
        self.assertIn("30 crashes", bars[0])
        headings = [name for role, name in named if role == "heading"]
        self.assertEqual("Launch report", headings[0])
        for heading in ("Problems", "Launchers", "Items", "Log"):
            self.assertIn(heading, headings)
        self.assertIn("main", [role for role, _ in named])
        self.assertEqual("en", self.script("return document.documentElement.lang"))


if __name__ == "__main__":
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    launchlist = os.path.abspath(sys.argv.pop(1))
    unittest.main(verbosity=2)
