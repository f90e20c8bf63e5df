"""Runs built programs under Wine, without a display and without a sound server."""

import sys

import places

sys.path.insert(0, str(places.REPOSITORY / "scripts"))

import wine_program
from wine_program import to_windows  # for the tests

HOST = places.BIN / "velto-host.exe"


def run(program, *arguments, timeout=240, **variables):
    # Without VELTO_LOG_FILE, the module logs to its usual file in the prefix.
    return wine_program.run(places.BUILD / "wine", program, *arguments, has_sound_driver=True, timeout_s=timeout,
                            **{"PULSE_SERVER": "unix:/nonexistent", "VELTO_LOG_FILE": None, **variables})


def run_host(*arguments, **options):
    return run(HOST, *arguments, **options)
