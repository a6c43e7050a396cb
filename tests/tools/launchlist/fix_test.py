"""Tests `launchlist fix` and `launchlist new` on generated lists and on files.

    fix_test.py LAUNCHLIST

Most tests generate pairs of texts: a list with mistakes, and the same list as `fix` must correct it,
byte for byte. KESTRANE_LISTS sets the number of lists, KESTRANE_SEED adds to the seeds.
"""

import json
import os
import pathlib
import random
import re
import shutil
import stat
import subprocess
import sys
import tempfile
import unittest

HERE = pathlib.Path(__file__).resolve().parent
LISTS = int(os.environ.get("KESTRANE_LISTS", "40"))
SEED = int(os.environ.get("KESTRANE_SEED", "0"))

# Findings that no fixed list has, whatever else is wrong with it.
ALWAYS_CORRECTED = {"byte-order-mark", "duplicate-member"}


class Layout:
    """How a generated list is laid out."""

    def __init__(self, rng):
        self.rng = rng
        self.has_lines = rng.random() < 0.7
        self.line_end = rng.choice(["\n", "\n", "\r\n"])
        self.unit = rng.choice(["  ", "    ", "\t", ""])

    def before_member(self, depth):
        return self.line_end + self.unit * depth if self.has_lines else " "

    def comment(self):
        """A comment or nothing, followed by nothing that matters."""
        kind = self.rng.random()
        if kind < 0.1:
            return self.rng.choice([" /* item 01 */ ", ' /* \u00e9, "2" */'])
        if kind < 0.15 and self.has_lines:
            return " // the items 0 to 7" + self.line_end
        return ""


class Pair:
    """A text with mistakes and its correction, written at the same time."""

    def __init__(self):
        self.broken = ""
        self.fixed = ""

    def both(self, text):
        self.broken += text
        self.fixed += text

    def change(self, broken, fixed):
        self.broken += broken
        self.fixed += fixed


ARGUMENTS = [
    "",
    "x",
    "two words",
    "it's",
    "$HOME",
    "\u00e9",
    'a "quote"',
    "back\\slash",
    7,
    -1.5,
    True,
]
SPELLINGS = ["0{}", "00{}", "+{}", " {}", "{}\t"]


def spelled(rng, number):
    """Another spelling of a number as the name of a member."""
    return json.dumps(rng.choice(SPELLINGS).format(number))


def earlier_member(rng, pair, layout, name):
    """Sometimes adds a member that the one after it replaces."""
    if rng.random() < 0.08:
        value = rng.choice(["9", '"old"', "null", '{"0": "x"}', '[\n"y"]'])
        pair.change(f"{name} : {value},", "")
        if layout.has_lines:
            pair.change(layout.before_member(2), "")
        else:
            pair.change(rng.choice([" ", "", "  "]), "")


def write_arguments(rng, pair, layout, arguments):
    texts = [json.dumps(argument, ensure_ascii=rng.random() < 0.5) for argument in arguments]
    if rng.random() < 0.3:
        pair.change("[", "{")
        for number, text in enumerate(texts):
            pair.both("," if number else "")
            pair.both(" " + layout.comment() if layout.has_lines else " ")
            pair.change(text, f'"{number}": {text}')
        pair.change("]", "}")
        return
    pair.both("{")
    order = list(enumerate(texts))
    rng.shuffle(order)
    for place, (number, text) in enumerate(order):
        pair.both(", " if place else " ")
        name = spelled(rng, number) if rng.random() < 0.1 else f'"{number}"'
        pair.change(name, f'"{number}"')
        pair.both(f":{rng.choice(['', ' '])}{text}{layout.comment()}")
    pair.both("}")


def write_count(rng, pair, layout, count):
    """The member "argc" before "args"; sometimes it is missing or wrong."""
    kind = rng.random()
    if kind < 0.15 and count > 0:
        pair.change("", f'"argc": {count},{layout.before_member(2)}')
        return
    wrong = [count + 1, 0, 61_439, f'"{count}"', f'"0{count}"', '"7"', "null", "true", f"{count}.0"]
    earlier_member(rng, pair, layout, '"argc"')
    pair.both('"argc": ')
    pair.change(str(rng.choice(wrong) if kind < 0.4 else count), str(count))
    pair.both("," + layout.before_member(2))


