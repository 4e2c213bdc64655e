"""Fills in the rows of one table. bench/tables.md says what their places mean."""
import math
import re
from statistics import median

SECONDS = {"s": 1, "ms": 1e-3, "us": 1e-6, "ns": 1e-9}
UNITS = {"items_per_second": "/s", "in_flight_MiB": " MiB", "added_kib": " KiB", "extra_%": " %"}
NO_ANSWER = "no answer"
RATIO = re.compile(r"(\d)(?:-(\d))?/(\d)( times)?")


def three_digits(value):
    digits = 2 - math.floor(math.log10(abs(value))) if value else 0
    return f"{round(value, digits):,.{max(digits, 0)}f}"


def amount(value, field):
    """The value with its unit. Times are in seconds."""
    if not field.endswith(("_time", "_ms", "_us")):
        return three_digits(value) + UNITS.get(field, "")
    unit = next((unit for unit, size in SECONDS.items() if abs(value) >= size), "ns")
    return f"{three_digits(value / SECONDS[unit])} {unit.replace('u', 'µ')}"


def spread(samples):
    """Half the range, in percent of the median."""
    middle = median(samples)
    return f" ±{(max(samples) - min(samples)) / abs(middle) * 50:.0f} %" if middle else ""


class Table:
    """`samples_of(program, benchmark, field)` returns one sample for each repetition.

    Without samples a row raises StatisticsError.
    """

    def __init__(self, samples_of):
        self.samples_of = samples_of
        self.figures = []  # Samples: of the table's first figure, then of the row's figures.

    def name_benchmarks(self, program, pattern):
        self.program, self.pattern = program, pattern

    def fill(self, row):
        places = re.findall(r"\{(.*?)\}", row)
        self.shows_spread = not any(RATIO.fullmatch(place) for place in places)
        del self.figures[1:]
        return "|".join(map(self.fill_cell, row.split("|")))

    def fill_cell(self, cell):
        text = re.sub(r"\{(.*?)\}", lambda place: self.fill_place(place[1]), cell)
        return f" {NO_ANSWER} " if NO_ANSWER in text else text

    def fill_place(self, place):
        ratio = RATIO.fullmatch(place)
        return self.ratio(*ratio.groups()) if ratio else self.figure(*place.split(" @"))

    def ratio(self, whole, part, unit, suffix):
        parts = self.figures[int(part)] if part else [0] * len(self.figures[int(whole)])
        columns = self.figures[int(whole)], parts, self.figures[int(unit)]
        if any(None in column for column in columns):
            return NO_ANSWER
        ratios = [(whole - part) / unit for whole, part, unit in zip(*columns)]
        middle = median(ratios)
        digits = 2 - (middle >= 10) - (middle >= 100)
        return f"{middle:.{digits}f}{suffix or ''}{spread(ratios)}"

    def figure(self, name, field="real_time"):
        benchmark = self.pattern
        for word in name.split(" ", self.pattern.count("*") - 1):
            benchmark = benchmark.replace("*", word, 1)
        if numbers := re.search(r"(\d)\.\.(\d)", benchmark):
            return self.span(benchmark, numbers, field)
        samples = self.samples_of(self.program, benchmark, field)
        self.figures += [samples] if self.figures else [samples, samples]
        if None in samples:
            return NO_ANSWER
        return amount(median(samples), field) + (spread(samples) if self.shows_spread else "")

    def span(self, benchmark, numbers, field):
        first, last = map(int, numbers.groups())
        medians = [
            median(self.samples_of(self.program, benchmark.replace(numbers[0], str(number)), field))
            for number in range(first, last + 1)]
        ends = [amount(end, field) for end in (min(medians), max(medians))]
        return " to ".join(dict.fromkeys(ends))
