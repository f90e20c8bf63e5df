#!/usr/bin/python3
"""Measures speed and memory of the shipped DLL under Wine and writes docs/performance.md.

Called by scripts/bench when everything is built.
"""

import argparse
import datetime
import json
import pathlib
import sys

REPOSITORY = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(REPOSITORY / "tests" / "system"))

from rig import media, paths, processes, session  # noqa: E402  (found through the line above)

import capture_path  # noqa: E402
import machine  # noqa: E402
import page  # noqa: E402
import playing  # noqa: E402
import write_path  # noqa: E402


def say(text):
    print(f"bench: {text}", flush=True)


def parse_arguments():
    parser = argparse.ArgumentParser(prog="scripts/bench", description="Measures speed and memory.")
    parser.add_argument("files", nargs="*", metavar="FILE", help="sound files to decode beside the speech")
    parser.add_argument("--minutes", type=float, default=10, help="length of the run that memory is watched in")
    parser.add_argument("--only", choices=("write-path", "capture-path", "playing"),
                        help="measure one thing, write no page")
    return parser.parse_args()


def main():
    processes.install_handlers()
    options = parse_arguments()
    speech = media.speech("speech")
    results = {"when": datetime.date.today().isoformat(), "machine": machine.describe()}
    world = session.Session("bench")
    try:
        if options.only in (None, "write-path"):
            say("timing calls of WriteStreamBuffer beside the bare decoder")
            results["writePath"] = write_path.measure(world, [speech, *options.files])
        if options.only in (None, "capture-path"):
            say("timing the capture path beside the bare encoder")
            results["capturePath"] = capture_path.measure(world, speech)
        if options.only in (None, "playing"):
            say(f"watching a host play for {options.minutes:g} minutes")
            results["playing"] = playing.measure(world, speech, 60 * options.minutes)
    except (RuntimeError, OSError, AssertionError) as problem:
        print(f"bench: failed: {problem}", file=sys.stderr)
        return 1
    finally:
        world.close()
    folder = paths.BUILD / "bench-results"
    folder.mkdir(parents=True, exist_ok=True)
    (folder / "results.json").write_text(json.dumps(results, indent=2) + "\n")
    print("\n" + page.tables(results))
    if not options.only:
        page.write(REPOSITORY / "docs" / "performance.md", results)
        say("docs/performance.md holds these figures now")
    missed = page.missed(results)
    for reason in missed:
        print(f"bench: missed: {reason}", file=sys.stderr)
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())