def write_item(rng, pair, layout, number):
    pair.both("{" + layout.comment())
    for name, value in (("name", f"item {number}"), ("program", "/bin/sh")):
        pair.both(layout.before_member(2))
        earlier_member(rng, pair, layout, f'"{name}"')
        pair.both(f'"{name}": {json.dumps(value)}{layout.comment()}')
        pair.both("," if name == "name" else "")
    if rng.random() < 0.6:
        arguments = rng.choices(ARGUMENTS, k=rng.randrange(5))
        pair.both("," + layout.before_member(2))
        write_count(rng, pair, layout, len(arguments))
        earlier_member(rng, pair, layout, '"args"')
        pair.both('"args" :')
        write_arguments(rng, pair, layout, arguments)
    pair.both(layout.before_member(1) + "}")


def generate(rng):
    """The bytes of a list with mistakes, and those of its correction."""
    layout = Layout(rng)
    pair = Pair()
    count = rng.randrange(1, 7)
    numbers = sorted(rng.sample(range(3 * count), count)) if rng.random() < 0.4 else range(count)
    order = list(enumerate(numbers))
    rng.shuffle(order)
    pair.both(layout.comment() + "{")
    if rng.random() < 0.3:
        pair.both(layout.before_member(1) + '"$schema": "launch-list.schema.json",')
    for place, (number, written) in enumerate(order):
        pair.both(layout.comment() + ("," if place else "") + layout.before_member(1))
        name = spelled(rng, written) if rng.random() < 0.15 else f'"{written}"'
        pair.change(name, f'"{number}"')
        pair.both(":" + layout.comment())
        write_item(rng, pair, layout, number)
    pair.both(layout.before_member(0) + "}" + rng.choice(["", layout.line_end, " // end"]))
    encoding = rng.choice(
        ["utf-8"] * 12
        + ["utf-8-sig", "utf-16", "utf-16-le", "utf-16-be", "utf-32", "utf-32-le", "utf-32-be"]
    )
    return pair.broken.encode(encoding), pair.fixed.encode()


# What an arbitrary list may contain where a number, a value or an argument is expected.
NUMBERS = ["0", "0", "1", "1", "2", "2", "3", "5", "01", "002", "+1", " 2", "3\t", "1.5", "-1", "x"]
SCALARS = ["x", "", 7, -1.5, True, False]
OTHERS = [None, [], {}, [1], {"0": "x"}]
COUNTS = [0, 1, 1, 2, 2, 3, 61_438, 61_439, 1.9, -1, -2, None, True, False, 2**31, 2**64]
COUNTS += ["0", "1", "2", "02", "+2", " 2 ", "61439", "two", "", "-1", "1.0", [], {}, [2]]


def arbitrary_arguments(rng):
    """The value of "args", as text."""
    kind = rng.random()
    values = [
        json.dumps(rng.choice(SCALARS if rng.random() < 0.9 else OTHERS))
        for _ in range(rng.randrange(4))
    ]
    if kind < 0.25:
        return "[" + ", ".join(values) + "]"
    if kind < 0.3:
        return json.dumps(rng.choice([None, "x", 7, True]))
    numbers = list(map(str, range(len(values)))) if kind < 0.6 else rng.choices(NUMBERS, k=4)
    members = [f"{json.dumps(name)}: {value}" for name, value in zip(numbers, values)]
    rng.shuffle(members)
    return "{" + ", ".join(members) + "}"


def arbitrary_item(rng):
    if rng.random() < 0.08:
        return json.dumps(rng.choice([None, 7, "text", [], True]))
    members = []
    for name, value in (
        ("name", lambda: json.dumps(rng.choice(["a", "b", "c", "d", "", 7, None]))),
        ("program", lambda: json.dumps(rng.choice(["/bin/sh", "/bin/sh", "/nowhere", "", 7]))),
        ("argc", lambda: json.dumps(rng.choice(COUNTS))),
        ("args", lambda: arbitrary_arguments(rng)),
        ("x", lambda: '{"x": 1, "x": 2}'),
    ):
        for _ in range(rng.choice([1, 1, 1, 2] if name != "x" else [0, 0, 0, 2])):
            if rng.random() < 0.85:
                members.append(f'"{name}":{rng.choice(["", " "])}{value()}')
    rng.shuffle(members)
    separator = rng.choice([", ", ",\n    ", " /* , */, "])
    return "{" + separator.join(members) + "}"


