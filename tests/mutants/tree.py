"""The copy of the sources in which changes are tried, and its build: quick rather than anything else, and apart from the
project's own. Run by itself, it makes both, or what of them has changed.
"""
import functools
import hashlib
import json
import re
import shlex
import shutil
import subprocess
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
LAYERS = ("foundation", "common", "responder")
COPIED = LAYERS + ("include", "examples", "packaging", "cmake", "tests", "CMakeLists.txt")
PROGRAMS = tuple(f"{layer}_tests" for layer in LAYERS) + ("system_tests",)


class Tree:
    def __init__(self):
        self.place = ROOT / "build/mutants"
        self.sources = self.place / "tree"
        self.build = self.place / "build"
        self.header = self.place / "standard.h"

    def renew(self):
        """Only what differs, so that only that is built again: also what an interrupted run has left changed."""
        wanted = set()
        for name in COPIED:
            start = ROOT / name
            for file in [start] if start.is_file() else (f for f in start.rglob("*") if f.is_file()):
                copy = self.sources / file.relative_to(ROOT)
                wanted.add(copy)
                if not copy.exists() or copy.read_bytes() != file.read_bytes():
                    copy.parent.mkdir(parents=True, exist_ok=True)
                    shutil.copy(file, copy)
        for copy in list(self.sources.rglob("*")):
            if copy.is_file() and copy not in wanted and "__pycache__" not in copy.parts:
                copy.unlink()

    def make(self):
        if not (self.build / "build.ninja").exists():
            subprocess.run(["cmake", "-S", self.sources, "-B", self.build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug",
                            "-DCMAKE_CXX_FLAGS_DEBUG=", "-DCMAKE_C_FLAGS_DEBUG=", "-DCMAKE_C_COMPILER=clang",
                            "-DCMAKE_CXX_COMPILER=clang++", "-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=lld",
                            "-DZNORB_STATIC=OFF", "-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST"],
                           check=True)
        subprocess.run(["ninja", "-C", self.build, "znorb-sandbox", *PROGRAMS], check=True)

    def read(self):
        """What the build's commands are."""
        entries = json.loads((self.build / "compile_commands.json").read_text())
        self.commands = {str(Path(e["file"]).relative_to(self.sources)): shlex.split(e["command"]) for e in entries
                         if Path(e["file"]).is_relative_to(self.sources)}
        self.links = {layer: self.link_command(layer) for layer in LAYERS}
        self.precompile()

    def tests(self):
        """The state of all tests, in one word."""
        digest = hashlib.sha256()
        for file in sorted(f for name in (*LAYERS, "system", "support", "sandbox")
                           for f in (ROOT / "tests" / name).rglob("*") if f.is_file()):
            digest.update(file.read_bytes())
        return digest.hexdigest()[:16]

    @functools.cache # the places of the changes are those of the text as it was at first
    def text(self, file):
        return (ROOT / file).read_text(encoding="latin-1")

    def has_built(self, program):
        return subprocess.run(["ninja", program], cwd=self.build, stdout=subprocess.DEVNULL, timeout=600,
                              check=False).returncode == 0

    def link_command(self, layer):
        said = subprocess.run(["ninja", "-t", "commands", f"{layer}_tests"], cwd=self.build, check=True,
                              stdout=subprocess.PIPE, text=True).stdout
        line = [line for line in said.splitlines() if f"-o bin/{layer}_tests" in line][-1]
        return [word for word in shlex.split(line) if word not in (":", "&&")]

    def arguments(self, file):
        """What the compiler is given for this file, or for a header of its layer: neither input nor output."""
        words = self.commands.get(file) or next(c for f, c in self.commands.items()
                                                if f.startswith(file.split("/")[0] + "/") and f.endswith(".cpp"))
        words = [word for word in words[1:] if not word.startswith("-W")]
        return words[:words.index("-o")]

    def precompiled(self, file):
        """The same, with the standard headers."""
        return [*self.arguments(file), "-include-pch", f"{self.header}.pch"]

    def precompile(self):
        """The standard headers of all that is compiled once for each mutant."""
        lines = {line for layer in LAYERS for f in (self.sources / layer).rglob("*.[hc]*")
                 for line in re.findall(r"^#include <.*", f.read_text(encoding="latin-1"), re.M)}
        text = "\n".join(sorted(lines)) + "\n"
        if not self.header.exists() or self.header.read_text() != text:
            self.header.write_text(text)
        subprocess.run(["clang++", *self.arguments("responder/Globals.cpp"), "-x", "c++-header", self.header, "-o",
                        f"{self.header}.pch"], check=True)


def main():
    tree = Tree()
    tree.renew()
    tree.make()


if __name__ == "__main__":
    sys.exit(main())
