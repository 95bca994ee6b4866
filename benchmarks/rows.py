"""What the table holds: a figure, the baseline that was measured beside it, and their ratio."""

import math
import statistics
from dataclasses import asdict, dataclass
from typing import Optional


class Nonsense(Exception):
    """A measured program did not do what it is measured for."""


@dataclass
class Row:
    what: str
    baseline: str
    unit: str
    baseline_value: Optional[float]
    figure: float
    ratio: Optional[float]
    ratio_quartiles: Optional[tuple]
    limit: str
    met: bool
    information: str = ""  # the ratio to something simpler, which has no limit

    def as_json(self):
        return asdict(self)


def require_measured(what, samples):
    if not samples or not all(math.isfinite(sample) and sample > 0 for sample in samples):
        raise Nonsense(f"{what}: the samples are {samples}")


def quartiles(samples):
    if len(samples) < 2:
        return (samples[0], samples[0])
    first, _, third = statistics.quantiles(samples, n=4, method="inclusive")
    return (first, third)


def ratios_of(figures, others):
    return [figure / other for figure, other in zip(figures, others)]


def information(name, figures, others):
    """What the column for information says of the samples of something simpler."""
    require_measured(name, others)
    return f"{statistics.median(ratios_of(figures, others)):.2f} × {name}"


def compare(what, baseline, unit, baselines, figures, at_most=None, at_least=None, beside=None):
    """The row of samples that were taken in pairs. Its ratio is the median of the pairs' ratios.

    beside is the name and the samples of something simpler.
    """
    require_measured(f"{what}, baseline", baselines)
    require_measured(what, figures)
    ratios = ratios_of(figures, baselines)
    ratio = statistics.median(ratios)
    if at_most is not None:
        limit, met = f"at most {at_most:.2f} times", ratio <= at_most
    else:
        limit, met = f"at least {at_least:.2f} times", ratio >= at_least
    return Row(
        what,
        baseline,
        unit,
        statistics.median(baselines),
        statistics.median(figures),
        ratio,
        quartiles(ratios),
        limit,
        met,
        information(beside[0], figures, beside[1]) if beside else "",
    )


def extra(what, baseline, baselines, figures, most_extra, beside):
    """The row of sizes in bytes, which may be so much above the baseline's."""
    require_measured(f"{what}, baseline", baselines)
    require_measured(what, figures)
    base, figure = statistics.median(baselines), statistics.median(figures)
    return Row(
        what,
        baseline,
        "B",
        base,
        figure,
        figure / base,
        None,
        f"at most {most_extra // (1024 * 1024)} MiB more",
        figure - base <= most_extra,
        information(beside[0], figures, beside[1]),
    )


def added(what, baseline, baselines, figures, at_most):
    """The row of samples in seconds that were taken in pairs, of which each may take so many more."""
    require_measured(f"{what}, baseline", baselines)
    require_measured(what, figures)
    more = statistics.median(figure - base for figure, base in zip(figures, baselines))
    return Row(
        what,
        baseline,
        "s",
        statistics.median(baselines),
        statistics.median(figures),
        None,
        None,
        f"at most {at_most * 1e6:.0f} µs more",
        more <= at_most,
    )
