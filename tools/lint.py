#!/usr/bin/python3
"""Runs clang-tidy over the product's sources, two at a time.

    lint.py BUILD_DIRECTORY    one that a preset with clang has configured

A source is looked at again only when it, a header of the project that it includes, or the configuration has changed:
what was found clean is remembered in BUILD_DIRECTORY/lint.
"""

import concurrent.futures
import hashlib
import os
import re
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
FOLDERS = ("base", "tiles", "capture", "control", "net", "session", "agent", "view")
INCLUDE = re.compile(rb'^\s*#\s*include\s*"([^"]+)"', re.MULTILINE)


def project_files(source, seen):
    """`source` and every file of the project that it includes, directly or not."""
    if source in seen or not source.is_file():
        return
    seen.add(source)
    for name in INCLUDE.findall(source.read_bytes()):
        project_files(ROOT / name.decode(), seen)


def fingerprint(source, configuration):
    files = set()
    project_files(source, files)
    digest = hashlib.sha256(configuration)
    for file in sorted(files):
        digest.update(str(file).encode() + b"\0" + file.read_bytes() + b"\0")
    return digest.hexdigest()


def lint(source, build):
    result = subprocess.run(
        ["clang-tidy", "--quiet", "-p", str(build), str(source)],
        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, check=False)
    return result.returncode, result.stdout


def main():
    if len(sys.argv) != 2 or not (Path(sys.argv[1]) / "compile_commands.json").is_file():
        print("usage: lint.py BUILD_DIRECTORY (a configured one)", file=sys.stderr)
        return 2
    build = Path(sys.argv[1]).resolve()
    clean = build / "lint"
    clean.mkdir(exist_ok=True)

    version = subprocess.run(["clang-tidy", "--version"], stdout=subprocess.PIPE, check=True).stdout
    configuration = version + (ROOT / ".clang-tidy").read_bytes()
    sources = [
        source for folder in FOLDERS for source in sorted((ROOT / folder).rglob("*.cc"))
        if not source.stem.endswith("_test") and "win" not in source.relative_to(ROOT).parts
    ]
    marks = {source: clean / fingerprint(source, configuration) for source in sources}
    waiting = [source for source in sources if not marks[source].exists()]
    print(f"lint: {len(sources)} sources, {len(waiting)} to look at")

    faulty = 0
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for source, (code, output) in zip(waiting, pool.map(lambda source: lint(source, build), waiting)):
            if code == 0:
                marks[source].touch()
            else:
                faulty += 1
                print(output.strip() or f"clang-tidy failed on {source}")
            print(f"  {'ok ' if code == 0 else 'BAD'} {source.relative_to(ROOT)}", flush=True)
    print(f"lint: {faulty} faulty")
    return 1 if faulty or not sources else 0


if __name__ == "__main__":
    sys.exit(main())
