#!/usr/bin/python3
"""Checks that includes go downwards only and that only win/ and linux/ know the operating system.

    check_layers.py               check the tree, exit code 1 when something is forbidden
    check_layers.py --self-test   check that each rule refuses what it is there to refuse
"""

import re
import sys
from pathlib import Path

# What each folder may include, besides itself.
LAYERS = {
    "base": [],
    "tiles": ["base"],
    "capture": ["base"],
    "control": ["base"],
    "net": ["base"],
    "session": ["capture", "tiles", "control", "net", "base"],
    "agent": ["session", "capture", "tiles", "control", "net", "base"],
    "view": ["net", "tiles", "control", "base"],
}
PLATFORM_FOLDERS = ("win", "linux")

# Folders around the product that may include any of it.
AROUND = ("testing", "tests", "bench", "fuzz")

# Tests and the viewer may also use libraries that are the same on every system.
PORTABLE_LIBRARIES = ("gtest/", "gmock/", "benchmark/")
VIEWER_LIBRARIES = ("zlib.h", "png.h")
# The one file of the product that calls a portable library for all the others.
LIBRARY_OF_FILE = {"tiles/webp_coding.cc": "webp/"}

# The one place that may ask which compiler this is.
COMPILER_HEADER = "base/compiler.h"

STANDARD_HEADER = re.compile(r"[a-z_0-9]+$")  # <vector>, <cstdint>: no dot, no folder
INCLUDE = re.compile(r'^\s*#\s*include\s*(["<])([^">]+)[">]')
CONDITIONAL = re.compile(r"^\s*#\s*(?:if|ifdef|ifndef|elif)\b(.*)")
SYSTEM_MACRO = re.compile(r"\b(_WIN32|_WIN64|WIN32|__MINGW\w*|_MSC_VER|__linux__|__unix__|__GNUC__|__clang__|__APPLE__)\b")
# Intrinsics are the CPU's, not the operating system's.
CPU_HEADERS = ("immintrin.h", "emmintrin.h", "tmmintrin.h", "smmintrin.h", "nmmintrin.h", "cpuid.h")


def is_platform_file(path):
    return len(path.parts) > 2 and path.parts[1] in PLATFORM_FOLDERS


def is_test(path):
    return path.stem.endswith("_test")


def include_fault(path, quoted, name):
    """Why `path` must not include `name`, or None."""
    folder = path.parts[0]
    if quoted:
        target = name.split("/")[0]
        if target in AROUND and (folder in AROUND or (target == "testing" and is_test(path))):
            return None
        if target not in LAYERS:
            return f'"{name}" is not a path from the root into one of the folders'
        if folder in LAYERS and target != folder and target not in LAYERS[folder]:
            return f"{folder} may not include {target}"
        if Path(name).parts[1] in PLATFORM_FOLDERS and not is_platform_file(path) and folder not in AROUND:
            return f"only a {Path(name).parts[1]}/ file may include {name}"
        return None
    if STANDARD_HEADER.match(name) or name in CPU_HEADERS or is_platform_file(path) or folder in AROUND:
        return None
    if is_test(path) and (name.startswith(PORTABLE_LIBRARIES) or name == "zlib.h"):
        return None
    if folder == "view" and name in VIEWER_LIBRARIES:
        return None
    if str(path) in LIBRARY_OF_FILE and name.startswith(LIBRARY_OF_FILE[str(path)]):
        return None
    return f"<{name}> is an operating system's or a foreign header outside win/ and linux/"


def file_faults(path, text):
    faults = []
    for number, line in enumerate(text.splitlines(), 1):
        fault = None
        if include := INCLUDE.match(line):
            fault = include_fault(path, include[1] == '"', include[2])
        elif (condition := CONDITIONAL.match(line)) and str(path) != COMPILER_HEADER and path.parts[0] in LAYERS:
            if not is_platform_file(path) and (macro := SYSTEM_MACRO.search(condition[1])):
                fault = f"{macro[1]}: the build chooses the system's files, no macro does"
        if fault:
            faults.append(f"{path}:{number}: {fault}")
    return faults


def check_tree(root):
    faults = []
    files = 0
    for folder in (*LAYERS, *AROUND):
        for file in sorted((root / folder).rglob("*")):
            if file.suffix in (".h", ".cc"):
                files += 1
                faults += file_faults(file.relative_to(root), file.read_text(encoding="utf-8"))
    for fault in faults:
        print(fault)
    print(f"check_layers: {files} files, {len(faults)} forbidden")
    return 0 if files and not faults else 1


SELF_TEST = [
    # path, line, is it refused?
    ("tiles/a.cc", '#include "base/bytes.h"', False),
    ("tiles/a.cc", '#include "capture/screen_capturer.h"', True),
    ("base/a.h", '#include "net/channel.h"', True),
    ("view/a.cc", '#include "session/agent_session.h"', True),
    ("session/a.cc", '#include "capture/screen_capturer.h"', False),
    ("net/a.cc", '#include "net/linux/posix_socket.h"', True),
    ("net/linux/a.cc", '#include "net/linux/posix_socket.h"', False),
    ("net/linux/a.cc", "#include <sys/socket.h>", False),
    ("net/linux/a.cc", '#include "tiles/tile_grid.h"', True),
    ("net/a.cc", "#include <sys/socket.h>", True),
    ("net/a.cc", "  #  include <windows.h>", True),
    ("net/a.cc", "#include <unistd.h>", True),
    ("net/a.cc", "#include <vector>", False),
    ("tiles/a.cc", "#include <zlib.h>", True),
    ("tiles/a_test.cc", "#include <zlib.h>", False),
    ("tiles/webp_coding.cc", "#include <webp/decode.h>", False),
    ("tiles/webp_coding.cc", "#include <zlib.h>", True),
    ("tiles/a.cc", "#include <webp/decode.h>", True),
    ("view/a.cc", "#include <zlib.h>", False),
    ("tiles/a.cc", "#include <immintrin.h>", False),
    ("tiles/a.cc", '#include "testing/fake_clock.h"', True),
    ("tiles/a_test.cc", '#include "testing/fake_clock.h"', False),
    ("tiles/a.cc", '#include "tile_grid.h"', True),
    ("base/log.cc", "#ifdef _WIN32", True),
    ("base/log.cc", "#if defined(__linux__) && 1", True),
    ("base/linux/log.cc", "#ifdef __linux__", False),
    ("base/compiler.h", "#if defined(__clang__)", False),
    ("base/log.cc", "#ifdef NDEBUG", False),
    ("tests/end_to_end/a.cc", "#include <X11/Xlib.h>", False),
    ("tests/end_to_end/a.cc", '#include "tests/end_to_end/b.h"', False),
    ("bench/a.cc", '#include "tiles/linux/turbo_image_codec.h"', False),
    ("base/a_test.cc", '#include "tests/end_to_end/b.h"', True),
]


def self_test():
    wrong = [
        f"{path}: {line} should{'' if refused else ' not'} be refused"
        for path, line, refused in SELF_TEST
        if bool(file_faults(Path(path), line)) != refused
    ]
    print("\n".join([*wrong, f"check_layers: {len(SELF_TEST)} rules tried, {len(wrong)} wrong"]))
    return 1 if wrong else 0


if __name__ == "__main__":
    if sys.argv[1:] == ["--self-test"]:
        sys.exit(self_test())
    sys.exit(check_tree(Path(__file__).resolve().parent.parent))