def arbitrary(rng):
    """A list in which anything may be wrong but its syntax."""
    names = rng.choices(NUMBERS, k=rng.randrange(6))
    if rng.random() < 0.5:
        names = list(map(str, range(rng.randrange(1, 4)))) + rng.choices(
            NUMBERS, k=rng.randrange(2)
        )
    members = [f"{json.dumps(name)}: {arbitrary_item(rng)}" for name in names]
    for _ in range(rng.choice([0, 0, 0, 1, 2])):
        members.append('"$schema": "x"')
    rng.shuffle(members)
    return ("{" + rng.choice([", ", ",\n"]).join(members) + "}").encode()


class Members(list):
    """The members of an object, those that a later one replaces included."""

    def last(self):
        return dict(self)


def parse(data):
    """A list that the launcher can read."""
    text = data.split(b"\0")[0].decode("latin-1")
    # A comment becomes a blank; a string, which may contain "//", stays.
    tokens = r'"(?:[^"\\]|\\.)*"|/\*.*?\*/|//[^\r\n]*'
    text = re.sub(
        tokens, lambda token: token[0] if token[0][0] == '"' else " ", text, flags=re.DOTALL
    )
    # A number stays text, because it counts how it is written.
    decoder = json.JSONDecoder(
        strict=False, object_pairs_hook=Members, parse_int=Number, parse_float=Number
    )
    return decoder.raw_decode(text.lstrip())[0]


def is_plain(name):
    return number_meant(name) == name


class Number(str):
    """A number as it is written."""


def is_scalar(value):
    return isinstance(value, (str, bool))


def number_meant(name):
    """The number that a member's name can only stand for, or None."""
    digits = re.fullmatch(r"[ \t]*\+?([0-9]+)[ \t]*", name)
    return str(int(digits[1])) if digits else None


def mutate(rng, data):
    """Changes a list at random, so that anything can be wrong with it."""
    for _ in range(rng.randrange(4)):
        at = rng.randrange(len(data) + 1)
        data = rng.choice(
            [
                lambda data, at: data[:at] + data[at + 1 :],
                lambda data, at: (
                    data[:at] + rng.choice([b"0", b'"', b",", b"{", b"\0"]) + data[at:]
                ),
                lambda data, at: data.replace(b'"0"', rng.choice([b'"1"', b'"01"', b'"5"']), 1),
                lambda data, at: data.replace(b'"name"', b'"program"', 1),
                lambda data, at: data.replace(b'"a"', rng.choice([b"[]", b"null", b'"b"']), 1),
            ]
        )(data, at)
    return data


def run(*arguments, data=b"", statuses=(0, 1, 2)):
    result = subprocess.run(
        [LAUNCHLIST, *map(str, arguments)], input=data, capture_output=True, check=False
    )
    if result.returncode not in statuses:
        raise AssertionError(f"{arguments}: {result.returncode}: {result.stderr!r}")
    return result


def check(data):
    (checked,) = json.loads(run("check", "--json", "-", data=data).stdout)["lists"]
    return checked


def checked_files(paths):
    """The kinds and paths of the findings of each list."""
    checked = json.loads(run("check", "--json", *paths).stdout)["lists"]
    return [
        {(finding["kind"], finding["path"]) for finding in entry["findings"]} for entry in checked
    ]


def explain(data):
    explained = json.loads(run("explain", "--json", "-", data=data).stdout)
    return explained["items"], explained["outcomes"]


def may_end(outcomes):
    return any(
        outcome["outcome"] != "keeps-running" and outcome["condition"] != "process-limit"
        for outcome in outcomes
    )


@unittest.skipIf(shutil.which("patch") is None, "patch is not installed")
class FixTest(unittest.TestCase):
    def setUp(self):
        # In memory where that is possible: every replaced file is synchronized with its disk.
        memory = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
        directory = tempfile.TemporaryDirectory(dir=memory)
        self.addCleanup(directory.cleanup)
        self.directory = pathlib.Path(directory.name)
        self.list = self.directory / "list.json"

    def fix(self, data):
        """The corrected list and the result; the difference must lead to the same list."""
        self.list.write_bytes(data)
        result = run("fix", "--write", self.list)
        fixed = self.list.read_bytes()
        self.assertEqual(data == fixed, result.stdout == b"")
        self.assertEqual([self.list], list(self.directory.iterdir()))
        self.assertEqual(fixed, self.patched(data, result.stdout))
        return fixed, result

    def patched(self, data, difference):
        if not difference:
            return data
        with tempfile.TemporaryDirectory() as directory:
            original = pathlib.Path(directory) / "original"
            original.write_bytes(data)
            result = subprocess.run(
                ["patch", "--binary", "--silent", original],
                input=difference,
                capture_output=True,
                check=False,
            )
            self.assertEqual((0, b"", b""), (result.returncode, result.stdout, result.stderr))
            return original.read_bytes() if original.exists() else b""


