"""lint-layers.py: which module may include files of which other one."""

import unittest

from support import TreeTest

LAYERS = [["runtime"], ["base"], ["paths", "format"], ["files"], ["frame"], ["client", "security", "server"]]
PICTURE = "# Architecture\n\n" + "".join(
    f"    {number}  {', '.join(modules)}   words about it\n" for number, modules in reversed(list(enumerate(LAYERS, 1))))
MODULES = [module for modules in LAYERS for module in modules]


class LayersTest(TreeTest):
    script = "lint/lint-layers.py"

    def setUp(self):
        super().setUp()
        self.write({f"src/{module}/{module}.h": "#pragma once\n" for module in MODULES})
        self.write({"src/imports/kernel32.def": "LIBRARY KERNEL32.dll\n", "docs/architecture.md": PICTURE})

    def test_every_pair_of_modules(self):
        layer = {module: number for number, modules in enumerate(LAYERS) for module in modules}
        for module in MODULES:
            for other in MODULES:
                with self.subTest(module=module, other=other):
                    files = {f"src/{module}/file.cpp": f'// A file.\n#include "{other}/{other}.h"\n'}
                    if other == module or layer[other] < layer[module]:
                        self.assert_clean(files)
                    else:
                        self.assert_found(files, f"src/{module}/file.cpp:2: {module} must not include")
            (self.root / f"src/{module}/file.cpp").unlink()

    def test_headers_too(self):
        self.assert_found({"src/base/file.h": '#include "frame/frame.h"\n'}, "src/base/file.h:1: ")

    def test_unusual_spacing(self):
        self.assert_found({"src/base/file.h": '  #  include"frame/frame.h"\n'}, "src/base/file.h:1: ")

    def test_headers_of_the_system(self):
        self.assert_clean({"src/base/file.h": "#include <windows.h>\n"})

    def test_a_path_without_module(self):
        self.assert_found({"src/base/file.cpp": '#include "base.h"\n'},
                          'src/base/file.cpp:1: "base.h" does not begin')

    def test_a_path_that_goes_up(self):
        self.assert_found({"src/base/file.cpp": '#include "../frame/frame.h"\n'}, "src/base/file.cpp:1: ")

    def test_a_missing_header(self):
        self.assert_found({"src/base/file.cpp": '#include "base/gone.h"\n'}, 'src/base/file.cpp:1: "base/gone.h"')

    def test_a_file_outside_of_the_modules(self):
        self.assert_found({"src/file.cpp": "// A file.\n"}, "src/file.cpp:1: is not in a module")
        (self.root / "src/file.cpp").unlink()
        self.assert_found({"src/cellar/file.cpp": "// A file.\n"}, "src/cellar/file.cpp:1: is not in a module")
        (self.root / "src/cellar/file.cpp").unlink()
        self.assert_found({"src/base/deeper/file.cpp": "// A file.\n"}, "src/base/deeper/file.cpp:1: is not in a module")

    def test_a_module_that_is_gone(self):
        self.assert_found({"docs/architecture.md": PICTURE + "    7  attic\n"},
                          "docs/architecture.md:1: the module attic does not exist")

    def test_a_page_without_the_picture(self):
        self.assert_found({"docs/architecture.md": "# Architecture\n"}, "docs/architecture.md:1: has no picture")


if __name__ == "__main__":
    unittest.main()
