"""The pictures of docs/PERFORMANCE.md, drawn from its own tables: what they show is what stands there."""

import math
import os
import re
from html import escape

# As docs/demo.svg has them, for light and for dark surroundings.
STYLE = """text { font: 13px system-ui, "Segoe UI", "DejaVu Sans", sans-serif; fill: #1f2328 }
.back { fill: #f6f8fa; stroke: #d1d9e0 }
.head { font-weight: bold; font-size: 15px }
.ours { font-weight: bold; fill: #0550ae }
.note { fill: #59636e; font-size: 12px }
.value { paint-order: stroke; stroke: #f6f8fa; stroke-width: 4px; stroke-linejoin: round }
.grid { stroke: #d1d9e0; stroke-width: 1 }
.one { stroke: #59636e; stroke-width: 1.5 }
.we { fill: #0969da; stroke: #0969da }
.they { fill: #818b98; stroke: #818b98 }
.spread { stroke-width: 2.5 }
.line { fill: none; stroke-width: 2 }
.goal { stroke: #bc4c00; stroke-width: 2.5 }
@media (prefers-color-scheme: dark) {
text { fill: #e6edf3 }
.back { fill: #151b23; stroke: #3d444d }
.ours { fill: #79c0ff }
.note { fill: #9198a1 }
.value { stroke: #151b23 }
.grid { stroke: #3d444d }
.one { stroke: #9198a1 }
.we { fill: #4493f8; stroke: #4493f8 }
.they { fill: #7d8590; stroke: #7d8590 }
.line { fill: none }
.goal { stroke: #f0883e }
}"""

NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}
BYTES = {"B": 1, "KiB": 1024, "MiB": 1048576}


# ---- the tables ----------------------------------------------------------------------------------------------------

def rowsBelow(text, heading):
    """The cells of the table that begins so; without its two lines of headings."""
    lines = text[text.index("\n" + heading) + 1:].split("\n\n")[0].splitlines()
    return [[cell.strip() for cell in line.strip("|").split("|")] for line in lines[2:]]


def quantity(cell):
    """A number with its unit, in nanoseconds or bytes."""
    number, unit = cell.split()[:2]
    return float(number) * {**NANOSECONDS, **BYTES}[unit]


def numbers(cell):
    return [float(number) for number in re.findall("[0-9.]*[0-9]", cell)]


def asTime(nanoseconds):
    if nanoseconds == 0:
        return "0"
    for unit, size in (("s", 1e9), ("ms", 1e6), ("µs", 1e3)):
        if nanoseconds >= size * 0.9995:
            return f"{float(f'{nanoseconds / size:.3g}'):g} {unit}"
    return f"{nanoseconds:.3g} ns"


def asMemory(count):
    for unit, size in (("MiB", 1048576), ("KiB", 1024)):
        if count >= size:
            return f"{float(f'{count / size:.3g}'):g} {unit}"
    return f"{count:g} B"


# ---- axes ----------------------------------------------------------------------------------------------------------

class Axis:
    """Places values between two places of the picture; `ticks` are the values that get a line and a label."""

    def __init__(self, start, end, ticks, label, isLogarithmic=False):
        self.start, self.end, self.ticks, self.label = start, end, ticks, label
        self.measure = math.log if isLogarithmic else float

    def at(self, value):
        low, high = self.measure(self.ticks[0]), self.measure(self.ticks[-1])
        return self.start + (self.measure(value) - low) / (high - low) * (self.end - self.start)


def evenTicks(low, high, most):
    """Round numbers that hold both between them, `most` steps or fewer."""
    rough = (high - low) / most
    power = 10 ** math.floor(math.log10(rough))
    step = next(factor * power for factor in (1, 2, 2.5, 5, 10) if factor * power >= rough * 0.999)
    first, last = math.floor(low / step + 1e-9), math.ceil(high / step - 1e-9)
    return [number * step for number in range(first, last + 1)]


def powerTicks(values, base, unit=1):
    first = math.floor(math.log(min(values) / unit, base) + 1e-9)
    last = math.ceil(math.log(max(values) / unit, base) - 1e-9)
    return [unit * base ** power for power in range(first, max(last, first + 1) + 1)]


