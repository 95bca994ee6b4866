"""What the table holds: a figure, the yardstick that was measured beside it, and their ratio."""

import statistics
from dataclasses import asdict, dataclass
from typing import Optional


@dataclass
class Row:
    what: str
    yardstick: str
    unit: str
    yardstick_value: Optional[float]
    figure: float
    ratio: Optional[float]
    ratio_quartiles: Optional[tuple]
    bar: str
    met: bool

    def as_json(self):
        return asdict(self)


def quartiles(samples):
    if len(samples) < 2:
        return (samples[0], samples[0])
    first, _, third = statistics.quantiles(samples, n=4, method="inclusive")
    return (first, third)


def compare(what, yardstick, unit, yardsticks, figures, at_most=None, at_least=None):
    """The row of samples that were taken in pairs. Its ratio is the median of the pairs' ratios."""
    ratios = [figure / base for figure, base in zip(figures, yardsticks)]
    ratio = statistics.median(ratios)
    if at_most is not None:
        bar, met = f"at most {at_most:.2f} times", ratio <= at_most
    else:
        bar, met = f"at least {at_least:.2f} times", ratio >= at_least
    return Row(
        what,
        yardstick,
        unit,
        statistics.median(yardsticks),
        statistics.median(figures),
        ratio,
        quartiles(ratios),
        bar,
        met,
    )
