"""Which items of a launch list are started."""

import json

import namespace
from launcher import MANY, STAY, LauncherTest, item, nameless, numbered
from log import NO_NAME, PARSE_ERROR, end_text, start_text, without_nameless


class Items(LauncherTest):
    def test_starts_named_items_up_to_the_first_gap(self):
        launcher = self.start(
            {
                "0": item("sync-agent", STAY, "--mode", "background"),
                "1": {"name": "indexer", "program": STAY},
                "2": {"program": STAY},
                "4": {"name": "late", "program": STAY},
            }
        )
        starts = {len(start.arguments): start for start in self.wait_for_starts(2)}
        sync_agent, indexer = starts[3], starts[1]
        self.assertEqual([STAY.encode(), b"--mode", b"background"], sync_agent.arguments)
        self.assertEqual([STAY.encode()], indexer.arguments)
        self.assertEqual(1, launcher.stop())
        self.assertEqual(
            sorted(
                [
                    ("DEBUG", start_text("sync-agent")),
                    ("DEBUG", start_text("indexer")),
                    ("ERROR", NO_NAME),
                    ("ERROR", end_text("sync-agent", sync_agent.pid, 9)),
                    ("ERROR", end_text("indexer", indexer.pid, 9)),
                ]
            ),
            sorted(launcher.log()),
        )

    def test_index_names_are_plain_decimal(self):
        launcher = self.start({"00": item("a"), "+0": item("b"), "1": item("c"), "x": item("d")})
        self.assertEqual(1, launcher.stop())
        self.assertEqual([], launcher.log())

    def test_lists_that_start_nothing_wait_for_sigterm(self):
        for text in (b"null", b"{}", b"{}xyz", b"/* nothing */ {}", b'{"a": 1}'):
            with self.subTest(text):
                launcher = self.start(text)
                self.assertEqual(1, launcher.stop())
                self.assertEqual([], launcher.log())

    def test_parse_errors(self):
        texts = {
            "incomplete JSON": b"{",
            "white space": b" \n",
            "root array": b"[]",
            "root array with an item": json.dumps([item("a")]).encode(),
            "root string": b'"text"',
            "root number": b"0",
            "root boolean": b"true",
            "item array": b'{"0": []}',
            "item string": b'{"0": "name"}',
            "item number": b'{"0": 7}',
            "item boolean": b'{"0": false}',
            "name object": b'{"0": {"name": {}}}',
            "name array": b'{"0": {"name": ["a"]}}',
            "zero byte first": b'\0{"0": {}}',
            "zero byte inside": b'{"0": \0{}}',
            "zero byte in a name": b'{"0": {"name": "a\0b"}}',
            "zero byte in a comment": b"/* \0 */ {}",
        }
        for what, text in texts.items():
            with self.subTest(what):
                launcher = self.start(text)
                self.assertEqual(0, launcher.wait())
                self.assertEqual([("ERROR", PARSE_ERROR)], launcher.log())

    def test_items_without_a_name_are_skipped(self):
        launcher = self.start({"0": None, "1": {}, "2": {"program": STAY}, "3": item("last")})
        (last,) = self.wait_for_starts(1)
        self.assertEqual(1, launcher.stop())
        self.assertEqual(
            [
                ("ERROR", NO_NAME),
                ("ERROR", NO_NAME),
                ("ERROR", NO_NAME),
                ("DEBUG", start_text("last")),
                ("ERROR", end_text("last", last.pid, 9)),
            ],
            launcher.log(),
        )

    def test_a_scalar_name_is_converted_to_text(self):
        names = {
            "": "",
            "a%sb": "a%sb",
            "é": "é",
            7: "7",
            -1: "-1",
            1.5: "1.5",
            True: "true",
            False: "false",
            None: "",
        }
        for name, text in names.items():
            with self.subTest(name):
                launcher = self.start(numbered(item(name)))
                (start,) = self.wait_for_starts(1)
                self.assertEqual(1, launcher.stop())
                self.assertEqual(
                    [("DEBUG", start_text(text)), ("ERROR", end_text(text, start.pid, 9))],
                    launcher.log(),
                )

    def test_the_list_ends_at_its_first_zero_byte(self):
        text = json.dumps(numbered(item("first"))).encode()
        launcher = self.start(text + b'\0, "1": {"name": "second"} this is not JSON')
        (start,) = self.wait_for_starts(1)
        self.assertEqual(1, launcher.stop())
        self.assertEqual(
            [("DEBUG", start_text("first")), ("ERROR", end_text("first", start.pid, 9))],
            launcher.log(),
        )

    def test_lists_around_the_read_buffer_size_are_complete(self):
        # The launcher reads 128 bytes at a time.
        text = json.dumps(numbered(item("only"))).encode()
        for size in (128 * 3 - 1, 128 * 3, 128 * 3 + 1, 1_000_000):
            with self.subTest(size):
                launcher = self.start(text[:-1] + b" " * (size - len(text)) + b"}")
                (start,) = self.wait_for_starts(1)
                self.assertEqual(1, launcher.stop())

    def test_a_second_item_of_the_same_name_replaces_the_first(self):
        launcher = self.start(
            numbered(
                item("a", STAY, "1"), *nameless(MANY), item("a", STAY, "2"), item("b", STAY, "3")
            )
        )
        (third,) = self.wait_for_starts(1, "3")
        (first,), (second,) = self.starts("1"), self.starts("2")
        self.assertEqual(1, launcher.stop())

        self.assertEqual(MANY, launcher.log().count(("ERROR", NO_NAME)))
        log = without_nameless(launcher.log())
        self.assertEqual(("DEBUG", start_text("a")), log[0])
        # The second supervisor starts before the first child is killed.
        self.assertEqual(
            sorted([("DEBUG", start_text("a")), ("ERROR", end_text("a", first.pid, 9))]),
            sorted(log[1:3]),
        )
        # The first child has ended before the next item starts.
        self.assertEqual(("DEBUG", start_text("b")), log[3])
        self.assertEqual(
            sorted(
                [
                    ("ERROR", end_text("a", second.pid, 9)),
                    ("ERROR", end_text("b", third.pid, 9)),
                ]
            ),
            sorted(log[4:]),
        )

    def test_an_invalid_item_kills_the_children(self):
        launcher = self.start(numbered(item("a"), *nameless(MANY), []))
        self.assertEqual(0, launcher.wait())
        (start,) = self.starts()
        self.assertEqual(MANY, launcher.log().count(("ERROR", NO_NAME)))
        self.assertEqual(
            [
                ("DEBUG", start_text("a")),
                ("ERROR", PARSE_ERROR),
                ("ERROR", end_text("a", start.pid, 9)),
            ],
            without_nameless(launcher.log()),
        )


if __name__ == "__main__":
    namespace.main()
