"""Runs two calls of MINUTES in total through the DLL under Wine, in both directions at once, and checks them.

In the first call the sender's clock is 200 ppm fast, in the second call 200 ppm slow. The sound at both ends is
compared with the original; memory, handles, threads and delay are measured. The results are in build/soak: results.json
and soak.png. A run of at least 60 minutes also writes its figures and its plot into docs/reliability.md.
"""

import contextlib
import sys

import measuring

SCRIPT = measuring.Script("soak", __doc__)
PPM = 200
MIN_MINUTES_FOR_PAGE = 60


def measure(options):
    if not options.minutes >= 1:
        SCRIPT.parser.error("MINUTES must be at least 1")
    measuring.prepare("windows")
    # Imported here, because they need packages that the set-up installs.
    from rig import processes, session
    import call
    import call_figures
    import plot
    processes.install_handlers()
    load = measuring.load_average()
    calls = []
    with contextlib.closing(session.Session("soak", microphones=(session.MICROPHONE_48K,))) as world:
        for name, ppm in (("fast", PPM), ("slow", -PPM)):
            SCRIPT.say(f"{options.minutes / 2:g} minutes with the sender's clock {PPM} ppm {name}")
            calls.append(call.Call(world, name, 30 * options.minutes, ppm))
    results = [call_figures.of(each) for each in calls]
    missed = [reason for each in results for reason in call_figures.missed(each)]
    SCRIPT.save({"calls": results, "loadAverageAtStart": load})
    picture = SCRIPT.folder() / "soak.png"
    plot.draw(calls, picture)
    verdict = f"Result: {'; '.join(missed) if missed else 'all goals are met'}."
    text = measuring.section([*call_figures.table(results), "", verdict])
    if options.minutes >= MIN_MINUTES_FOR_PAGE:
        (measuring.DOCS / "soak.png").write_bytes(picture.read_bytes())
        SCRIPT.publish("reliability.md", text)
    return SCRIPT.finish(missed)


if __name__ == "__main__":
    SCRIPT.parser.add_argument("minutes", type=float, metavar="MINUTES", help="length of both calls together, at least 1")
    sys.exit(SCRIPT.run(measure))
