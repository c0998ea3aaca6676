"""script/mutants' machinery: mutants.py SCRATCH [FILE|FOLDER...]

Four rounds, each over what the one before has not found: the nearest tests, several mutants at a time; the optimised
machine code, which some changes leave as it is; all tests of the layer and of those above; and with all that depends
on it built anew, those of the executable too.
"""
import sys
import threading
from collections import Counter
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

from changes import changes_of
from ledger import Ledger, entries, outdated
from tree import LAYERS, PROGRAMS, ROOT, Tree
from trial import SHARDS, Workshop

REASONS = ROOT / "tests/mutants/equivalent.txt"
WORKERS = SHARDS * 2


class Run:
    def __init__(self, scratch, chosen):
        self.tree = Tree()
        self.ledger = Ledger(self.tree.place / "verdicts", self.tree.tests())
        self.scratch = scratch
        self.chosen = chosen
        self.guard = threading.Lock()
        self.local = threading.local()
        self.workers = 0

    def prepare(self):
        self.tree.read()
        with ThreadPoolExecutor(SHARDS // 2) as pool:
            lists = list(pool.map(lambda f: changes_of(self.tree.sources, f, self.tree.precompiled(f)), self.files()))
        self.changes = [change for changes in lists for change in changes]
        self.reasons = {(e.file, e.function, e.was, e.is_now): e for e in entries(REASONS)}

    def files(self):
        """The sources before the headers: they take less time."""
        files = [f for layer in LAYERS for f in (ROOT / layer).rglob("*") if f.suffix in (".cpp", ".h")]
        names = [str(f.relative_to(ROOT)) for f in files
                 if not self.chosen or any(f == c or c in f.parents for c in self.chosen)]
        return sorted(names, key=lambda n: (LAYERS.index(n.split("/")[0]), n.endswith(".h"), n))

    def unmade_entries(self):
        made = {self.place(c) for c in self.changes}
        files = {c.file for c in self.changes}
        for place, entry in self.reasons.items():
            if entry.file in files and place not in made:
                yield f"{REASONS.name}:{entry.line}: no such change is made in {entry.file} {entry.function}"

    @staticmethod
    def place(change):
        return change.file, change.function, change.was, change.is_now

    def workshop(self):
        if not hasattr(self.local, "workshop"):
            with self.guard:
                self.workers += 1
                self.local.workshop = Workshop(self.tree, self.workers, self.scratch)
        return self.local.workshop

    def round(self, name, words, workers, trial):
        """Tries those about whom no more is known than these words."""
        open_ones = [c for c in self.changes if self.word(c) in words]
        done = 0

        def one(change):
            nonlocal done
            text = change.applied_to(self.tree.text(change.file))
            word, by = trial(self.workshop(), change, text)
            with self.guard:
                done += 1
                self.ledger.write(change, word, by)
                print(f"[{done}/{len(open_ones)}] {name}: {change.file}:{change.line} {change.kind}: {word} {by}",
                      flush=True)

        with ThreadPoolExecutor(workers) as pool:
            for result in [pool.submit(one, c) for c in open_ones]:
                result.result()

    def word(self, change):
        verdict = self.ledger.of(change)
        return verdict.word if verdict else "new"

    @staticmethod
    def near(workshop, change, text):
        if change.file == "responder/main.cpp": # of the executable alone
            return "passed", "no test is near"
        by = workshop.near(change, text)
        return ("unmade", "does not compile") if by is None else ("killed", by) if by else ("passed", "")

    @staticmethod
    def same(workshop, change, text):
        if workshop.same_code(change, text):
            return "equivalent", "the compiler makes the same code of it"
        return "differs", ""

    def layers(self, workshop, change, text):
        if change.file.endswith(".h") or change.file == "responder/main.cpp" or self.place(change) in self.reasons:
            return "unfound", "" # a header is in more than the linker can replace
        by = workshop.layers(change, text)
        return ("killed", by) if by else ("unfound", "")

    def far(self, workshop, change, text):
        if self.place(change) in self.reasons:
            return "survived", "as its reason says"
        by = workshop.far(change, text)
        return ("unmade", "does not compile") if by is None else ("killed", by) if by else ("survived", "")

    def go(self):
        self.round("near", ("new",), WORKERS, self.near)
        self.round("code", ("passed",), WORKERS, self.same)
        if any(self.word(c) in ("differs", "unfound") and self.place(c) not in self.reasons for c in self.changes):
            self.try_without_change()
        self.round("layers", ("differs",), 2, self.layers)
        self.round("far", ("unfound",), 1, self.far)

    def try_without_change(self):
        """A test that fails here without a change would find all of them."""
        for program in PROGRAMS:
            self.workshop().clean()
            by = self.workshop().test(self.tree.build / "bin" / program, 300, SHARDS)
            if by:
                raise SystemExit(f"{program} fails already without a change: {by}")

    def report(self):
        counts = Counter()
        layers = Counter()
        left = {self.place(c) for c in self.changes if self.word(c) != "killed"} # lines that stand there twice
        for change in self.changes:
            verdict = self.ledger.of(change)
            word = verdict.word
            entry = self.reasons.get(self.place(change))
            if word == "survived" and entry:
                word = "equivalent"
            if word == "killed" and entry and self.place(change) not in left:
                print(f"REFUTED: {REASONS.name}:{entry.line}: {verdict.by} finds it")
                counts["refuted"] += 1
            counts[word] += 1
            layers[change.file.split("/")[0], word] += 1
            if word == "survived":
                print(f"SURVIVED: {change.file}:{change.line} {change.function}: {change.kind}\n"
                      f"- {change.was}\n+ {change.is_now}")
            if word == "equivalent" and entry:
                print(f"equivalent: {change.file}:{change.line}: {change.is_now}: {entry.reason}")
        for layer in LAYERS:
            self.total(f"{layer}: ", {w: n for (l, w), n in layers.items() if l == layer})
        self.total("mutants: ", counts)
        return 1 if counts["survived"] or counts["refuted"] else 0

    @staticmethod
    def total(title, counts):
        killed, same, left = (counts.get(w, 0) for w in ("killed", "equivalent", "survived"))
        if killed + same + left:
            print(f"{title}{killed + same + left} made, {killed} killed, {same} equivalent, {left} survived")


def main():
    chosen = [(ROOT / word).resolve() for word in sys.argv[2:]]
    run = Run(sys.argv[1], chosen)
    complaints = list(outdated(ROOT, REASONS))
    if not complaints:
        run.prepare()
        complaints = list(run.unmade_entries())
    if complaints:
        print("\n".join(complaints))
        return 1
    run.go()
    return run.report()


if __name__ == "__main__":
    sys.exit(main())
