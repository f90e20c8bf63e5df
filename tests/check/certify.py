#!/usr/bin/python3
"""Runs velto-host check, of the folder VELTO_WINDOWS_BIN, on a private audio server with a loudspeaker and a microphone:

  certify.py LEVEL FOLDER

Writes check-report.json and check-report.html to the folder. The exit code is that of velto-host check. scripts/package runs
this file."""

import os
import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "system"))

from rig import paths, processes, session

TIMEOUT_S = 1800
REPORTS = {"--report-json": "check-report.json", "--report-html": "check-report.html"}


def certify(level, folder):
    """Returns the exit code of velto-host check, and prints its output."""
    options = [word for option, name in REPORTS.items() for word in (option, paths.to_windows(folder / name))]
    with_sound = session.Session("certify", microphones=(session.MICROPHONE_48K,))
    try:
        host = with_sound.host("check", "--level", level, *options)
        code = host.wait(TIMEOUT_S)
        print(host.output(), host.errors(), sep="\n", flush=True)
    finally:
        with_sound.close()
    return code


def main():
    level, folder = int(sys.argv[1]), pathlib.Path(sys.argv[2])
    processes.install_handlers()
    for variable in ("PULSE_SERVER", "PULSE_SINK", "PULSE_RUNTIME_PATH"):
        os.environ.pop(variable, None)
    folder.mkdir(parents=True, exist_ok=True)
    return certify(level, folder)


if __name__ == "__main__":
    sys.exit(main())
