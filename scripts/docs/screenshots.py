"""Creates the pictures of the documentation: terminal output of launchlist, and its HTML page.

screenshots.py LAUNCHLIST DIRECTORY
"""

import fcntl
import os
import pty
import shutil
import struct
import subprocess
import sys
import tempfile
import termios

from rich.console import Console
from rich.terminal_theme import MONOKAI
from rich.text import Text
from selenium import webdriver
from selenium.webdriver.chrome.options import Options
from selenium.webdriver.chrome.service import Service

COLUMNS = 98

LIST = """{
  "0": {
    "name": "sync-agent",
    "program": "/bin/sh",
    "argc": "2",
    "args": { "0": "-c", "1": "exec sleep 60" }
  },
  "1": { "name": "indexer", "Program": "/bin/sh" },
  "3": { "name": "thumbnailer", "program": "/bin/sh" }
}
"""

# Unlike rich's own template, this one has no title bar and loads no font.
SVG = """<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}">
<style>
.{unique_id}-matrix {{
    font-family: ui-monospace, Menlo, "DejaVu Sans Mono", monospace;
    font-size: {char_height}px; line-height: {line_height}px; font-variant-east-asian: full-width;
}}
{styles}
</style>
<defs><clipPath id="{unique_id}-clip-terminal">
<rect x="0" y="0" width="{terminal_width}" height="{terminal_height}" /></clipPath>
{lines}
</defs>
<rect fill="#1b1d1e" width="100%" height="100%" rx="8" />
<g transform="translate({terminal_x}, 24)" clip-path="url(#{unique_id}-clip-terminal)">
{backgrounds}
<g class="{unique_id}-matrix">
{matrix}
</g>
</g>
</svg>
"""


def sample_log():
    """A log of eight minutes with four helpers: one keeps running, one is killed once, one crashes
    repeatedly for a while, one cannot be executed."""
    records = []

    def add(milliseconds, level, process, text):
        minutes, rest = divmod(milliseconds, 60000)
        time = f"2026-11-21T09:{minutes:02}:{rest // 1000:02}.{rest % 1000:03}Z"
        records.append(
            (milliseconds, f"{time} {level:8} launcher[{process}] [LAUNCHER  ] {text}\n")
        )

    def start(milliseconds, name, process=410):
        add(milliseconds, "DEBUG", process, f"Start to fork {name}")

    def end(milliseconds, name, child, wait_status):
        text = f"{name} {child} is killed. ret = {child}, status = {wait_status}"
        add(milliseconds, "ERROR", 410, text)

    start(0, "sync-agent")
    start(1, "indexer")
    end(191000, "indexer", 412, 9)
    start(191050, "indexer")
    start(2, "thumbnailer")
    time = 60000
    for i in range(48):
        end(time, "thumbnailer", 500 + i, 139 if i % 4 == 0 else 768)
        start(time + 50, "thumbnailer")
        time += 700 + i * 30
    end(420000, "thumbnailer", 600, 0)
    start(420050, "thumbnailer")
    start(3, "uploader")
    for i in range(9590):
        start(53 + 50 * i, "uploader", 10000 + i)
    end(480000, "sync-agent", 411, 9)
    return "".join(text for _, text in sorted(records))


def run_on_terminal(arguments, directory):
    """The output of a program on a terminal that is COLUMNS wide."""
    controller, terminal = pty.openpty()
    fcntl.ioctl(terminal, termios.TIOCSWINSZ, struct.pack("HHHH", 40, COLUMNS, 0, 0))
    process = subprocess.Popen(arguments, stdout=terminal, cwd=directory)
    os.close(terminal)
    output = b""
    while True:
        try:
            chunk = os.read(controller, 4096)
        except OSError:  # on Linux, when the program has closed the terminal
            break
        if not chunk:
            break
        output += chunk
    os.close(controller)
    process.wait()
    return output.decode().replace("\r\n", "\n")


def save_terminal(name, arguments, directory, pictures):
    with open(os.devnull, "w", encoding="utf-8") as null:
        console = Console(record=True, width=COLUMNS, file=null, force_terminal=True)
        shown = "launchlist " + " ".join(arguments[1:])
        console.print(
            Text.from_ansi(f"\x1b[1m$ {shown}\x1b[0m\n" + run_on_terminal(arguments, directory))
        )
        path = os.path.join(pictures, name + ".svg")
        console.save_svg(path, theme=MONOKAI, code_format=SVG, title="", clear=False)


def save_page(page, pictures):
    options = Options()
    for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--hide-scrollbars"):
        options.add_argument(argument)
    options.binary_location = shutil.which("chromium")
    browser = webdriver.Chrome(options=options, service=Service(shutil.which("chromedriver")))
    try:
        for name, width, height, scheme in (
            ("report-light", 1100, 760, "light"),
            ("report-phone-dark", 390, 760, "dark"),
        ):
            size = {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": width < 500}
            scheme = {"features": [{"name": "prefers-color-scheme", "value": scheme}]}
            browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", size)
            browser.execute_cdp_cmd("Emulation.setEmulatedMedia", scheme)
            browser.get("file://" + page)
            browser.save_screenshot(os.path.join(pictures, name + ".png"))
    finally:
        browser.quit()


def main():
    launchlist, pictures = map(os.path.abspath, sys.argv[1:])
    os.makedirs(pictures, exist_ok=True)
    with tempfile.TemporaryDirectory() as directory:
        for name, text in (("helpers.json", LIST), ("qv7log", sample_log())):
            with open(os.path.join(directory, name), "w", encoding="utf-8") as file:
                file.write(text)
        report = [launchlist, "report", "--html", "report.html", "qv7log"]
        save_terminal("check", [launchlist, "check", "helpers.json"], directory, pictures)
        save_terminal("report", report, directory, pictures)
        save_page(os.path.join(directory, "report.html"), pictures)


if __name__ == "__main__":
    main()