class GeneratedLists(FixTest):
    def test_a_list_with_mistakes_becomes_the_intended_one(self):
        changed = 0
        for number in range(LISTS):
            rng = random.Random(SEED + number)
            broken, expected = generate(rng)
            with self.subTest(seed=SEED + number, broken=broken):
                fixed, result = self.fix(broken)
                self.assertEqual(expected, fixed)
                self.assertEqual(0, result.returncode, result.stderr)
                self.assertEqual(f"{self.list}: no mistakes\n".encode(), result.stderr)
                self.assertEqual(b"", run("fix", "-", data=fixed).stdout)
                self.assertEqual([], check(fixed)["findings"])
                changed += broken != fixed
        self.assertGreater(changed, LISTS / 2)

    def test_whatever_is_wrong_with_a_list_fixing_it_is_safe(self):
        lists = sorted((HERE / "lists").glob("*.json"))
        self.assertGreater(len(lists), 100)
        changed = 0
        rng = random.Random(SEED)
        mutated = [mutate(rng, rng.choice(lists).read_bytes()) for _ in range(LISTS)]
        for data in [path.read_bytes() for path in lists] + mutated:
            with self.subTest(data=data[:1000]):
                fixed, result = self.fix(data)
                left = check(fixed)
                expected = 2 if left["errors"] else 1 if left["warnings"] else 0
                self.assertEqual(expected, result.returncode)
                kinds = {finding["kind"] for finding in left["findings"]}
                self.assertEqual(set(), kinds & ALWAYS_CORRECTED)
                if fixed != data:
                    changed += 1
                    self.assertEqual(b"", run("fix", "-", data=fixed).stdout)
                    self.check_items(data, fixed)
        self.assertGreater(changed, 20)

    def test_what_is_not_corrected_is_uncertain_and_reported(self):
        """Of any list: what must be corrected is, and for all else there is a finding."""
        rng = random.Random(SEED)
        lists = [arbitrary(rng) for _ in range(10 * LISTS)]
        paths = [self.directory / f"{number}.json" for number in range(len(lists))]
        for path, data in zip(paths, lists):
            path.write_bytes(data)
        result = run("fix", "--write", *paths)
        after = checked_files(paths)
        self.assertEqual(b"", run("fix", *paths).stdout)
        messages = result.stderr.decode()
        changed = 0
        for path, data, findings in zip(paths, lists, after):
            fixed = path.read_bytes()
            changed += fixed != data
            with self.subTest(data=data, fixed=fixed):
                is_not_renumbered = f"{path}: the items are not renumbered" in messages
                self.check_rest(parse(fixed), findings, is_not_renumbered)
                self.check_claims(parse(data), parse(fixed), findings)
        self.assertGreater(changed, len(lists) / 2)

    def check_rest(self, members, findings, is_not_renumbered):
        """Checks a corrected list."""
        kinds = {kind for kind, _ in findings}
        self.assertLessEqual([name for name, _ in members].count("$schema"), 1)
        items = [
            name
            for name, value in members
            if is_plain(name) or number_meant(name) and isinstance(value, Members)
        ]
        is_numbered = sorted(items) == sorted(map(str, range(len(items))))
        self.assertEqual(is_numbered, not is_not_renumbered)
        if is_numbered:
            self.assertNotIn("item-unreached", kinds)
        else:
            self.assertTrue(kinds & {"item-key", "item-unreached", "duplicate-item"})
        for place, (name, item) in enumerate(members):
            is_replaced = name in [later for later, _ in members[place + 1 :]]
            if isinstance(item, Members) and not is_replaced and number_meant(name):
                self.check_item(item)
                if is_plain(name):
                    self.check_findings(item, f"/{name}", findings)

    def check_item(self, item):
        """Nothing is left that can have only one correction."""
        names = [name for name, _ in item]
        self.assertEqual(len(set(names)), len(names))
        argc, args = item.last().get("argc"), item.last().get("args")
        if isinstance(argc, str) and not isinstance(argc, Number):
            self.assertTrue(number_meant(argc) is None or int(number_meant(argc)) > 61_438)
        if isinstance(args, Members):
            names = [name for name, _ in args]
            self.assertEqual(len(set(names)), len(names))
            meant = sorted(number_meant(name) or "" for name in names)
            is_complete = meant == sorted(map(str, range(len(args))))
            if is_complete and all(is_scalar(value) for _, value in args):
                self.assertEqual(meant, sorted(names))
                is_negative = isinstance(argc, Number) and argc.startswith("-")
                is_text = isinstance(argc, str) and not isinstance(argc, Number)
                if "argc" not in item.last():
                    self.assertEqual([], args)
                elif not isinstance(argc, list) and not is_negative and not is_text:
                    self.assertEqual(str(len(args)), argc)
        elif isinstance(args, list):
            self.assertFalse(all(map(is_scalar, args)))

    def check_findings(self, item, path, findings):
        """What is left is reported."""
        found = {kind for kind, at in findings if (at + "/").startswith(path + "/")}
        argc, args = item.last().get("argc"), item.last().get("args")
        if "argc" in item.last() and not (isinstance(argc, Number) and argc.isdigit()):
            self.assertTrue([kind for kind in found if kind.startswith("argc-")])
        if "args" in item.last() and args is not None and not isinstance(args, Members):
            # Without a usable count, nothing is said about the arguments.
            unusable = {"argc-type", "argc-undefined", "argc-too-big"}
            self.assertTrue(found & ({"args-type", "args-ignored"} | unusable))
        if isinstance(args, Members):
            given = {name for name, _ in args}
            count = int(argc) if isinstance(argc, Number) and argc.isdigit() else 0
            if given != set(map(str, range(min(count, 100)))):
                self.assertTrue(found, item)

    def check_claims(self, old_members, members, after):
        """What was changed is without the finding because of which it was changed."""
        old_items, items = (
            [(name, value) for name, value in each if name != "$schema"]
            for each in (old_members, members)
        )
        self.assertEqual(len(old_items), len(items))
        for (old_name, old), (name, item) in zip(old_items, items):
            kinds = {kind for kind, path in after if path == f"/{name}"}
            if old_name != name:
                self.assertFalse(kinds & {"item-key", "item-unreached"})
            if not isinstance(item, Members) or old == item:
                continue
            for member, corrected in (
                ("argc", {"argc-type", "argc-value"}),
                ("args", {"args-type", "args-ignored"}),
            ):
                if old.last().get(member) == item.last().get(member):
                    continue
                kinds = {kind for kind, path in after if path == f"/{name}/{member}"}
                self.assertFalse(kinds & corrected)

    def check_items(self, data, fixed):
        """Items that are not corrected run as before, and nothing new ends the launcher."""
        findings = check(data)["findings"]
        if any(finding["kind"] in ("utf-16", "byte-order-mark") for finding in findings):
            return  # Rejected before; now its items count.
        paths = [finding["path"] for finding in findings]
        mistaken = {path.split("/")[1] for path in paths if "/arg" in path}
        items, outcomes = explain(data)
        fixed_items, fixed_outcomes = explain(fixed)
        for item in items:
            if str(item["index"]) not in mistaken:
                self.assertEqual(item.get("arguments"), fixed_items[item["index"]].get("arguments"))
        if not may_end(outcomes):
            self.assertFalse(may_end(fixed_outcomes))


