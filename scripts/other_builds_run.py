"""Builds the module in other ways, runs `velto-host check` under Wine on each build, and writes the verdicts into docs/check.md.

clang      clang compiles the module, GCC links it
libraries  the module uses a logging library without a file, and libraries for the registry and the codec that were built apart

The reports go to build/other-builds.
"""

import json
import shutil
import sys

import measuring

SCRIPT = measuring.Script("other-builds", __doc__)
MODULE = "LibVeltoAudioHandler"
COMPILER = "x86_64-w64-mingw32-g++-posix"
PLATFORM = measuring.REPOSITORY / "platform"
LOGGING = measuring.REPOSITORY / "tests" / "check" / "other_builds" / "logger.cpp"
CHECK_TIMEOUT_S = 1800


def build_library(folder, name, sources, uses=()):
    """Makes a folder as a host platform delivers a library: include/NAME and lib. uses: libraries that it needs. Returns the
    folder."""
    root = folder / "platform" / name
    shutil.rmtree(root, ignore_errors=True)
    (root / "lib").mkdir(parents=True)
    shutil.copytree(PLATFORM / name, root / "include" / name, ignore=shutil.ignore_patterns("*.cpp", "*.txt"))
    for source in sources:
        command = [COMPILER, "-std=c++20", "-O2", "-DUNICODE", "-D_UNICODE", "-DNOMINMAX", "-D_WIN32_WINNT=0x0A00",
                   "-I", PLATFORM, "-I", measuring.BUILD / "windows" / "ffmpeg" / "include",
                   "-c", source, "-o", root / f"{source.stem}.o"]
        measuring.run_logged(root / f"{source.stem}.log", f"compiling {source.name}", command, root)
    archive = ["x86_64-w64-mingw32-ar", "rcs", root / "lib" / f"libother{name}.a", *sorted(root.glob("*.o"))]
    measuring.run_logged(root / "archive.log", f"making the library {name}", archive, root)
    for library in uses:
        shutil.copy2(library, root / "lib" / f"libuses-{library.name}")  # behind the library that needs it
    return root


def libraries(folder):
    """The options of CMake for a build with other libraries."""
    ffmpeg = sorted((measuring.BUILD / "windows" / "ffmpeg" / "lib").glob("*.dll.a"))
    registry, codec = (sorted((PLATFORM / name).glob("*.cpp")) for name in ("registry", "codec"))
    return [f"-DVELTO_PLATFORM_LOGGING={build_library(folder, 'logging', [LOGGING])}",
            f"-DVELTO_PLATFORM_REGISTRY={build_library(folder, 'registry', registry)}",
            f"-DVELTO_PLATFORM_CODEC={build_library(folder, 'codec', codec, ffmpeg)}"]


# Of each build: the toolchain file, and a function from its folder to further options of CMake.
BUILDS = {"clang": ("clang-mingw.cmake", lambda folder: []), "libraries": ("mingw.cmake", libraries)}


def build(name):
    """Builds the module. Returns the DLL."""
    toolchain, options = BUILDS[name]
    folder = SCRIPT.folder() / name
    folder.mkdir(exist_ok=True)
    SCRIPT.say(f"building {name}")
    configure = ["cmake", "-G", "Ninja", "-S", measuring.REPOSITORY, "-B", folder, "-DCMAKE_BUILD_TYPE=RelWithDebInfo",
                 f"-DCMAKE_TOOLCHAIN_FILE={measuring.REPOSITORY}/cmake/{toolchain}", "-DBUILD_TESTING=OFF", "-DVELTO_WERROR=OFF",
                 f"-DVELTO_FFMPEG_ROOT={measuring.BUILD}/windows/ffmpeg", *options(folder)]
    measuring.run_logged(folder / "configure.log", f"configuring {name}", configure, folder)
    command = ["cmake", "--build", folder, "--target", MODULE]
    measuring.run_logged(folder / "build.log", f"building {name}", command, folder)
    return folder / "bin" / f"{MODULE}.dll"


def check(name, module, level):
    """Runs velto-host check on a private sound server. Returns the report."""
    from rig import paths, session
    SCRIPT.say(f"checking {name} at level {level}")
    report = SCRIPT.folder() / f"{name}.json"
    report.unlink(missing_ok=True)
    world = session.Session(f"other-builds-{name}", microphones=(session.MICROPHONE_48K,))
    try:
        host = world.host("check", "--module", paths.to_windows(module), "--level", str(level),
                          "--report-json", paths.to_windows(report))
        code = host.wait(CHECK_TIMEOUT_S)
    finally:
        world.close()
    if not report.exists():
        raise RuntimeError(f"velto-host check of {name} ended with {code} and without a report: {host.errors()[-500:]}")
    return json.loads(report.read_text("utf-8"))


def row(name, report):
    """A row of the table."""
    outcomes = [result["outcome"] for result in report["results"]]
    counts = ", ".join(f"{outcomes.count(outcome)} {outcome}" for outcome in sorted(set(outcomes)))
    failed = [result["name"] for result in report["results"] if result["outcome"] not in ("passed", "warned", "skipped")]
    return [name, report["verdict"], str(report["levelReached"]), counts, ", ".join(f"`{each}`" for each in failed) or "-"]


def measure(options):
    # clang, and what the builds and the sound server need
    measuring.prepare("windows", setup=("--test",))
    sys.path.insert(0, str(measuring.REPOSITORY / "tests" / "system"))
    names = options.only or list(BUILDS)
    with SCRIPT.failures_go_to("check.md"):
        reports = {name: check(name, build(name), options.level) for name in names}
    SCRIPT.save({"reports": reports})
    rows = [row(name, report) for name, report in reports.items()]
    text = measuring.section([f"Level {options.level}.", "",
                              *measuring.table(["build", "verdict", "level reached", "checks", "not passed"], rows)])
    if not options.show:
        SCRIPT.publish("check.md", text)
    return SCRIPT.finish(f"{name}: {report['verdict']}" for name, report in reports.items() if report["verdict"] != "passed")


SCRIPT.parser.add_argument("--only", action="append", choices=BUILDS, help="only this build; can be repeated")
SCRIPT.parser.add_argument("--level", type=int, default=7, metavar="N", help="of the checks, 1 to 10; default 7")
SCRIPT.parser.add_argument("--show", action="store_true", help="do not change docs/check.md")

if __name__ == "__main__":
    sys.exit(SCRIPT.run(measure))
