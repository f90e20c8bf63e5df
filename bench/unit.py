"""The time budget of a unit: a measured time as a percentage of the 21.3 ms that a unit of sound lasts."""

SAMPLES = 1024
RATE_HZ = 48000
US = SAMPLES / RATE_HZ * 1e6  # 21333 µs
NOTE = f"Percentages are parts of the {US:.0f} µs that a unit lasts."


def percent(microseconds):
    """'0.41 %', with at least one digit that is not 0."""
    part = 100 * microseconds / US
    return f"{part:.2f} %" if part >= 0.01 else f"{part:.1g} %" if part >= 0.0001 else f"{part:.5f} %"


def with_percent(microseconds, digits=1):
    return f"{microseconds:.{digits}f} µs ({percent(microseconds)})"


def us_per_unit(ms_per_second):
    """Processor time for a unit, from that for a second of sound."""
    return ms_per_second * US / 1000