# ---- drawing -------------------------------------------------------------------------------------------------------

class Picture:
    def __init__(self, width, title, description):
        self.width, self.title, self.description, self.parts = width, title, description, []

    def text(self, x, y, text, kind="", anchor="start"):
        self.parts.append(f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}"'
                          + (f' class="{kind}"' if kind else "") + f">{escape(text, False)}</text>")

    def line(self, x1, y1, x2, y2, kind):
        self.parts.append(f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" class="{kind}"/>')

    def dot(self, x, y, kind):
        self.parts.append(f'<circle cx="{x:.1f}" cy="{y:.1f}" r="4.5" class="{kind}"/>')

    def bar(self, x, y, width, height, kind):
        self.parts.append(f'<rect x="{x:.1f}" y="{y:.1f}" width="{width:.1f}" height="{height}" class="{kind}"/>')

    def path(self, points, kind):
        self.parts.append(f'<polyline points="{" ".join(f"{x:.1f},{y:.1f}" for x, y in points)}" class="{kind}"/>')

    def below(self, axis, top, bottom):
        """The grid of a horizontal axis, with its labels under it."""
        for tick in axis.ticks:
            self.line(axis.at(tick), top, axis.at(tick), bottom, "grid")
            self.text(axis.at(tick), bottom + 16, axis.label(tick), "note", "middle")

    def beside(self, axis, left, right):
        for tick in axis.ticks:
            self.line(left, axis.at(tick), right, axis.at(tick), "grid")
            self.text(left - 6, axis.at(tick) + 4, axis.label(tick), "note", "end")

    def whole(self, height):
        head = [f'<svg xmlns="http://www.w3.org/2000/svg" role="img" width="{self.width}" height="{height}" '
                f'viewBox="0 0 {self.width} {height}">',
                f"<title>{escape(self.title)}</title>", f"<desc>{escape(self.description)}</desc>",
                f"<style>\n{STYLE}\n</style>",
                f'<rect x="0.5" y="0.5" width="{self.width - 1}" height="{height - 1}" rx="6" class="back"/>']
        return "\n".join(head + self.parts + ["</svg>"]) + "\n"


def beside(picture, axis, value, y, text):
    """The text of a dot: to its right, or to its left where that would leave the panel."""
    x = axis.at(value)
    isRight = x + 12 + 7 * len(text) < axis.end + 14
    picture.text(x + 10 if isRight else x - 10, y + 4.5, text, "value", "start" if isRight else "end")


# ---- what the daemon costs -----------------------------------------------------------------------------------------

ROW = 25


def drawPeers(picture, rows, top):
    """A column of dots for each figure; returns where it ends."""
    picture.text(20, top, "Beside other supervisors of processes", "head")
    picture.text(880, top, "logarithmic; further left is better", "note", "end")
    first, bottom = top + 56, top + 44 + ROW * len(rows)
    columns = (("until it takes commands", 1, asTime, 10, 1e6),
               ("one instance, until acknowledged", 2, asTime, 10, 1e6),
               ("idle memory (PSS)", 3, asMemory, 4, 262144))
    for number, (title, cell, label, base, unit) in enumerate(columns):
        values = [quantity(row[cell]) for row in rows]
        left = 165 + 252 * number
        axis = Axis(left, left + 190, powerTicks(values, base, unit), label, True)
        picture.text(left, top + 28, title)
        picture.below(axis, top + 38, bottom)
        for place, (row, value) in enumerate(zip(rows, values)):
            picture.dot(axis.at(value), first + ROW * place, "they" if place else "we")
            beside(picture, axis, value, first + ROW * place, label(value))
    for place, row in enumerate(rows):
        picture.text(20, first + 4.5 + ROW * place, row[0].split(":")[0].split(",")[0], "" if place else "ours")
    return bottom + 16


def drawTimes(picture, rows, top):
    picture.text(20, top, "Time, as a ratio to the least program that does the same: the floor", "head")
    picture.dot(24, top + 20, "we")
    picture.text(34, top + 24, "median of the rounds", "note")
    picture.line(180, top + 20, 204, top + 20, "they spread")
    picture.text(210, top + 24, "their quartiles", "note")
    picture.line(320, top + 13, 320, top + 27, "goal")
    picture.text(328, top + 24, "the goal: no more than this", "note")
    first, bottom = top + 56, top + 44 + ROW * len(rows)
    ranges = [numbers(row[3]) for row in rows]
    goals = [numbers(row[4])[:1] for row in rows]
    ticks = evenTicks(min(1, *(low for _, low, _ in ranges)), max(high for _, _, high in ranges), 7)
    axis = Axis(300, 720, ticks, lambda tick: f"{tick:.2f}")
    picture.below(axis, top + 40, bottom)
    picture.line(axis.at(1), top + 40, axis.at(1), bottom, "one")
    for place, (row, (ratio, low, high), goal) in enumerate(zip(rows, ranges, goals)):
        y = first + ROW * place
        picture.text(288, y + 4.5, row[0], "", "end")
        picture.line(axis.at(low), y, axis.at(high), y, "they spread")
        picture.dot(axis.at(ratio), y, "we")
        for value in goal:
            picture.line(axis.at(value), y - 8, axis.at(value), y + 8, "goal")
        picture.text(775, y + 4.5, f"{ratio:.3f}", "", "end")
        picture.text(880, y + 4.5, asTime(quantity(row[1])), "note", "end")
    return bottom + 16


def drawMemory(picture, rows, top):
    picture.text(20, top, "Idle memory", "head")
    bottom = top + 14 + 42 * len(rows)
    pairs = [(quantity(row[1]), quantity(row[2])) for row in rows]
    ticks = [tick * 1024 for tick in evenTicks(0, max(max(pair) for pair in pairs) / 1024, 7)]
    axis = Axis(300, 720, ticks, lambda tick: f"{tick / 1024:g} KiB")
    picture.below(axis, top + 14, bottom)
    for place, (row, (daemon, floor)) in enumerate(zip(rows, pairs)):
        y = top + 20 + 42 * place
        picture.text(288, y + 19, row[0].removeprefix("idle memory, "), "", "end")
        for line, (value, name, kind) in enumerate(((daemon, "znorbresponder", "we"), (floor, "the floor", "they"))):
            picture.bar(axis.start, y + 16 * line, axis.at(value) - axis.start, 11, kind)
            picture.text(880, y + 10 + 16 * line, f"{name} {asMemory(value)}", "" if line == 0 else "note", "end")
        for goal in numbers(row[4])[:1]:
            picture.line(axis.at(goal * floor), y - 2, axis.at(goal * floor), y + 13, "goal")
    return bottom + 16


def performance(text):
    figures = rowsBelow(text, "| figure |")
    peers = rowsBelow(text, "| | until it takes commands |")
    times = [row for row in figures if not row[0].startswith("idle memory")]
    memory = [row for row in figures if row[0].startswith("idle memory")]
    said = [f"{row[0]}: {row[1]} until it takes commands, {row[2]} for one instance, {row[3]}" for row in peers]
    said += [f"{row[0]}: {row[3]} times the floor" for row in figures]
    picture = Picture(900, "What the daemon costs: beside other supervisors, and beside the floor", "; ".join(said))
    end = drawPeers(picture, peers, 32)
    end = drawTimes(picture, times, end + 40)
    return picture.whole(drawMemory(picture, memory, end + 40) + 14)


# ---- how the costs grow --------------------------------------------------------------------------------------------

def drawPanel(picture, number, title, across, up, series):
    """Panel 0 to 3. `series` are named lines of points, the first of them the daemon's, which comes on top."""
    left, top = 76 + 450 * (number % 2), 32 + 300 * (number // 2)
    across.start, across.end = left, left + 330
    up.start, up.end = top + 226, top + 30
    picture.text(left - 56, top, title, "head")
    picture.below(across, up.end, up.start)
    picture.beside(up, left, across.end)
    for place, (_, points) in reversed(list(enumerate(series))):
        kind = "they" if place else "we"
        placed = [(across.at(x), up.at(y)) for x, y in points]
        picture.path(placed, kind + " line")
        for x, y in placed:
            picture.dot(x, y, kind)
    picture.text(placed[-1][0] - 4, placed[-1][1] - 10, up.label(series[0][1][-1][1]), "value", "end")
    for place, (name, _) in enumerate(series):
        picture.dot(left + 4 + 130 * place, top + 258, "they" if place else "we")
        picture.text(left + 14 + 130 * place, top + 262, name, "note")


def entriesPanel(figures):
    rows = [row for row in figures if row[0].startswith("PRINT of ")]
    lines = [(name, [(float(row[0].split()[2]), quantity(row[cell])) for row in rows])
             for name, cell in (("znorbresponder", 1), ("the floor", 2))]
    entries = Axis(0, 0, [0, 16, 32, 48, 64], lambda tick: f"{tick:g}" + (" entries" if tick == 64 else ""))
    time = Axis(0, 0, evenTicks(0, max(y for _, points in lines for _, y in points), 5), asTime)
    return "PRINT, by entries in the table", entries, time, lines


def bodyPanel(inside):
    rows = [row for row in inside if re.fullmatch(r"HTTP body of [0-9]+ \w+, over receiving", row[0])]
    lines = [(name, [(quantity(row[0].removeprefix("HTTP body of ").split(",")[0]), quantity(row[cell]))
                     for row in rows]) for name, cell in (("znorbresponder", 1), ("receiving alone", 2))]
    body = Axis(0, 0, powerTicks([x for x, _ in lines[0][1]], 64, 4), asMemory, True)
    time = Axis(0, 0, powerTicks([y for _, points in lines for _, y in points], 10), asTime, True)
    return "HTTP answer, by its length (logarithmic)", body, time, lines


def streamsPanel(inside):
    counts = {"without a stream": 0, "to one file stream": 1, "to two file streams": 2, "to four file streams": 4}
    rows = [(counts[row[0].removeprefix("log record ")], row) for row in inside if row[0].startswith("log record")]
    points = [(count, quantity(row[1])) for count, row in rows]
    streams = Axis(0, 0, [0, 1, 2, 3, 4], lambda tick: f"{tick}" + (" streams" if tick == 4 else ""))
    time = Axis(0, 0, evenTicks(0, max(y for _, y in points), 5), asTime)
    return "Log record, by the number of streams", streams, time, [("znorbresponder", points)]


def residentPanel(growth):
    points = [(0, 1)] + [(numbers(row[0])[0], numbers(row[1])[0]) for row in growth]
    more = Axis(0, 0, [0, 16, 32, 48, 64], lambda tick: f"+ {tick:g} MiB" if tick else "the floor's")
    ratio = Axis(0, 0, evenTicks(0, max(y for _, y in points), 7), lambda tick: f"{tick:.3g} ×")
    return "A launch, by the memory of who forks", more, ratio, [("any process that forks", points)]


def growing(text):
    figures, inside = rowsBelow(text, "| figure |"), rowsBelow(text, "| inside the process |")
    growth = rowsBelow(text, "| memory that the forking process holds |")
    panels = [entriesPanel(figures), bodyPanel(inside), streamsPanel(inside), residentPanel(growth)]
    said = [f"{title}: " + ", ".join(f"{up.label(y)} at {across.label(x)}" for x, y in series[0][1])
            for title, across, up, series in panels]
    picture = Picture(900, "How the costs grow", "; ".join(said))
    for number, panel in enumerate(panels):
        drawPanel(picture, number, *panel)
    return picture.whole(618)


def draw(folder):
    """Renews the pictures beside PERFORMANCE.md."""
    with open(os.path.join(folder, "PERFORMANCE.md"), encoding="utf-8") as file:
        text = file.read()
    for name, picture in (("performance.svg", performance), ("performance-growth.svg", growing)):
        with open(os.path.join(folder, name), "w", encoding="utf-8") as file:
            file.write(picture(text))