class Files(FixTest):
    BROKEN = b'{"0": {"name": "a", "program": "/bin/sh"}, "2": {"name": "b", "program": "/bin/sh"}}'

    def test_the_mode_and_a_symbolic_link_stay(self):
        link = self.directory / "link.json"
        link.symlink_to("list.json")
        for mode in (0o600, 0o644, 0o664, 0o400):
            self.list.unlink(missing_ok=True)
            self.list.write_bytes(self.BROKEN)
            self.list.chmod(mode)
            run("fix", "--write", link)
            self.assertTrue(link.is_symlink())
            self.assertEqual(mode, stat.S_IMODE(self.list.stat().st_mode))
            self.assertIn(b'"1": {"name": "b"', self.list.read_bytes())

    @unittest.skipUnless(os.geteuid() == 0, "only root can give a file to another user")
    def test_root_keeps_the_owner(self):
        self.list.write_bytes(self.BROKEN)
        os.chown(self.list, 65_533, 65_532)
        run("fix", "--write", self.list)
        self.assertEqual((65_533, 65_532), (self.list.stat().st_uid, self.list.stat().st_gid))

    def test_without_mistakes_the_file_is_not_replaced(self):
        self.list.write_bytes((HERE / "lists/good.json").read_bytes())
        before = self.list.stat()
        result = run("fix", "--write", self.list, statuses=(0,))
        self.assertEqual(b"", result.stdout)
        after = self.list.stat()
        self.assertEqual((before.st_ino, before.st_mtime_ns), (after.st_ino, after.st_mtime_ns))

    def test_nothing_is_written_without_the_option(self):
        self.list.write_bytes(self.BROKEN)
        shown = run("fix", self.list, statuses=(0,))
        self.assertEqual(self.BROKEN, self.list.read_bytes())
        written = run("fix", "--write", self.list, statuses=(0,))
        self.assertEqual((shown.stdout, shown.stderr), (written.stdout, written.stderr))

    def test_what_is_left_is_reported_as_check_does(self):
        path = HERE / "lists/two_of_one_name.json"
        result = run("fix", path, statuses=(2,))
        self.assertEqual(b"", result.stdout)
        self.assertEqual(run("check", path).stdout, result.stderr)

    def test_several_lists(self):
        other = self.directory / "other list.json"
        for path in (self.list, other):
            path.write_bytes(self.BROKEN)
        result = run("fix", "--write", self.list, other, statuses=(0,))
        self.assertEqual(2, result.stdout.count(b"\n+{"))
        self.assertIn(f"--- {other}\t\n".encode(), result.stdout)
        self.assertEqual(self.list.read_bytes(), other.read_bytes())
        result = run("fix", "--write", self.directory / "none", self.list, statuses=(3,))
        self.assertIn(b"none: No such file or directory\n", result.stderr)

    def test_warnings_can_be_tolerated(self):
        data = b'{"0": {"name": "a", "program": "/bin/sh", "color": 1}}'
        for severity, status in (("warning", 1), ("error", 0)):
            run("fix", "--fail-on", severity, "-", data=data, statuses=(status,))
        run("fix", "--fail-on", "error", "-", data=b"[]", statuses=(2,))

    def test_it_says_why_items_are_not_renumbered(self):
        item = b'{"name": "%s", "program": "/bin/sh"}'
        cases = {
            b'{"0": %s, "1": %s, "01": %s}': b"more than one item has the number 1",
            b'{"0": %s, "3": %s, "1.5": %s}': b'it is not certain what "1.5" means',
        }
        for text, reason in cases.items():
            data = text % (item % b"a", item % b"b", item % b"c")
            result = run("fix", "-", data=data, statuses=(2,))
            self.assertEqual(b"", result.stdout)
            self.assertIn(b"-: the items are not renumbered, because " + reason, result.stderr)
        # The item after the gap would send signal 9 to the process group.
        data = b'{"0": %s, "2": {"name": "b"}}' % (item % b"a")
        result = run("fix", "-", data=data, statuses=(2,))
        self.assertEqual(b"", result.stdout)
        self.assertIn(
            b"an item that the launcher does not reach now might then end it", result.stderr
        )


