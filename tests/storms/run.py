#!/usr/bin/python3
"""Storms and faults of the sound server under Wine, and the page that tells of them.

Called by scripts/storms when everything is built.
"""

import datetime
import os
import pathlib
import subprocess
import sys

HERE = pathlib.Path(__file__).resolve().parent
REPOSITORY = HERE.parent.parent
sys.path[:0] = [str(REPOSITORY / "tests" / "system"), str(REPOSITORY / "bench"), str(REPOSITORY / "scripts")]

import machine  # noqa: E402  (found through the line above)
import notes  # noqa: E402
import section  # noqa: E402


def table():
    lines = ["| trouble during a call | what brings the sound back | speaker after | microphone after | processor meanwhile "
             "| streams: speaker, microphone |", "|---|---|---|---|---|---|"]
    for fault in notes.read("fault"):
        lines.append(f"| {fault['name']} | {fault['road']} | {fault['speakerS']:.1f} s | {fault['microphoneS']:.1f} s "
                     f"| {fault['cpuPercent']:.0f} % | {fault['streams']}, {fault['captures']} |")
    lines.append("")
    for storm in notes.read("storm"):
        lines.append(f"- A storm of {storm['seconds']} s: {storm['calls']} calls from eight threads under {storm['changes']} changes "
                     f"of the default devices; {storm['different']} returned something else than documented.")
    for loads in notes.read("loads"):
        lines.append(f"- The module loaded, stormed and freed {loads['loads']} times in one process: gone {loads['goneAfterS']:.0f} s "
                     f"after the last time; {loads['threadsBefore']} threads in the process before that, "
                     f"{loads['threadsAfter']} after.")
    for ends in notes.read("ends"):
        lines.append(f"- {ends['ends']} processes ended in the middle of a storm: {ends['asAsked']} with the host's exit code; "
                     f"{ends['failed']} ({100 * ends['failed'] / ends['ends']:.1f} %) crashed or got stuck after the host's last "
                     "words. Where they did is not examined.")
    return "\n".join(lines) + "\n"


def main():
    notes.FILE.parent.mkdir(parents=True, exist_ok=True)
    notes.FILE.unlink(missing_ok=True)
    environment = dict(os.environ, PYTHONDONTWRITEBYTECODE="1")
    failed = [name for name in ("faults.py", "cycles.py")
              if subprocess.run([HERE / name], env=environment, check=False).returncode != 0]
    if failed:
        print(f"storms: failed: {', '.join(failed)}", file=sys.stderr)
        return 1
    text = f"Run on {datetime.date.today().isoformat()}: {machine.describe()}.\n\n{table()}"
    print("\n" + text)
    section.write("scripts/storms", text, "reliability.md")
    print("storms: docs/reliability.md holds these figures now")
    return 0


if __name__ == "__main__":
    sys.exit(main())
