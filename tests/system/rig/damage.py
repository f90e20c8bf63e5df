"""Decides whether the machine damaged a recording.

A stall is one that the stall monitor saw, or a time in which a host's thread waited for a processor. If there was a stall at
each damaged place, a few places are accepted. With more of them, the recording is repeated.

Not each delay of a program is seen as a stall: a few short pauses are also accepted without one, and listed. Sound that is
missing without a stall is a failure, and so are more or longer pauses.
"""

from dataclasses import dataclass
from typing import NamedTuple

from . import compare

# Sound that was written or read during a stall is heard up to a second later: the module queues 0.43 s, and the endpoint
# 0.3 s of the speaker's or 0.5 s of the microphone's sound. The microphone's sound can also be lost before a stall is noticed.
BEFORE_S = 0.5
AFTER_S = 1.0
ACCEPTED_PER_MINUTE = 4
LONGEST_PAUSE_S = 1.0  # with the windows that it damages


class DamagedWithoutStall(AssertionError):
    """The machine did not stall, and sound is missing or there are more pauses than are accepted."""


class SoundDamaged(AssertionError):
    """The sound is damaged at more places than are accepted, and the machine stalled at each of them."""


class Place(NamedTuple):
    """Damaged sound, between two wall times."""
    begin: float
    end: float
    what: str
    is_loss: bool = False  # sound is missing: a pause only delays it


@dataclass
class Stall:
    """A period in which the machine kept a thread waiting that needed to run."""
    begin: float  # wall time, as in time.time()
    end: float

    def reaches(self, begin, end):
        return self.begin - BEFORE_S <= end and begin <= self.end + AFTER_S


def check(places, stalls, accepted=ACCEPTED_PER_MINUTE):
    """Raises DamagedWithoutStall for damage outside of stalls that is more than `accepted` short pauses, and SoundDamaged for
    more than `accepted` places within stalls. Returns a note about accepted places, or ""."""
    outside = [place for place in places if not any(stall.reaches(place.begin, place.end) for stall in stalls)]
    pauses = _pauses(outside)
    is_refused = len(pauses) > accepted or any(place.is_loss for place in outside)
    if is_refused or any(end - begin > LONGEST_PAUSE_S for begin, end in pauses):
        raise DamagedWithoutStall(f"damaged without a stall of the machine: {_listed(outside)}")
    notes = [f"paused without a known stall: {_listed(outside)}"] if outside else []
    within = [place for place in places if place not in outside]
    if within:
        longest = max(stall.end - stall.begin for stall in stalls)
        notes.append(f"damaged while the machine stalled, for {longest:.2f} s at most: {_listed(within)}")
    if len(within) > accepted:
        raise SoundDamaged(notes[-1])
    return "; ".join(notes)


def _pauses(places):
    """(begin, end) of each pause. Places that follow each other closely belong to one pause."""
    pauses = []
    for place in sorted(places):
        if pauses and place.begin <= pauses[-1][1] + compare.WINDOW_S:
            pauses[-1] = (pauses[-1][0], max(place.end, pauses[-1][1]))
        else:
            pauses.append((place.begin, place.end))
    return pauses


def places_in(result, time_of, windows=None):
    """The damaged windows and the slips of a comparison, for check(). time_of(frame): the wall time at which a frame of the
    recording was heard or read. windows: only these, without the slips of the others."""
    chosen = result.windows if windows is None else windows
    found = [(window, f"{window.start_s:.1f} s", False) for window in chosen if window.state == compare.DAMAGED]
    for window, frames in result.slips_at:
        if any(window is each for each in chosen):
            found.append((window, f"a slip of {frames} frames at {window.start_s:.1f} s", frames < 0))
    return [Place(*map(time_of, result.bounds(window)), what, is_loss) for window, what, is_loss in found]


def _listed(places):
    descriptions = [place.what for place in places]
    more = f", and {len(descriptions) - 8} more" if len(descriptions) > 8 else ""
    return ", ".join(descriptions[:8]) + more
