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
PROCESSOR = 20 # seconds of a process, far more than any of these tests takes
OVERDUE = "its time is over"
SHARDS = 2 * (os.cpu_count() or 1)


def limits():
    resource.setrlimit(resource.RLIMIT_AS, (MEMORY, MEMORY))
    resource.setrlimit(resource.RLIMIT_CPU, (PROCESSOR, PROCESSOR))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    for number in (signal.SIGHUP, signal.SIGINT, signal.SIGQUIT): # ignored below nohup or "&", and tests look at that
        signal.signal(number, signal.SIG_DFL)


def end(process):
    """Ends what still runs, with its group; what is in a sandbox ends with the sandbox's first process."""
    if process.poll() is None:
        os.killpg(process.pid, signal.SIGKILL)
        process.wait()


def nearest_tests(file):
    """The test files of the same folder that include the header of that name or bear its name, or else all of it."""
    path = Path(file)
    header = str(path.with_suffix(".h"))
    folder = ROOT / "tests" / path.parent
    tests = sorted(folder.glob("*Test.cpp"))
    near = [t for t in tests if f'"{header}"' in t.read_text(encoding="latin-1") or t.name.startswith(path.stem)]
    return [str(t.relative_to(ROOT)) for t in near or tests]


class Workshop:
    """Where one mutant at a time is tried by the tests nearest to it."""

    def __init__(self, tree, number, scratch):
        self.tree = tree
        self.folder = Path(scratch) / str(number)
        self.temporary = Path(scratch) / f"{number}.tmp"
        self.seconds = {}
        self.codes = {}

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
                    outputs[i].seek(0)
                    output = outputs[i].read().decode(errors="replace")
                    if process.returncode != 0 or " ran. (" not in output: # a test may have ended it with 0
                        return self.reason(output, process.returncode)
                if time.monotonic() > until:
                    return OVERDUE
                time.sleep(0.05)
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

    def compile(self, words, limit=600):
        return subprocess.run(words, cwd=self.tree.build, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                              timeout=limit, check=False).returncode == 0

    def link(self, layer, objects, tests=None):
        """The layer's program with these objects instead of what they replace, and with all of its tests or these. Each
        stands where the other one would: in that order static objects are made.
        """
        words = []
        objects = dict(objects)
        mark = f"tests/CMakeFiles/{layer}_tests.dir/"
        for word in self.tree.links[layer]:
            if word.startswith(mark):
                test = "tests/" + word[len(mark):]
                if tests is not None and test.endswith("Test.cpp.o") and test[:-2] not in tests:
                    continue
                word = objects.pop(test, word)
            elif word.endswith(".a"): # a layer, or a library of others
                words += [objects.pop(file) for file in list(objects) if file.split("/")[0] == word.split("/")[0]]
            words.append(word)
        words[words.index("-o") + 1] = self.folder / "tests"
        return self.compile(words)

    def test(self, program, limit, shards=1):
        """In several processes, as most tests wait. In a sandbox, also those that need none: what they start ends."""
        command = [str(self.tree.build / "bin/znorb-sandbox"), "--", str(program), "--gtest_fail_fast"]
        return self.run([(command, {"GTEST_TOTAL_SHARDS": str(shards), "GTEST_SHARD_INDEX": str(i)})
                         for i in range(shards)], limit)

    def test_twice(self, program):
        """All tests; what finds a change so far away has to find it again."""
        return self.test(program, 180, SHARDS) and self.test(program, 180, SHARDS)

    def limit(self, file):
        """The time that the nearest tests may take, which they have to pass without a change."""
        if file not in self.seconds:
            objects = self.objects(file, self.tree.text(file))
            linked = objects and self.link(file.split("/")[0], objects, nearest_tests(file))
            began = time.monotonic()
            by = self.test(self.folder / "tests", 120) if linked else "?"
            if by:
                raise RuntimeError(f"the tests of {file} fail already without a change: {by}")
            self.seconds[file] = 20 + 5 * (time.monotonic() - began)
        return self.seconds[file]

    def near(self, change, text):
        """What finds it: nothing, a test, or None when no such program can be made."""
        limit = self.limit(change.file)
        objects = self.objects(change.file, text)
        if objects is None or not self.link(change.file.split("/")[0], objects, nearest_tests(change.file)):
            return None
        by = self.test(self.folder / "tests", limit)
        return self.test(self.folder / "tests", limit) if by == OVERDUE else by # it may be the machine that waits

    def layers(self, change, text):
        """What finds it among all tests of its layer and of those above: nothing, or a test."""
        objects = self.objects(change.file, text)
        for layer in LAYERS[LAYERS.index(change.file.split("/")[0]):]:
            by = self.test_twice(self.folder / "tests") if self.link(layer, objects) else "the linker"
            if by:
                return by
        return ""

    def objects(self, file, text):
        """What is compiled anew: the file itself, or where it is a header, its source and the nearest tests."""
        self.clean()
        copy = self.folder / file
        copy.parent.mkdir(parents=True)
        copy.write_text(text, encoding="latin-1")
        if file.endswith(".cpp"):
            made = self.folder / "changed.o"
            words = ["clang++", *self.tree.precompiled(file), "-w", "-c", str(copy), "-o", str(made)]
            return {file: made} if self.compile(words) else None
        objects = {}
        source = str(Path(file).with_suffix(".cpp"))
        for number, name in enumerate([source] * (source in self.tree.commands) + nearest_tests(file)):
            made = self.folder / f"object{number}.o"
            words = list(self.tree.commands[name])
            words[words.index("-o") + 1] = str(made)
            if not self.compile([words[0], f"-I{self.folder}", "-w", *words[1:]]):
                return None
            objects[f"{name}.o"] = made
        return objects

    def same_code(self, change, text):
        """Whether the optimised machine code is the same, byte for byte."""
        if not change.file.endswith(".cpp"):
            return False
        if change.file not in self.codes:
            self.codes[change.file] = self.code(change.file, self.tree.text(change.file))
        return self.code(change.file, text) == self.codes[change.file] is not None

    def code(self, file, text):
        self.clean()
        source, made = self.folder / "source.cpp", self.folder / "source.o"
        source.write_text(text, encoding="latin-1")
        words = ["clang++", *self.tree.arguments(file), "-w", "-O2", "-c", str(source), "-o", str(made)]
        return made.read_bytes() if self.compile(words) else None

    def far(self, change, text):
        """All that depends on it, built and tested in the tree itself: nothing, a test, or None when it has no form."""
        place = self.tree.sources / change.file
        place.write_text(text, encoding="latin-1")
        try:
            programs = PROGRAMS[LAYERS.index(change.file.split("/")[0]):]
            if change.file.endswith(".cpp"): # all but the executable's tests have had it already
                programs = programs[::-1]
            for program in programs:
                if not self.tree.has_built(program):
                    return None
                self.clean()
                by = self.test_twice(self.tree.build / "bin" / program)
                if by:
                    return by
            return ""
        finally:
            place.write_text(self.tree.text(change.file), encoding="latin-1")