class New(FixTest):
    def new(self, *arguments, statuses=(0,)):
        return run("new", *arguments, statuses=statuses)

    def test_an_item_runs_exactly_what_is_given(self):
        arguments = [
            "--mode",
            "-h",
            "--",
            "--into",
            "",
            "it's",
            "\u00e9\U0001f600",
            "a\tb\n\x1b\x7f\u202e",
        ]
        result = self.new('a "name"', "/bin/sh", *arguments)
        item = b'{"0": ' + result.stdout + b"}"
        self.assertEqual([], check(item)["findings"])
        ((explained,), _) = explain(item)
        self.assertEqual('a "name"', explained["name"])
        self.assertEqual(["/bin/sh", *arguments], explained["arguments"])
        self.assertNotIn(b"\x1b", result.stdout)

    def test_the_text_of_an_item(self):
        expected = """{
  "name": "sync-agent",
  "program": "/bin/sh",
  "argc": 2,
  "args": { "0": "--mode", "1": "background" }
}
"""
        result = self.new("sync-agent", "/bin/sh", "--mode", "background")
        self.assertEqual(expected, result.stdout.decode())
        self.assertEqual(b"", result.stderr)
        result = self.new("a", "/bin/sh")
        self.assertEqual('{\n  "name": "a",\n  "program": "/bin/sh"\n}\n', result.stdout.decode())

    def test_a_program_that_is_not_there_is_reported(self):
        result = self.new("a", "/nowhere/program", statuses=(2,))
        self.assertIn(b"/nowhere/program", result.stdout)
        self.assertIn(b"does not exist", result.stderr)

    def test_appending_to_generated_lists(self):
        for number in range(LISTS):
            rng = random.Random(SEED + number)
            data = generate(rng)[1]
            with self.subTest(seed=SEED + number, data=data):
                self.list.write_bytes(data)
                self.list.chmod(0o640)
                arguments = rng.choices(["x", "--y", "\u00e9"], k=rng.randrange(3))
                result = self.new(f"--into={self.list}", "new", "/bin/sh", *arguments)
                extended = self.list.read_bytes()
                self.assertEqual(b"", result.stderr)
                self.assertEqual(0o640, stat.S_IMODE(self.list.stat().st_mode))
                self.assertEqual([], check(extended)["findings"])
                before, after = explain(data)[0], explain(extended)[0]
                self.assertEqual(before, after[:-1])
                self.assertEqual(["/bin/sh", *arguments], after[-1]["arguments"])
                self.assertEqual(
                    f'{self.list}: added item "{len(before)}"\n'.encode(), result.stdout
                )
                self.check_only_added(data, extended)

    def check_only_added(self, data, extended):
        """Only a comma and one piece of text were added."""
        begin = len(os.path.commonprefix([data, extended]))
        end = len(os.path.commonprefix([data[::-1], extended[::-1]]))
        end = min(end, len(data) - begin)
        middle = data[begin : len(data) - end]
        self.assertEqual(b"," + middle, extended[begin : begin + 1 + len(middle)])

    def test_what_hides_the_item_is_reported(self):
        self.list.write_bytes(Files.BROKEN)
        result = self.new("--into", self.list, "c", "/bin/sh", statuses=(2,))
        self.assertIn(b'added item "3"', result.stdout)
        self.assertIn(b'item "3" is never reached: there is no item "1"', result.stderr)
        self.list.write_bytes(b'{"0": {"name": "a", "program": "/bin/sh"}}')
        result = self.new("--into", self.list, "a", "/bin/sh", statuses=(2,))
        self.assertIn(b'duplicate name "a"', result.stderr)

    def test_a_list_that_is_not_a_json_object_is_unchanged(self):
        for data in (b"", b"[]", b"null", b'{"0": 1,', b"\xef\xbb\xbf{}", "{}".encode("utf-16")):
            with self.subTest(data):
                self.list.write_bytes(data)
                result = self.new("--into", self.list, "a", "/bin/sh", statuses=(2,))
                self.assertEqual(data, self.list.read_bytes())
                self.assertEqual(b"", result.stdout)
                self.assertIn(b"no item was added", result.stderr)
        result = self.new("--into", self.directory / "none", "a", "/bin/sh", statuses=(3,))
        self.assertIn(b"No such file or directory", result.stderr)

    def test_mistakes_in_the_arguments(self):
        cases = [
            (["new"], b"NAME is required"),
            (["new", "a"], b"PROGRAM is required"),
            (["new", "", "/bin/sh"], b"NAME: must not be empty"),
            (["new", "a", ""], b"PROGRAM: must not be empty"),
            (["new", b"\xff", "/bin/sh"], b'NAME: "\\xff" is not UTF-8'),
            (["new", "--onto", "x", "a", "/bin/sh"], b"--onto"),
            (["new", "a", "/bin/sh", *["x"] * 61_439], b"at most 61438 arguments"),
        ]
        for arguments, words in cases:
            result = subprocess.run([LAUNCHLIST, *arguments], capture_output=True, check=False)
            self.assertEqual(64, result.returncode, result.stderr)
            self.assertIn(words, result.stderr)
        result = self.new("--help")
        self.assertIn(b"--into", result.stdout)


if __name__ == "__main__":
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    LAUNCHLIST = os.path.abspath(sys.argv.pop(1))
    unittest.main()
