"""Paths of the site under test, and of the build that it is made from."""

import os
import pathlib
import sys

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("VELTO_BUILD") or REPOSITORY / "build" / "windows")
SITE = pathlib.Path(os.environ.get("VELTO_SITE") or REPOSITORY / "build" / "site")
HOST = BUILD / "bin" / "velto-host.exe"
WINE_PREFIX = BUILD / "wine"
SECONDS = 1_700_000_000  # the time of the commit, for programs that would write the present one

sys.path[:0] = [str(REPOSITORY / "scripts"), str(REPOSITORY / "tests" / "system")]
