"""Two builds of the same sources, in different folders, give the same bytes. A small part of each
kind is built here; scripts/check-reproducible compares whole packages."""

import shutil
import unittest

from build_folder import CMAKE, SOURCE, run, same_setting
from harness import ToolTest

PARTS = [
    "bin/libdevforwardmin.dll",
    "bin/pipe_host.exe",
    "platform/libdevforwardmin.dll.a",
    "platform/libqn_math.a",
    "launcher/CMakeFiles/qnrescue.dir/qnrescue_manifest.rc.res",
    "launcher/CMakeFiles/qnrescue.dir/qnrescue_version.rc.res",
    "QNRescue/CMakeFiles/qnrescuelib.dir/main.cpp.obj",
    # This one names its own source file.
    "QNRescue/CMakeFiles/qnrescue_core.dir/MobileDeviceDebug.cpp.obj",
]


class TwoBuilds(ToolTest):
    def build(self, folder):
        """The bytes of the parts, built from a copy of the sources in this folder."""
        shutil.copytree(SOURCE, folder, ignore=lambda path, names: {
            name for name in names if name in ("build", ".git", "__pycache__")})
        build = folder / "build" / "here"
        run(CMAKE, "-G", "Ninja", "-S", folder, "-B", build,
            *same_setting("CMAKE_BUILD_TYPE", "CMAKE_TOOLCHAIN_FILE", "CMAKE_PREFIX_PATH"),
            CMAKE_CXX_COMPILER_LAUNCHER="")
        run(CMAKE, "--build", build, "--target", *PARTS)
        return {part: (build / part).read_bytes() for part in PARTS}

    def test_same_bytes(self):
        first = self.build(self.new_folder() / "first")
        second = self.build(self.new_folder() / "a folder" / "of another depth")
        for part in PARTS:
            self.assertEqual(first[part], second[part], part)


if __name__ == "__main__":
    unittest.main()
