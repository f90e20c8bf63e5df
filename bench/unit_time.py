"""Relates measured times to the 21.3 ms of sound in a unit."""

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
    """Converts processor time for a second of sound to the time for a unit."""
    return ms_per_second * US / 1000
