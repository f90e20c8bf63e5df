"""The median of repeated measurements, and how far they scatter."""

import numpy


def of(values):
    """Returns the median and the quartiles."""
    low, median, high = numpy.percentile(list(values), (25, 50, 75))
    return {"median": float(median), "quartiles": [float(low), float(high)]}


def text(spread, digits=2):
    """'1.05 (1.03 to 1.08)'"""
    low, high = spread["quartiles"]
    return f"{spread['median']:.{digits}f} ({low:.{digits}f} to {high:.{digits}f})"
