"""Searches the sources for phrases that must not return.

    phrases.py              checks every file of the repository
    phrases.py --self-test  checks that the check works

scripts/lib/phrases.txt lists the phrases with better wording. A line that contains "phrase: ok" and
a reason is not checked, nor are binary files, pictures, lists of hashes and inputs of tests.
"""

import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

PHRASES = pathlib.Path(__file__).parents[1] / "lib" / "phrases.txt"
SKIPPED = re.compile(
    r"(^|/)(seeds|lists|requirements|images|charts)/|tests/schema/published/|scripts/(lib/phrases\.txt|check/phrases\.py)$|\.(png|svg)$"
)
PERMITTED = "phrase: ok"


class Phrase:
    def __init__(self, line):
        pattern, self.better = line.split(" -> ")
        self.pattern = re.compile(pattern, re.IGNORECASE)


def read_phrases(text):
    lines = [line for line in text.splitlines() if line and not line.startswith("#")]
    return [Phrase(line) for line in lines]


# What begins a line of prose without being part of it: a comment's mark.
MARGIN = re.compile(r"^\s*(//+|#+|\*|\.\\\")?\s*")


def findings(text, phrases):
    """Yields the line number, the text found and its replacement. A phrase may span two lines."""
    lines = text.splitlines()
    for number, line in enumerate(lines, 1):
        following = lines[number] if number < len(lines) else ""
        if PERMITTED in line:
            continue
        joined = f"{line.rstrip()} {MARGIN.sub('', following)}"
        for phrase in phrases:
            for match in phrase.pattern.finditer(joined):
                # One that begins in the following line is found there.
                if match.start() <= len(line.rstrip()):
                    yield number, match[0], phrase.better


def check(root, phrases):
    """Prints every finding in the files that git tracks; returns how many there are."""
    count = 0
    tracked = subprocess.run(
        ["git", "-C", root, "ls-files", "-z"], check=True, stdout=subprocess.PIPE, text=True
    ).stdout
    for path in filter(None, tracked.split("\0")):
        if SKIPPED.search(path) or not (root / path).is_file():
            continue
        try:
            text = (root / path).read_text(encoding="utf-8")
        except UnicodeDecodeError:
            continue
        for number, found, better in findings(text, phrases):
            print(f'{path}:{number}: "{found}"; write: {better}')
            count += 1
    return count


class SelfTest(unittest.TestCase):
    PHRASES = read_phrases(
        "# a comment\n\n\\bstart anew\\b -> restart\n(?<!old )\\bfoo\\b -> bar\n"
    )

    def found(self, text):
        return list(findings(text, self.PHRASES))

    def test_reports_line_text_and_replacement(self):
        self.assertEqual([(2, "Start anew", "restart")], self.found("one\n  Start anew.\n"))

    def test_words_are_whole_and_exceptions_hold(self):
        self.assertEqual([], self.found("food, old foo, restart anew\n"))

    def test_a_phrase_may_span_two_lines_of_a_comment(self):
        for margin in ("", "// ", "# ", '.\\" ', "    "):
            with self.subTest(margin):
                text = f"{margin}they start\n{margin}anew and end\n"
                self.assertEqual([(1, "start anew", "restart")], self.found(text))

    def test_a_line_may_be_permitted(self):
        self.assertEqual([], self.found("foo  # phrase: ok, the name of a member\n"))

    def test_reads_tracked_files_except_the_skipped_ones(self):
        with tempfile.TemporaryDirectory() as directory:
            root = pathlib.Path(directory)
            git = ["git", "-C", root, "-c", "init.defaultBranch=main"]
            subprocess.run([*git, "init", "-q"], check=True)
            for name in ("a.md", "tests/seeds/b", "c.svg", "untracked.md"):
                (root / name).parent.mkdir(parents=True, exist_ok=True)
                (root / name).write_text("foo\n", encoding="utf-8")
            (root / "binary").write_bytes(b"foo\xff\n")
            subprocess.run([*git, "add", "a.md", "tests", "c.svg", "binary"], check=True)
            self.assertEqual(1, check(root, self.PHRASES))

    def test_the_list_itself_can_be_read(self):
        phrases = read_phrases(PHRASES.read_text(encoding="utf-8"))
        self.assertGreater(len(phrases), 10)
        text = "The list is no object. Start\nanew. It goes on for ever.\n"
        self.assertEqual(4, len(list(findings(text, phrases))))


def main():
    if sys.argv[1:] == ["--self-test"]:
        unittest.main(argv=[sys.argv[0]], verbosity=0, buffer=True)
    phrases = read_phrases(PHRASES.read_text(encoding="utf-8"))
    sys.exit(1 if check(pathlib.Path.cwd(), phrases) else 0)


if __name__ == "__main__":
    main()
