"""Decides whether the machine damaged a recording.

A stall is one that the stall monitor saw, or a time in which a host's thread waited for a processor. If there was a stall at
each damaged place, a few places are accepted, and listed. With more of them, the machine has spoiled the recording, which is
repeated. A damaged place without a stall is a failure. Only in a spoiled recording, a small part of the places may be without one.
"""

from dataclasses import dataclass
from typing import NamedTuple

from . import compare

# Sound that was written or read during a stall is heard up to a second later: the module queues 0.43 s, and the endpoint
# 0.3 s of the speaker's or 0.5 s of the microphone's sound. The microphone's sound can also be lost before a stall is noticed.
BEFORE_S = 0.5
AFTER_S = 1.0
ACCEPTED_PER_MINUTE = 4
# Sound that the module had queued can be lost later than AFTER_S after a period of many stalls.
MOST_OUTSIDE = 0.05  # the largest part of the damaged places in a spoiled recording that may be without a stall


class DamagedWithoutStall(AssertionError):
    """The sound is damaged at a place at which the machine did not stall."""


class SoundDamaged(AssertionError):
    """The machine spoiled the recording: the sound is damaged at more places than are accepted, and the machine stalled at
    (nearly) all of them. Or stalls made a gap too long."""


class Place(NamedTuple):
    """Damaged sound, between two wall times."""
    begin: float
    end: float
    what: str


@dataclass
class Stall:
    """A period in which the machine kept a thread waiting that needed to run."""
    begin: float  # wall time, as in time.time()
    end: float

    def reaches(self, begin, end):
        return self.begin - BEFORE_S <= end and begin <= self.end + AFTER_S


def check(places, stalls, accepted=ACCEPTED_PER_MINUTE):
    """Raises DamagedWithoutStall for a place outside of stalls, and SoundDamaged for more than `accepted` places within them.
    Returns a note about accepted places, or ""."""
    refuse_spoiled(places, stalls, accepted)
    _, outside = _divided(places, stalls)
    if outside:
        raise DamagedWithoutStall(f"damaged without a stall of the machine: {_listed(outside)}")
    return _note(places, stalls) if places else ""


def refuse_spoiled(places, stalls, accepted=ACCEPTED_PER_MINUTE):
    """Raises SoundDamaged if the machine spoiled the recording."""
    inside, outside = _divided(places, stalls)
    if len(inside) > accepted and len(outside) <= MOST_OUTSIDE * len(places):
        raise SoundDamaged(_note(inside, stalls))


def refuse_longer_gap(begin, end, excess_s, stalls):
    """Raises SoundDamaged if the stalls around a gap between two wall times can have made it, or the damage in it, longer by
    excess_s: by their time, and AFTER_S in which their effect is heard."""
    within = sorted(((stall.begin, stall.end) for stall in stalls if stall.reaches(begin, end)))
    stalled_s, until = 0.0, 0.0
    for first, last in within:
        stalled_s += max(last - max(first, until), 0.0)
        until = max(until, last)
    if within and excess_s <= stalled_s + AFTER_S:
        raise SoundDamaged(f"a gap, or the damage in it, is {excess_s:.2f} s too long, and the machine stalled for {stalled_s:.2f} s in it")


def places_in(result, time_of, windows=None):
    """The damaged windows and the slips of a comparison, for check(). time_of(frame): the wall time at which a frame of the
    recording was heard or read. windows: only these, without the slips of the others."""
    chosen = result.windows if windows is None else windows
    found = [(window, f"{window.start_s:.1f} s") for window in chosen if window.state == compare.DAMAGED]
    for window, frames in result.slips_at:
        if any(window is each for each in chosen):
            found.append((window, f"a slip of {frames} frames at {window.start_s:.1f} s"))
    places = []
    for window, what in found:
        begin, end = result.bounds(window)
        places.append(Place(time_of(begin - 1), time_of(end), what))  # what follows lost sound was heard or read after the loss
    return places


def _divided(places, stalls):
    """Returns (places at which the machine stalled, other places)."""
    inside, outside = [], []
    for place in places:
        reached = any(stall.reaches(place.begin, place.end) for stall in stalls)
        (inside if reached else outside).append(place)
    return inside, outside


def _note(places, stalls):
    longest = max(stall.end - stall.begin for stall in stalls)
    return f"damaged while the machine stalled, for {longest:.2f} s at most: {_listed(places)}"


def _listed(places):
    descriptions = [place.what for place in places]
    more = f", and {len(descriptions) - 8} more" if len(descriptions) > 8 else ""
    return ", ".join(descriptions[:8]) + more
