#!/usr/bin/python3
"""Holds a long call through the shipped DLL under Wine and watches it.

Called by scripts/soak when everything is built.
"""

import argparse
import datetime
import json
import pathlib
import sys

REPOSITORY = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path[:0] = [str(REPOSITORY / "tests" / "system"), str(REPOSITORY / "bench"), str(REPOSITORY / "scripts")]

from rig import paths, processes, session  # noqa: E402  (found through the line above)

import call  # noqa: E402
import machine  # noqa: E402
import plot  # noqa: E402
import section  # noqa: E402
import verdict  # noqa: E402

PPM = 200
FOR_THE_PAGE_MINUTES = 60


def parse_arguments():
    parser = argparse.ArgumentParser(prog="scripts/soak", description=__doc__.splitlines()[0])
    parser.add_argument("minutes", type=float, metavar="MINUTES",
                        help="length: half of it with a sender whose clock is 200 ppm fast, half with a slow one")
    return parser.parse_args()


def main():
    processes.install_handlers()
    sys.stdout.reconfigure(line_buffering=True)
    minutes = parse_arguments().minutes
    if not minutes >= 1:
        print("soak: error: at least 1 minute is needed", file=sys.stderr)
        return 2
    world = session.Session("soak", microphones=(session.MICROPHONE_48K,))
    calls = []
    try:
        for name, ppm in (("fast", PPM), ("slow", -PPM)):
            print(f"soak: {minutes / 2:g} minutes with a sender {abs(ppm)} ppm too {name}")
            calls.append(call.Call(world, name, 30 * minutes, ppm))
    except (RuntimeError, OSError, AssertionError) as problem:
        print(f"soak: failed: {problem}", file=sys.stderr)
        return 1
    finally:
        world.close()
    folder = paths.BUILD / "soak"
    folder.mkdir(parents=True, exist_ok=True)
    (folder / "figures.json").write_text(json.dumps([verdict.figures(each) for each in calls], indent=2) + "\n")
    plot.draw(calls, folder / "soak.png")
    text = f"Run on {datetime.date.today().isoformat()}: {machine.describe()}.\n\n{verdict.table(calls)}"
    print("\n" + text)
    if minutes >= FOR_THE_PAGE_MINUTES:
        (REPOSITORY / "docs" / "soak.png").write_bytes((folder / "soak.png").read_bytes())
        section.write("scripts/soak", text, "reliability.md")
        print("soak: docs/reliability.md holds these figures now")
    reasons = [reason for each in calls for reason in verdict.missed(each)]
    for reason in reasons:
        print(f"soak: missed: {reason}", file=sys.stderr)
    print(f"soak: {'failed' if reasons else 'passed'}; figures and plot are in build/soak/")
    return 1 if reasons else 0


if __name__ == "__main__":
    sys.exit(main())
