"""Writes the compile commands of a build in a form that clang-tidy and cppcheck understand. Called by scripts/lint.

lint_commands.py BUILD OUT: writes OUT/compile_commands.json and OUT/sources. For the Windows build, also writes OUT/msvc,
the commands that compile in Visual C++'s mode.
"""

import functools
import json
import pathlib
import re
import subprocess
import sys

REPOSITORY = pathlib.Path(__file__).resolve().parent.parent
OWN = [REPOSITORY / part for part in ("support", "handler", "playback", "render", "capture", "platform", "tools")]
REDIRECT = REPOSITORY / "tests" / "fakes" / "redirect.h"


@functools.cache
def headers_of(compiler):
    """Returns the folders with the C++ library's and Windows' headers. Leaves out GCC's own: clang has its own intrinsics."""
    text = subprocess.run([compiler, "-E", "-x", "c++", "-v", "/dev/null"],
                          check=True, capture_output=True, text=True).stderr
    listed = text.split("#include <...> search starts here:")[1].split("End of search list.")[0].split()
    return [folder for folder in listed if not re.search(r"/gcc/[^/]+/[^/]+/include(-fixed)?$", folder)]


def without_launcher(command):
    """The command of the compiler that a compiler cache would start."""
    return re.sub(r"^\S*ccache ", "", command)


def for_clang(command):
    # clang cannot read g++'s precompiled headers. Of the tests' precompiled header, only the redirection matters.
    redirection = f"-include {REDIRECT}" if "velto_module_under_test.dir" in command else ""
    command = re.sub(r"-Winvalid-pch -include \S+/cmake_pch\.hxx", redirection, command)
    compiler, arguments = command.split(" ", 1)
    # cppcheck reads only macros and folders, and would check the code of both systems without -U_WIN32.
    if "mingw32" not in compiler:
        return f"clang++ -U_WIN32 {arguments}"
    folders = " ".join(f"-isystem {folder}" for folder in headers_of(compiler))
    arguments = arguments.replace("-fno-keep-inline-dllexport ", "")
    return f"clang++ --target=x86_64-w64-mingw32 -D_WIN32 -nostdinc++ {folders} {arguments}"


def for_msvc(command):
    """Visual C++'s language mode and ABI. The headers remain MinGW-w64's and GCC's, which need GCC's macros."""
    compiler, arguments = command.split(" ", 1)
    arguments = re.sub(r"-Winvalid-pch -include \S+/cmake_pch\.hxx", "", arguments).replace("-fno-keep-inline-dllexport ", "")
    folders = " ".join(f"-isystem {folder}" for folder in headers_of(compiler))
    macros = "-fgnuc-version=12.2.0 -U_MSC_VER -D__MINGW32__ -D__MINGW64__ -D__STRICT_ANSI__ -D__declspec=__declspec"
    return (f"clang++ --target=x86_64-pc-windows-msvc -fms-extensions -fms-compatibility {macros} -nostdinc++ {folders} "
            f"-fsyntax-only {arguments}")


def main():
    build, out = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
    chosen, msvc = {}, {}
    for entry in json.loads((build / "compile_commands.json").read_text("utf-8")):
        entry["command"] = without_launcher(entry["command"])
        source = pathlib.Path(entry["file"])
        # Prefers the product's command to the tests'. On Linux, only the tests compile some of the sources.
        if source.suffix == ".cpp" and any(folder in source.parents for folder in OWN):
            if entry["file"] not in chosen or "velto_module_under_test.dir" not in entry["command"]:
                chosen[entry["file"]] = {**entry, "command": for_clang(entry["command"])}
                if "mingw32" in entry["command"]:
                    msvc[entry["file"]] = for_msvc(entry["command"])
    out.mkdir(parents=True, exist_ok=True)
    (out / "compile_commands.json").write_text(json.dumps(list(chosen.values()), indent=1), "utf-8")
    (out / "msvc").write_text("".join(f"{command}\n" for _, command in sorted(msvc.items())), "utf-8")
    # The sources in folders named "portable" are the same in both builds: the native build's turn is enough for clang-tidy.
    sources = [source for source in map(pathlib.Path, sorted(chosen)) if not (msvc and "portable" in source.parts)]
    (out / "sources").write_text("".join(f"{source}\n" for source in sources), "utf-8")


if __name__ == "__main__":
    main()
