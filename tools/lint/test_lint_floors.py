"""lint-floors.py: which include is allowed from which floor."""

import unittest

from support import TreeTest

FLOORS = ["runtime", "util", "format", "frame", "client", "security", "upgrade"]


class FloorsTest(TreeTest):
    script = "lint/lint-floors.py"

    def setUp(self):
        super().setUp()
        self.write({f"src/{floor}/{floor}.h": "#pragma once\n" for floor in FLOORS})
        self.write({"src/imports/kernel32.def": "LIBRARY KERNEL32.dll\n"})

    def test_every_pair_of_floors(self):
        # From the bottom; the last three stand side by side.
        height = {floor: min(index, 4) for index, floor in enumerate(FLOORS)}
        for floor in FLOORS:
            for other in FLOORS:
                with self.subTest(floor=floor, other=other):
                    files = {f"src/{floor}/room.cpp": f'// A room.\n#include "{other}/{other}.h"\n'}
                    if other == floor or height[other] < height[floor]:
                        self.assert_clean(files)
                    else:
                        self.assert_found(files, f"src/{floor}/room.cpp:2: {floor} must not include")
            (self.root / f"src/{floor}/room.cpp").unlink()

    def test_headers_count(self):
        self.assert_found({"src/util/room.h": '#include "frame/frame.h"\n'}, "src/util/room.h:1: ")

    def test_unusual_spacing(self):
        self.assert_found({"src/util/room.h": '  #  include"frame/frame.h"\n'}, "src/util/room.h:1: ")

    def test_system_headers_do_not_count(self):
        self.assert_clean({"src/util/room.h": "#include <windows.h>\n"})

    def test_path_from_the_own_folder(self):
        self.assert_found({"src/util/room.cpp": '#include "util.h"\n'}, 'src/util/room.cpp:1: "util.h" does not begin')

    def test_path_upwards(self):
        self.assert_found({"src/util/room.cpp": '#include "../frame/frame.h"\n'}, "src/util/room.cpp:1: ")

    def test_missing_file(self):
        self.assert_found({"src/util/room.cpp": '#include "util/gone.h"\n'}, 'src/util/room.cpp:1: "util/gone.h"')

    def test_folder_that_is_no_floor(self):
        self.assert_found({"src/attic/room.cpp": "", "src/room.h": ""}, "src/attic/room.cpp:1: lies on no floor",
                          "src/room.h:1: lies on no floor")


if __name__ == "__main__":
    unittest.main()
