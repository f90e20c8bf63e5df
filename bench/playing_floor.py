"""Processor time of playing, by the module and by the floor, in turns."""

import contextlib
import os
import pathlib
import time

from rig import media, paths, processes, session

import measuring
import spread
import unit
import write_path

TITLE = "comparing the processor time of playing with its floor"
MAX_RATIO = 1.15
ROUNDS = 8
SETTLE_S = 5   # for opening the sound device and filling all buffers
WINDOW_S = 12
END_S = 2      # the program plays longer than it is watched
PLAYERS = ("module", "floor")


def processor_seconds(pid):
    """The time that the threads of a process have run, in user and in system mode."""
    nanoseconds = 0
    for thread in os.listdir(f"/proc/{pid}/task"):
        with contextlib.suppress(FileNotFoundError):  # the thread has ended
            nanoseconds += int(pathlib.Path(f"/proc/{pid}/task/{thread}/schedstat").read_text("ascii").split()[0])
    return nanoseconds / 1e9


def play(world, player, file, number):
    """Returns the processor time in ms for a second of sound."""
    log = world.folder / f"{player}-{number}.out"
    environment = {**world.prefix.environment, "WINEPATH": paths.to_windows(paths.WINDOWS_BIN),
                   "VELTO_LOG_FILE": paths.to_windows(world.folder / "playing.log")}
    with open(log, "wb") as out:
        program = processes.start(["wine", paths.TEST_BIN / "velto-playing-bench.exe", player, paths.to_windows(file),
                                   str(SETTLE_S + WINDOW_S + END_S)], env=environment, stdout=out, stderr=out)
    processes.give_sound_priority(program.pid)
    time.sleep(SETTLE_S)
    streams = len(world.server.streams())
    begin, used = time.monotonic(), processor_seconds(program.pid)
    time.sleep(WINDOW_S)
    passed, used = time.monotonic() - begin, processor_seconds(program.pid) - used
    code = program.wait(60)
    if code != 0 or streams != 2:
        raise RuntimeError(f"velto-playing-bench.exe {player} had {streams} streams and ended with {code}; its output: {log}")
    return 1000 * used / passed


def measure(_options):
    file = write_path.as_adts(media.speech("speech"))
    times = {player: [] for player in PLAYERS}
    with contextlib.closing(session.Session("bench-playing-floor")) as world:
        for number in range(ROUNDS):
            for player in PLAYERS if number % 2 == 0 else reversed(PLAYERS):
                times[player].append(play(world, player, file, number))
    return {"msPerSecond": times,
            "ratio": spread.of(module / floor for module, floor in zip(times["module"], times["floor"]))}


def table(measured):
    rows = [[player, f"{spread.text(ms)} ms", unit.with_percent(unit.us_per_unit(ms["median"]), 0)]
            for player, ms in ((player, spread.of(measured["msPerSecond"][player])) for player in PLAYERS)]
    rows.append(["ratio", spread.text(measured["ratio"]), f"goal: at most {MAX_RATIO}"])
    return [*measuring.table(["played by", "processor time for 1 s of sound", "per unit"], rows), "", unit.NOTE,
            f"Medians of {ROUNDS} rounds of {WINDOW_S} s each, and their quartiles."]


def missed(measured):
    ratio = measured["ratio"]["median"]
    if ratio > MAX_RATIO:
        yield f"playing takes {ratio:.2f} times the processor time of its floor; the goal is at most {MAX_RATIO}"
