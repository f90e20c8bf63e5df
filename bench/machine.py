"""What the figures were measured on."""

import os
import pathlib
import subprocess


def _processor():
    for line in pathlib.Path("/proc/cpuinfo").read_text().splitlines():
        if line.startswith("model name"):
            return line.partition(":")[2].strip()
    return "unknown processor"


def describe():
    wine = subprocess.run(["wine", "--version"], capture_output=True, text=True, check=True).stdout.split()[0]
    return f"{_processor()}, {os.cpu_count()} processors, {wine}"


def load():
    """How many processes wanted to run during the last minute, on average."""
    return os.getloadavg()[0]
