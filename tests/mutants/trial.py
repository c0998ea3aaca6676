"""One mutant's build and tests: the nearest first, in a program of its own, the rest for whom those do not find."""
import os
import re
import resource
import shutil
import signal
import subprocess
import time
from pathlib import Path

from tree import LAYERS, PROGRAMS, ROOT

MEMORY = 8 << 30
SHARDS = 2 * (os.cpu_count() or 1)


def limits():
    resource.setrlimit(resource.RLIMIT_AS, (MEMORY, MEMORY))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


def end(process):
    """Ends what still runs, with its group; what is in a sandbox ends with the sandbox's first process."""
    if process.poll() is None:
        os.killpg(process.pid, signal.SIGKILL)
        process.wait()


def nearest_tests(file):
    """The test files of the same folder that include the header of that name, or bear its name."""
    path = Path(file)
    header = str(path.with_suffix(".h"))
    folder = ROOT / "tests" / path.parent
    tests = sorted(folder.glob("*Test.cpp"))
    return [str(t.relative_to(ROOT)) for t in tests
            if f'"{header}"' in t.read_text(encoding="latin-1") or t.name == f"{path.stem}Test.cpp"]


class Workshop:
    """Where one mutant at a time is tried by the tests nearest to it."""

    def __init__(self, tree, number, scratch):
        self.tree = tree
        self.folder = tree.place / f"near.{number}"
        self.temporary = Path(scratch) / str(number)
        self.seconds = {}

    def clean(self):
        for folder in (self.folder, self.temporary):
            shutil.rmtree(folder, ignore_errors=True)
            folder.mkdir(parents=True)

    def run(self, commands, limit):
        """All at once, each in a session of its own, until one fails, which is told, or the time is over."""
        environment = dict(os.environ, TMPDIR=str(self.temporary))
        outputs = [open(self.folder / f"output.{i}", "wb+") for i in range(len(commands))]
        running = {}
        try:
            for i, (command, extra) in enumerate(commands):
                running[i] = subprocess.Popen(command, cwd=self.folder, env=environment | extra,
                                              stdin=subprocess.DEVNULL, stdout=outputs[i], stderr=subprocess.STDOUT,
                                              start_new_session=True, preexec_fn=limits)
            until = time.monotonic() + limit
            waiting = dict(running)
            while waiting:
                for i, process in list(waiting.items()):
                    if process.poll() is None:
                        continue
                    del waiting[i]
                    if process.returncode != 0:
                        outputs[i].seek(0)
                        return self.reason(outputs[i].read().decode(errors="replace"), process.returncode)
                if time.monotonic() > until:
                    return "its time is over"
                time.sleep(0.01)
            return ""
        finally:
            for process in running.values():
                end(process)
            for output in outputs:
                output.close()

    @staticmethod
    def reason(output, status):
        failed = re.search(r"\[  FAILED  \] (\S+?)[,\s]", output)
        started = re.findall(r"\[ RUN      \] (\S+)", output)
        return failed[1] if failed else f"{started[-1] if started else 'a test'}, which ends with {status}"

    def compile(self, words, limit=120):
        return subprocess.run(words, cwd=self.tree.build, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                              timeout=limit, check=False).returncode == 0

    def link(self, file, objects):
        """The program of the nearest tests, with these objects instead of what they replace."""
        layer = file.split("/")[0]
        near = {f"{t}.o" for t in nearest_tests(file)}
        words = []
        mark = f"tests/CMakeFiles/{layer}_tests.dir/"
        for word in self.tree.links[layer]:
            if word.startswith(mark):
                test = "tests/" + word[len(mark):]
                if test in objects or test.endswith("Test.cpp.o") and test not in near:
                    continue
            words.append(word)
        words[words.index("-o") + 1] = str(self.folder / "tests")
        return self.compile(words[:1] + [str(o) for o in objects.values()] + words[1:])

    def near_command(self):
        return [str(self.tree.build / "bin/znorb-sandbox"), "--", str(self.folder / "tests"), "--gtest_fail_fast"], {}

    def limit(self, file):
        """The time that the tests may take; None where they fail already as things are."""
        if file not in self.seconds:
            self.clean()
            began = time.monotonic()
            passed = self.link(file, {}) and not self.run([self.near_command()], 120)
            self.seconds[file] = 10 + 5 * (time.monotonic() - began) if passed else None
        return self.seconds[file]

    def near(self, change, text):
        """What finds it: nothing, a test, or None when no such program can be made."""
        limit = self.limit(change.file)
        if limit is None:
            raise RuntimeError(f"the tests of {change.file} fail already without a change")
        self.clean()
        copy = self.folder / change.file
        copy.parent.mkdir(parents=True)
        copy.write_text(text, encoding="latin-1")
        objects = self.objects(change.file, copy)
        if objects is None or not self.link(change.file, objects):
            return None
        return self.run([self.near_command()], limit)

    def objects(self, file, copy):
        if file.endswith(".cpp"):
            made = self.folder / "changed.o"
            words = ["clang++", *self.tree.arguments(file), "-w", "-include-pch", f"{self.tree.header}.pch", "-c",
                     str(copy), "-o", str(made)]
            return {file: made} if self.compile(words) else None
        objects = {}
        for number, test in enumerate(nearest_tests(file)):
            made = self.folder / f"test{number}.o"
            words = list(self.tree.commands[test])
            words[words.index("-o") + 1] = str(made)
            if not self.compile([words[0], f"-I{self.folder}", "-w", *words[1:]]):
                return None
            objects[f"{test}.o"] = made
        return objects

    def same_code(self, change, text):
        """Whether the optimised machine code is the same, byte for byte."""
        if not change.file.endswith(".cpp"):
            return False
        made = []
        self.clean()
        for name, content in (("was", self.tree.text(change.file)), ("is", text)):
            source = self.folder / "source.cpp"
            source.write_text(content, encoding="latin-1")
            made.append(self.folder / f"{name}.o")
            if not self.compile(["clang++", *self.tree.arguments(change.file), "-w", "-O2", "-c", str(source), "-o",
                                 str(made[-1])]):
                return False
        return made[0].read_bytes() == made[1].read_bytes()

    def whole(self, program):
        """All tests of the program, in several processes, as most of them wait."""
        self.clean()
        command = [str(self.tree.build / "bin" / program), "--gtest_fail_fast"]
        if program in ("foundation_tests", "common_tests"): # the others have a sandbox of their own
            command[:0] = [str(self.tree.build / "bin/znorb-sandbox"), "--"]
        return self.run([(command, {"GTEST_TOTAL_SHARDS": str(SHARDS), "GTEST_SHARD_INDEX": str(i)})
                         for i in range(SHARDS)], 300)

    def far(self, change, text):
        """All that depends on it, built and tested in the tree itself: nothing, a test, or None when it has no form."""
        place = self.tree.sources / change.file
        place.write_text(text, encoding="latin-1")
        try:
            for program in PROGRAMS[LAYERS.index(change.file.split("/")[0]):]:
                if not self.tree.has_built(program):
                    return None
                by = self.whole(program)
                if by:
                    return by
            return ""
        finally:
            place.write_text(self.tree.text(change.file), encoding="latin-1")

