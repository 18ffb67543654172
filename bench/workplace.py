"""The directory that the benchmarks work in."""

import filecmp
import os
import pathlib
import shutil
import sys
import tempfile

SMALL_BYTES = 4096
# What a small download costs depends on how deep its file is: here always three directories. Not in
# /tmp, where nothing is flushed to storage.
SMALL_FILES_PARENT = "/var/tmp"
MEDIUM_MIB = 16


def write_random(path, size):
    block = 1 << 20
    with open(path, "wb") as file:
        for start in range(0, size, block):
            file.write(os.urandom(min(block, size - start)))


class Workplace:
    """`root` holds what servers serve; everything else is scratch. Gone when the block ends."""

    def __init__(self, build, size_mib, rounds):
        self.build = build
        self.size_mib = size_mib
        self.rounds = rounds
        self.work = pathlib.Path(tempfile.mkdtemp(prefix="voinet-bench-", dir=build))
        self.small_files = pathlib.Path(tempfile.mkdtemp(prefix="voinet-bench-",
                                                         dir=SMALL_FILES_PARENT))
        self.root = self.work / "root"
        self.big = self.root / "big"
        self.copy = self.work / "copy.out"

    def __enter__(self):
        try:
            os.chmod(self.work, 0o755)
            self.root.mkdir()
            (self.root / "SiteStat.xml").write_text("<SiteStatus/>\n")
            write_random(self.root / "small", SMALL_BYTES)
            write_random(self.root / "medium", MEDIUM_MIB << 20)
            write_random(self.big, self.size_mib << 20)
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_):
        shutil.rmtree(self.work)
        shutil.rmtree(self.small_files)

    def program(self, name):
        return self.build / "bench" / f"bench_{name}"

    def check(self, file, original):
        """Figures of a transfer that went wrong are worth nothing."""
        if not filecmp.cmp(file, self.root / original, shallow=False):
            sys.exit(f"{file} is not the same as {original}")

    def small_target(self):
        """A name for small downloads; what the ones before left is removed."""
        for file in self.small_files.iterdir():
            file.unlink()
        return self.small_files / "out"
