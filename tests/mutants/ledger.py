"""What is known of the mutants: the verdicts of earlier runs, and the reasons why some cannot be found."""
import sys
from pathlib import Path

from collections import namedtuple

Verdict = namedtuple("Verdict", "word by")


LASTING = ("killed", "equivalent", "unmade")


class Ledger:
    """A line for each verdict, the last one of a mutant counts: a run that is interrupted loses nothing. That no test
    has found it is true for the tests as they were.
    """

    def __init__(self, path, tests):
        self.path = path
        self.tests = tests
        self.verdicts = {}
        if path.exists():
            for line in path.read_text().splitlines():
                fields = line.split("\t")
                if len(fields) == 7 and (fields[1] in LASTING or fields[6] == tests): # the last may have been cut off
                    self.verdicts[fields[0]] = Verdict(fields[1], fields[5])

    def write(self, change, word, by):
        self.verdicts[change.key] = Verdict(word, by)
        with self.path.open("a") as file:
            place = f"{change.file}:{change.line}"
            file.write("\t".join((change.key, word, place, change.kind, f"{change.was} -> {change.is_now}", by,
                                  self.tests)) + "\n")

    def of(self, change):
        return self.verdicts.get(change.key)


Entry = namedtuple("Entry", "line file function was is_now reason")


def entries(path):
    """Paragraphs of a file's and a function's name, pairs of lines that were and are then, and the reason."""
    result = []
    pairs = []
    file = function = was = None
    for number, line in enumerate(path.read_text().splitlines(), 1):
        if line.startswith("- "):
            was = line[2:]
        elif line.startswith("+ ") and was is not None:
            pairs.append((number, was, line[2:]))
        elif line.startswith("= ") and pairs:
            result += [Entry(n, file, function, w, i, line[2:]) for n, w, i in pairs]
            pairs = []
        elif line and not line.startswith("#"):
            if pairs:
                raise SystemExit(f"{path}:{number}: the reason is missing above this line")
            file, _, function = line.partition(" ")
    if pairs:
        raise SystemExit(f"{path}: the last reason is missing")
    return result


def outdated(root, path):
    """The entries whose line is no longer in its file."""
    texts = {}
    for entry in entries(path):
        if entry.file not in texts:
            source = root / entry.file
            texts[entry.file] = " ".join(source.read_text(encoding="latin-1").split()) if source.exists() else ""
        if entry.was not in texts[entry.file]:
            yield f"{path.name}:{entry.line}: {entry.file} has no '{entry.was}' any more"


def main():
    """ledger.py ROOT [FILE]: whether every reason still has its line, without building or finding anything."""
    root = Path(sys.argv[1])
    path = Path(sys.argv[2]) if len(sys.argv) > 2 else root / "tests/mutants/equivalent.txt"
    complaints = list(outdated(root, path))
    print("\n".join(complaints) or f"{len(entries(path))} reasons have their lines")
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main())
