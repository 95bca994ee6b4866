"""The table, its place in the page, the JSON file and the plot."""

import json
import math
import textwrap

from rows import Row

PREFIXES = ((1e9, "G"), (1e6, "M"), (1e3, "k"), (1, ""), (1e-3, "m"), (1e-6, "µ"), (1e-9, "n"))


def number(value, unit):
    if value is None:
        return "-"
    if unit == "B":
        return f"{value / 1024 / 1024:.2f} MiB"
    if unit == "/s":
        return f"{value:,.0f}/s"
    scale, prefix = next((pair for pair in PREFIXES if abs(value) >= pair[0]), PREFIXES[-1])
    return f"{value / scale:.3g} {prefix}{unit}"


def ratio(row):
    if row.ratio is None:
        return "-"
    if row.ratio_quartiles is None:
        return f"{row.ratio:.2f}"
    low, high = row.ratio_quartiles
    return f"{row.ratio:.2f} ({low:.2f} to {high:.2f})"


HEADINGS = (
    "what",
    "baseline",
    "baseline's",
    "tool's",
    "ratio (quartiles)",
    "limit",
    "met",
    "for information",
)


def table(rows):
    """A table in Markdown that reads well as plain text."""
    lines = [HEADINGS]
    for row in rows:
        lines.append(
            (
                row.what,
                row.baseline,
                number(row.baseline_value, row.unit),
                number(row.figure, row.unit),
                ratio(row),
                row.limit,
                "yes" if row.met else "no",
                row.information,
            )
        )
    widths = [max(map(len, column)) for column in zip(*lines)]
    lines.insert(1, tuple("-" * width for width in widths))
    return "\n".join(
        "| " + " | ".join(cell.ljust(width) for cell, width in zip(line, widths)) + " |"
        for line in lines
    )


PAGE_BEGIN = "<!-- what `scripts/benchmark --update-page` has measured -->\n"
PAGE_END = "<!-- end of what was measured -->\n"


def fill(text):
    """The text in lines of the pages' width."""
    return textwrap.fill(text, 100)


def update_page(path, machine, rows):
    """Puts the machine and the table between the two marks of a Markdown page."""
    put_into_page(path, PAGE_BEGIN, f"{fill(machine)}\n\n{table(rows)}\n")


def put_into_page(path, mark, text):
    """Puts the text between this mark of a page and the one that ends what was measured."""
    before, begin, rest = path.read_text(encoding="utf-8").partition(mark)
    _, end, after = rest.partition(PAGE_END)
    if not begin or not end:
        raise ValueError(f"{path} lacks the marks of what was measured")
    path.write_text(before + begin + text + end + after, encoding="utf-8")


def write_json(path, machine, rows, listing):
    result = {
        "machine": machine,
        "rows": [row.as_json() for row in rows],
        "listing": [{"devices": size, "seconds": seconds} for size, seconds in listing],
    }
    path.write_text(json.dumps(result, indent=2) + "\n", encoding="utf-8")


def read_json(path):
    """The machine and the rows of such a file."""
    result = json.loads(path.read_text(encoding="utf-8"))
    return result["machine"], [Row(**row) for row in result["rows"]]


class LogPlot:
    """A drawing with two logarithmic axes."""

    WIDTH, HEIGHT, MARGIN = 720, 440, 70

    def __init__(self, points):
        self._ranges = [
            (math.floor(math.log10(min(values))), math.ceil(math.log10(max(values))))
            for values in zip(*points)
        ]
        self._parts = [
            f'<svg xmlns="http://www.w3.org/2000/svg" width="{self.WIDTH}" height="{self.HEIGHT}"'
            ' font-family="sans-serif" font-size="13">',
            '<rect width="100%" height="100%" fill="white"/>',
        ]

    def place(self, x, y):
        def share(value, axis):
            low, high = self._ranges[axis]
            return (math.log10(value) - low) / (high - low)

        return (
            self.MARGIN + share(x, 0) * (self.WIDTH - 2 * self.MARGIN),
            self.HEIGHT - self.MARGIN - share(y, 1) * (self.HEIGHT - 2 * self.MARGIN),
        )

    def text(self, x, y, text, anchor="middle"):
        self._parts.append(f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}">{text}</text>')

    def grid(self, x_label, y_unit):
        (left, right), (bottom, top) = self._ranges
        for exponent in range(left, right + 1):
            x, y = self.place(10**exponent, 10**bottom)
            self.line([(10**exponent, 10**bottom), (10**exponent, 10**top)], "#dddddd")
            self.text(x, y + 20, f"{10**exponent:,}")
        for exponent in range(bottom, top + 1):
            x, y = self.place(10**left, 10**exponent)
            self.line([(10**left, 10**exponent), (10**right, 10**exponent)], "#dddddd")
            self.text(x - 8, y + 4, number(10.0**exponent * 1.0000001, y_unit), "end")
        self.text(self.WIDTH / 2, self.HEIGHT - 20, x_label)

    def line(self, points, colour, dashes=""):
        places = " ".join("{:.1f},{:.1f}".format(*self.place(*point)) for point in points)
        self._parts.append(
            f'<polyline points="{places}" fill="none" stroke="{colour}" stroke-width="1.5"'
            f' stroke-dasharray="{dashes}"/>'
        )

    def dots(self, points, colour):
        for point in points:
            x, y = self.place(*point)
            self._parts.append(f'<circle cx="{x:.1f}" cy="{y:.1f}" r="4" fill="{colour}"/>')

    def write(self, path):
        path.write_text("\n".join([*self._parts, "</svg>\n"]), encoding="utf-8")


def write_plot(path, listing):
    """The time to list n devices, and n log n through the last point."""
    last_size, last_seconds = listing[-1]
    share = last_seconds / (last_size * math.log(last_size))
    expected = [(size, share * size * math.log(size)) for size, _ in listing]
    plot = LogPlot(listing + expected)
    plot.grid("devices", "s")
    plot.line(expected, "#888888", "6 4")
    plot.line(listing, "#1f5fa8")
    plot.dots(listing, "#1f5fa8")
    plot.text(plot.WIDTH / 2, 30, "Time to list n devices (dots) and n log n (dashes)")
    plot.write(path)
