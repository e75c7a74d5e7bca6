"""Made-up trees, right and wrong: what is said of their includes."""

import os
import tempfile
import unittest

from include_directions import problems

# A small tree in which all arrows point down.
RIGHT = {
    "storemng/disk_access/include/disk_access.h": "",
    "storemng/disk_access/src/format/ring.h": '#include "disk_access.h"\n',
    "storemng/disk_access/src/io/host.h": '#include "disk_access.h"\n',
    "storemng/disk_access/src/io/device.h": '#include "io/host.h"\n',
    "storemng/disk_access/src/search/finder.h": '#include "format/ring.h"\n',
    "storemng/disk_access/src/search/finder.cpp": '#include "search/finder.h"\n#include "io/device.h"\n',
    "storemng/disk_access/src/playback/reader.h": '#include <vector>\n',
    "storemng/disk_access/src/dump/printer.h": "",
    "recordings/include/recordings/disk.h": "#include <libewf.h>\n",
    "recordings/src/disk.cpp": '#include "recordings/disk.h"\n#include "format/ring.h"\n#include "io/host.h"\n',
    "recordings/src/walk.h": "",
    "media/include/media/exporter.h": '#include "recordings/disk.h"\n',
    "media/src/muxer.h": "",
    "catalog/src/catalog.cpp": '#include "recordings/disk.h"\n',
    "tools/diskaccess/render/report.h": '#include "recordings/disk.h"\n',
    "tools/diskaccess/cli/context.h": '#include "render/report.h"\n',
    "tools/diskaccess/commands/export.cpp": '#include "cli/context.h"\n#include "media/exporter.h"\n',
    "examples/player.cpp": "#include <disk_access.h>\n",
    "tests/search/finder_test.cpp": '#include "search/finder.h"\n#include "gtest/gtest.h"\n',
}

RECORDER = "storemng/disk_access/src/"


class IncludeDirectionsTest(unittest.TestCase):
    def problems(self, **changes):
        """Those of the right tree with other text in some files."""
        with tempfile.TemporaryDirectory() as tree:
            for path, text in {**RIGHT, **changes}.items():
                os.makedirs(os.path.join(tree, os.path.dirname(path)), exist_ok=True)
                with open(os.path.join(tree, path), "w", encoding="utf-8") as file:
                    file.write(text)
            return problems(tree)

    def expect(self, path, include, *lines):
        self.assertEqual(self.problems(**{path: f"#include {include}\n"}), list(lines))

    def test_arrows_that_point_down_are_right(self):
        self.assertEqual(self.problems(), [])

    def test_the_recorders_library_knows_nothing_above_it(self):
        self.expect(
            "storemng/disk_access/include/disk_access.h", '"recordings/disk.h"',
            "storemng/disk_access/include/disk_access.h: storemng/disk_access/include may not include "
            "recordings/include/recordings/disk.h",
        )

    def test_its_operations_do_not_include_each_other(self):
        for own, other in (
            ("search", "playback/reader.h"), ("search", "dump/printer.h"), ("playback", "search/finder.h"),
            ("playback", "dump/printer.h"), ("dump", "search/finder.h"), ("dump", "playback/reader.h"),
        ):
            path = f"{RECORDER}{own}/new.cpp"
            self.expect(path, f'"{other}"', f"{path}: {RECORDER}{own} may not include {RECORDER}{other}")

    def test_where_things_lie_is_known_without_reading_them(self):
        path = RECORDER + "format/times.h"
        self.expect(path, '"io/host.h"', f"{path}: {RECORDER}format may not include {RECORDER}io/host.h")

    def test_recordings_take_one_header_of_io_and_none_of_the_operations(self):
        path = "recordings/src/new.cpp"
        for target in ("io/device.h", "search/finder.h", "playback/reader.h", "dump/printer.h"):
            self.expect(path, f'"{target}"', f"{path}: recordings/src may not include {RECORDER}{target}")
        self.expect(
            path, '"media/exporter.h"',
            f"{path}: recordings/src may not include media/include/media/exporter.h",
        )

    def test_headers_of_recordings_say_nothing_of_the_recorders_library(self):
        path = "recordings/include/recordings/blocks.h"
        self.expect(
            path, "<disk_access.h>",
            f"{path}: recordings/include may not include storemng/disk_access/include/disk_access.h",
        )

    def test_what_stands_on_recordings_uses_its_public_headers(self):
        for folder in ("media/src", "catalog/src", "tools/diskaccess/commands", "tools/diskaccess/cli",
                       "python", "examples", "bench"):
            path = folder + "/new.cpp"
            self.expect(path, '"walk.h"', f"{path}: {folder} may not include recordings/src/walk.h")
            self.expect(path, '"format/ring.h"', f"{path}: {folder} may not include {RECORDER}format/ring.h")

    def test_media_and_catalog_know_no_program(self):
        for folder in ("media/src", "catalog/src"):
            path = folder + "/new.cpp"
            self.expect(
                path, '"cli/context.h"', f"{path}: {folder} may not include tools/diskaccess/cli/context.h"
            )

    def test_folders_of_the_program_have_an_order(self):
        path = "tools/diskaccess/render/text.h"
        self.assertEqual(
            self.problems(**{path: '#include "cli/context.h"\n'}),
            [
                f"{path}: tools/diskaccess/render may not include tools/diskaccess/cli/context.h",
                "folders include each other in a circle: tools/diskaccess/cli -> tools/diskaccess/render "
                "-> tools/diskaccess/cli",
            ],
        )

    def test_files_of_one_folder_make_no_circle(self):
        found = self.problems(**{
            "recordings/src/walk.h": '#include "check.h"\n',
            "recordings/src/check.h": '# include "walk.h"\n',
        })
        self.assertEqual(
            found,
            ["files include each other in a circle: recordings/src/check.h -> recordings/src/walk.h "
             "-> recordings/src/check.h"],
        )

    def test_a_path_through_other_folders_hides_nothing(self):
        path = RECORDER + "search/new.cpp"
        self.expect(
            path, '"../playback/reader.h"', f"{path}: {RECORDER}search may not include {RECORDER}playback/reader.h"
        )

    def test_a_name_in_quotes_must_be_a_file_of_the_tree(self):
        self.expect("media/src/new.cpp", '"libavformat/avio.h"',
                    'media/src/new.cpp: "libavformat/avio.h" is no file of the tree')

    def test_a_new_folder_needs_a_rule(self):
        self.expect("stills/src/still.cpp", "<vector>",
                    "stills/src/still.cpp: its folder has no rule about what it may include")


if __name__ == "__main__":
    unittest.main()
