"""Runs the stress tests that take too long for scripts/test, about 20 minutes, on the DLL under Wine.

They cover faults of the sound server during a call, a long storm (concurrent calls while the default devices change),
200 loads and unloads of the DLL, and 200 process ends during a storm. The figures go into docs/reliability.md.
"""

import subprocess
import sys

import measuring

SCRIPT = measuring.Script("storms", __doc__)
FOLDER = measuring.REPOSITORY / "tests" / "storms"


def measure(_options):
    measuring.prepare("--tests", "windows")
    import storm_figures  # imported here, because it needs packages that the set-up installs
    load = measuring.load_average()
    storm_figures.clear()
    # Each file runs in its own process, and each test has its own sound server and Wine prefix.
    failed = [name for name in ("faults.py", "cycles.py") if subprocess.run([FOLDER / name], check=False).returncode != 0]
    found = storm_figures.read()
    SCRIPT.save({**found, "loadAverageAtStart": load, "failed": failed})
    verdict = f"tests failed in {', '.join(f'tests/storms/{name}' for name in failed)}" if failed else "all tests passed"
    text = "\n".join([measuring.measured(), "", *storm_figures.lines(found), "", f"Result: {verdict}."]) + "\n"
    print(f"\n{text}", flush=True)
    SCRIPT.publish("reliability.md", text)
    return SCRIPT.finish([f"{verdict}; the reasons are above, logs are in build/system"] if failed else [])


if __name__ == "__main__":
    sys.exit(SCRIPT.run(measure))
