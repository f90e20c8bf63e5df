"""Injects every documented fault of every system call of the module, one at a time, under AddressSanitizer.

Writes the counts into docs/reliability.md, and the faults with their log lines and remedies into docs/faults.md.
"""

import shutil
import sys

import fault_walk_page
import measuring

SCRIPT = measuring.Script("fault-walk", __doc__)
FOLDER = measuring.BUILD / "asan"


def measure(_options):
    measuring.prepare("asan")
    SCRIPT.say("injecting the faults")
    counts = FOLDER / "fault_walk"
    shutil.rmtree(counts, ignore_errors=True)  # those of an earlier run
    failure = ""
    with SCRIPT.failures_go_to("reliability.md"):
        try:
            measuring.run_logged(SCRIPT.folder() / "test.log", "the fault walk",
                                 ["ctest", "--output-on-failure", "--no-tests=error", "-R", r"^asan\.(unit|faults)$"], FOLDER)
        except RuntimeError as problem:
            if not all((counts / f"{name}.txt").exists() for name in fault_walk_page.SCENARIOS):
                raise
            failure = measuring.without_paths(problem)  # the counts say how many faults had unexpected results
        walks = fault_walk_page.read(counts)
    SCRIPT.save({"scenarios": walks, "failure": failure})
    missed = [failure] if failure else []
    missed += [f"{walk['findings']} unexpected results of the {name} scenario" for name, walk in walks.items() if walk["findings"]]
    text = f"Counted {measuring.when()}.\n\n{fault_walk_page.text(walks)}\n{measuring.verdict(missed)}\n"
    print(f"\n{text}")
    SCRIPT.publish("reliability.md", text)
    fault_walk_page.publish_fault_tables(counts)
    SCRIPT.say("docs/faults.md is updated")
    return SCRIPT.finish(missed)


if __name__ == "__main__":
    sys.exit(SCRIPT.run(measure))
