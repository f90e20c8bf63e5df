"""Reads the module's log file."""

import datetime
import pathlib
import re

from . import waiting

# Texts of lines that several tests look for.
FIRST_FRAME = "VeltoWriteStream has received1 frame"
IDLE_RELEASE = "No audio data for 4mins, release audio resource."

_LINE = re.compile(r"^(\S+ \S+) \[(\d+)\] \[(\w+)\] \[([^\]]*)\] (.*)$")


class ModuleLog:
    """The module writes each message through two loggers. The second line ends with the name of the reporting function
    in parentheses. Only these lines are read and counted here."""

    def __init__(self, path):
        self.path = pathlib.Path(path)

    def text(self):
        return self.path.read_text("utf-8", "replace") if self.path.exists() else ""

    def _lines(self, containing):
        return [line for line in self.text().splitlines() if containing in line]

    def messages(self, containing="", tag=""):
        """Returns the messages that end with a function's name, in order. `tag` is the end of that name."""
        found = []
        for line in self._lines(containing):
            match = _LINE.match(line)
            message = match.group(5) if match else line
            if message.endswith(f"{tag})") and "(" in message and containing in message:
                found.append(message)
        return found

    def count(self, containing, tag=""):
        return len(self.messages(containing, tag))

    def time_of(self, containing):
        """Wall time (as in time.time()) of the first line with this text, or None."""
        return next(iter(self._times(containing)), None)

    def times_of(self, containing):
        """Wall times of the messages that count() counts."""
        return list(self._times(containing, lambda message: message.endswith(")") and "(" in message))

    def _times(self, containing, is_wanted=lambda message: True):
        for line in self._lines(containing):
            match = _LINE.match(line)
            if match and containing in match.group(5) and is_wanted(match.group(5)):
                yield datetime.datetime.strptime(match.group(1), "%Y-%m-%d %H:%M:%S.%f").timestamp()

    def wait_for(self, containing, timeout_s=30, times=1):
        waiting.until(lambda: self.count(containing) >= times, f'"{containing}" in {self.path.name}', timeout_s)
