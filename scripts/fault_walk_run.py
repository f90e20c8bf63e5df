"""Injects every documented fault of every system call of the module, one at a time, under AddressSanitizer.

Writes the counts into docs/reliability.md.
"""

import sys

import fault_walk_page
import measuring

SCRIPT = measuring.Script("fault-walk", __doc__)
FOLDER = measuring.BUILD / "asan"


def measure(_options):
    measuring.prepare("asan")
    SCRIPT.say("injecting the faults")
    measuring.run_logged(SCRIPT.folder() / "test.log", "the fault walk",
                         ["ctest", "--output-on-failure", "--no-tests=error", "-R", r"^asan\.(unit|faults)$"], FOLDER)
    walks = fault_walk_page.read(FOLDER / "fault_walk")
    SCRIPT.save({"scenarios": walks})
    text = fault_walk_page.text(walks)
    print(f"\n{text}")
    SCRIPT.publish("reliability.md", text)
    return 0


if __name__ == "__main__":
    sys.exit(SCRIPT.run(measure))
