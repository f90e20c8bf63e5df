"""Makes the packages that others can ship, in build/package:

  velto-audio-handler-VERSION-windows-x64.zip   the DLLs, velto-host, header, import libraries, CMake package, licences,
                                                documents
  velto-audio-handler-VERSION-symbols.zip       debug information and PDB files of the DLLs and of velto-host
  velto-audio-handler-VERSION-source.tar.xz     the sources of the commit
  velto-ffmpeg-VERSION-source.tar               the source of FFmpeg's DLLs, and how they were configured
  SHA256SUMS                                    the checksums of the four

The sources of the commit are unpacked and built from clean. velto-host check examines the DLLs up to level 8; its report is in
the package, which is not made if the module breaks its contract. The first archive is tested as unpacked. Two runs on one
commit give identical files, except for the report, and unless they are signed.
"""

import argparse
import filecmp
import io
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tarfile
import tempfile
import zipfile

import package_archives
import package_parts
import site_run
import symbols_run
import wine_program

REPOSITORY = pathlib.Path(__file__).resolve().parent.parent
OUT = REPOSITORY / "build" / "package"
FAILURES = (OSError, RuntimeError, subprocess.SubprocessError)
# The report of velto-host check in the package, and the level up to which it examines the module.
REPORTS = ("doc/check-report.json", "doc/check-report.html")
CHECK_LEVEL = 8
# Each signature changes the file. They are made before anything is computed from the files.
SIGNED = (".dll", ".exe")

README = """LibVeltoAudioHandler {version} for 64-bit Windows 10 or later

bin/         LibVeltoAudioHandler.dll, the FFmpeg DLLs that it needs in its folder, and velto-host.exe, a console program
             that plays and records through the DLL: velto-host --help
include/     the C interface, velto/audio_handler.h
lib/         import libraries for Visual C++ (.lib) and MinGW-w64 (.dll.a), the list of exports (.def), the CMake package
             VeltoAudioHandler, the pkg-config file velto-audio-handler
share/       example hosts in C, with a CMake project
doc/         the documents as pages for a browser, which need no network: index.html; check-report.html says what
             velto-host check found in the DLLs of this package
licenses/    LICENSE and NOTICE of the package; the texts and copyright lines of the parts of others
sbom.spdx.json   the bill of materials, in SPDX 2.3
SHA256SUMS   the checksums of all other files

Ship the five DLLs of bin/ with the folder licenses/. A host loads LibVeltoAudioHandler.dll at run time, or links it:

  find_package(VeltoAudioHandler {major} REQUIRED)
  add_executable(host host.c)
  target_link_libraries(host PRIVATE Velto::AudioHandler)   # or Velto::headers, to load it at run time
  velto_copy_runtime(host)                                  # copies the DLLs next to host.exe

To find out whether the DLLs are those that were checked, and whether they work on your PC:

  bin\\velto-host check --verify doc\\check-report.json
  bin\\velto-host check --level 8 --listen --report-html report.html

The folder may be moved. Debug information and sources are in archives of their own, next to this one; that of FFmpeg's
sources has to be offered to everyone who gets the FFmpeg DLLs.

Built from commit {commit}.
"""

FFMPEG_README = """The source of the FFmpeg {version} DLLs in LibVeltoAudioHandler's package

This is Debian's source package, unchanged. The DLLs are under the GNU Lesser General Public License, version 2.1 or later.
configure-options has the options of FFmpeg's configure script, one in each line. ffmpeg-for-windows.sh has the commands, for
Debian 12 or 13 with g++-mingw-w64-x86-64-posix, nasm and make. To use another build, replace the DLLs of the package.
"""


def say(text):
    print(f"package: {text}", flush=True)


def run(*command, log=None, **options):
    """Runs a command. If it fails, raises RuntimeError with the end of its output."""
    result = subprocess.run([str(part) for part in command], stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                            errors="replace", **options)
    if log:
        log.parent.mkdir(parents=True, exist_ok=True)
        log.write_text(result.stdout, "utf-8")
    if result.returncode != 0:
        end = "".join(f"    | {line}\n" for line in result.stdout.splitlines()[-30:])
        raise RuntimeError(f"{pathlib.Path(str(command[0])).name} failed:\n{end}")
    return result.stdout


def git(*arguments, repository=REPOSITORY, **options):
    return subprocess.run(["git", "-C", str(repository), *arguments], check=True, stdout=subprocess.PIPE,
                          **options).stdout.decode().strip()


class Sources:
    """The commit to pack, or, with changes allowed, the files of the working tree."""

    def __init__(self, repository, allow_dirty, is_checked=True):
        self.repository = repository
        self.is_checked = is_checked
        self.commit = git("rev-parse", "HEAD", repository=repository)
        self.seconds = int(os.environ.get("SOURCE_DATE_EPOCH")
                           or git("log", "-1", "--format=%ct", repository=repository))
        changes = git("status", "--porcelain", repository=repository)
        self.is_dirty = bool(changes)
        if changes and not allow_dirty:
            raise RuntimeError(f"the working tree has changes; commit them, or add --allow-dirty:\n{changes}")
        self.packed = self._commit_of_changes() if changes else self.commit

    def _commit_of_changes(self):
        """A commit of all files in the working tree, on no branch. Its time is that of the last commit."""
        with tempfile.TemporaryDirectory() as folder:
            environment = dict(os.environ, GIT_INDEX_FILE=f"{folder}/index")
            for role in ("AUTHOR", "COMMITTER"):
                environment |= {f"GIT_{role}_NAME": "package", f"GIT_{role}_EMAIL": "package@localhost",
                                f"GIT_{role}_DATE": f"{self.seconds} +0000"}
            for command in (("read-tree", "HEAD"), ("add", "--all")):
                git(*command, repository=self.repository, env=environment)
            tree = git("write-tree", repository=self.repository, env=environment)
            return git("commit-tree", tree, "-p", "HEAD", "-m", "package: working tree", repository=self.repository,
                       env=environment)

    @property
    def version(self):
        text = git("show", f"{self.packed}:CMakeLists.txt", repository=self.repository)
        marks = ("-dirty" if self.is_dirty else "") + ("" if self.is_checked else "-unchecked")
        return re.search(r"project\(velto_audio_handler\s+VERSION ([\d.]+)", text)[1] + marks

    @property
    def about(self):
        return self.commit + ("-dirty" if self.is_dirty else "")

    @property
    def short_commit(self):
        """The commit as velto-host --version prints it."""
        return self.commit[:12] + ("+" if self.is_dirty else "")

    @property
    def folder(self):
        """The folder in the archive."""
        return f"velto-audio-handler-{self.version}"

    def archive(self):
        """The sources as a tar file. Its entries have the time of the commit."""
        return subprocess.run(["git", "-C", str(self.repository), "archive", "--format=tar", f"--prefix={self.folder}/",
                               self.packed], check=True, stdout=subprocess.PIPE).stdout


def compile_product(sources, work):
    """Builds the product from clean in the folder work, and returns its build folder."""
    with tarfile.open(fileobj=io.BytesIO(sources.archive())) as archive:
        archive.extractall(work)
    source, build = work / sources.folder, work / "build"
    # A compiler cache could return objects with the paths of another folder.
    environment = dict(os.environ, CCACHE_DISABLE="1", SOURCE_DATE_EPOCH=str(sources.seconds))
    say(f"building in {work}")
    run("cmake", "-G", "Ninja", "-S", source, "-B", build, "-DCMAKE_BUILD_TYPE=RelWithDebInfo",
        f"-DCMAKE_TOOLCHAIN_FILE={source}/cmake/mingw.cmake", "-DBUILD_TESTING=OFF", f"-DVELTO_SITE={work}/site",
        f"-DVELTO_COMMIT={sources.short_commit}",
        env=environment, log=work / "configure.log")
    run("cmake", "--build", build, "--target", "velto-product", env=environment, log=work / "build.log")
    say("making the documents")
    wine_program.prepare(build / "wine")
    site_run.make(source, build / "bin" / "velto-host.exe", build / "wine", work / "site", sources.seconds)
    return build


def make_folder(folder):
    folder.mkdir(parents=True, exist_ok=True)
    return folder


def cached(build, name):
    """A value from the CMake cache of a build."""
    found = re.search(rf"^{name}:\w+=(.*)$", (build / "CMakeCache.txt").read_text("utf-8"), re.M)
    if not found:
        raise RuntimeError(f"{build} has no {name}: configure it again")
    return found[1]


def sign(folder, command):
    """Runs COMMAND FILE for each binary."""
    for path in sorted(folder.iterdir()):
        if path.suffix in SIGNED:
            before = path.read_bytes()
            run("sh", "-c", f'{command} "$1"', "sign", path)
            if path.read_bytes() == before:
                raise RuntimeError(f"the command of --sign did not change {path.name}")


def check_module(folder, level=CHECK_LEVEL):
    """Examines the binaries in the folder of a package, and adds the report. Raises RuntimeError if the module breaks its
    contract, or if a check could not be made."""
    say(f"checking the module up to level {level}")
    doc = make_folder(folder / "doc")
    run(REPOSITORY / "tests" / "check" / "certify.py", level, doc,
        env=dict(os.environ, VELTO_WINDOWS_BIN=str(folder / "bin"), PYTHONDONTWRITEBYTECODE="1"))


def take_report(folder, archive, prefix):
    """Adds the report in another archive to the folder of a package. Raises RuntimeError if it is of other bytes. prefix: of
    Wine."""
    make_folder(folder / "doc")
    with zipfile.ZipFile(archive) as other:
        for name in REPORTS:
            (folder / name).write_bytes(other.read(name))
    result = wine_program.run(prefix, folder / "bin" / "velto-host.exe", "check", "--verify",
                              wine_program.to_windows(folder / REPORTS[0]))
    if result.returncode != 0:
        raise RuntimeError(f"the report in {archive.name} is not of this build:\n{result.stdout}{result.stderr}")


def stage_product(build, folder, version, commit, seconds, sign_command=None, add_report=None):
    """Fills a folder with the contents of the package. add_report(folder) adds the report of velto-host check."""
    run("cmake", "--install", build, "--prefix", folder)
    if sign_command:
        sign(folder / "bin", sign_command)
    if add_report:
        add_report(folder)
    text = README.format(version=version, major=version.split(".")[0], commit=commit)
    (folder / "README.txt").write_text(text.replace("\n", "\r\n"), "utf-8", newline="")
    bill = package_parts.sbom(folder, version, commit, seconds, cached(build, "VELTO_FFMPEG_USED"))
    (folder / "sbom.spdx.json").write_text(json.dumps(bill, indent=1, ensure_ascii=False) + "\n", "utf-8")
    listed = package_archives.files_of(folder)
    (folder / "SHA256SUMS").write_text(package_archives.sums(listed, folder), "utf-8")


def stage_symbols(build, folder):
    """Fills a folder with the symbols of all shipped binaries."""
    try:
        symbols_run.collect(build, folder)
    except symbols_run.FAILURES as problem:
        raise RuntimeError(str(problem)) from problem


def write_binaries(build, out, version, commit, seconds, sign_command=None, add_report=None):
    """Writes the package and the symbols of a build to the folder out."""
    with tempfile.TemporaryDirectory(prefix="velto-package-") as name:
        folder = pathlib.Path(name)
        stage_product(build, make_folder(folder / "product"), version, commit, seconds, sign_command, add_report)
        stage_symbols(build, make_folder(folder / "symbols"))
        product = make_folder(out) / f"velto-audio-handler-{version}-windows-x64.zip"
        symbols = out / f"velto-audio-handler-{version}-symbols.zip"
        package_archives.write_zip(product, folder / "product", seconds)
        package_archives.write_zip(symbols, folder / "symbols", seconds)
    return [product, symbols]


def write_own_source(sources, out):
    path = make_folder(out) / f"velto-audio-handler-{sources.version}-source.tar.xz"
    package_archives.write_xz(path, sources.archive())
    return path


def check_ffmpeg_source(ffmpeg, pin=REPOSITORY / "scripts" / "ffmpeg-source.sha256"):
    """Refuses DLLs without their source package, or of another source package than the tested one."""
    source = ffmpeg / "source"
    if not any(source.glob("*")):
        raise RuntimeError(f"{ffmpeg} has no source package in source/. The LGPL asks for it: build FFmpeg with scripts/setup")
    check = subprocess.run(["sha256sum", "--quiet", "--strict", "--check", pin], cwd=source, capture_output=True, text=True)
    if check.returncode != 0:
        raise RuntimeError("FFmpeg's DLLs were built from another source package than the one that this commit was tested "
                           f"with:\n{check.stdout}{check.stderr}"
                           f"Run scripts/test, then write the checksums of the files in {source} into {pin}.")


def write_ffmpeg_source(ffmpeg, out, seconds):
    top = f"velto-ffmpeg-{package_parts.ffmpeg_version(ffmpeg)}-source"
    files = sorted((ffmpeg / "source").glob("*"))
    contents = {f"{top}/{path.name}": path.read_bytes() for path in files}
    contents[f"{top}/configure-options"] = (ffmpeg / "configure-options").read_bytes()
    contents[f"{top}/ffmpeg-for-windows.sh"] = (REPOSITORY / "scripts" / "ffmpeg-for-windows.sh").read_bytes()
    contents[f"{top}/README.txt"] = FFMPEG_README.format(version=package_parts.ffmpeg_version(ffmpeg))
    path = out / f"{top}.tar"
    package_archives.write_tar(path, contents, seconds)
    return path


def make(sources, work, out, sign_command=None, add_report=None):
    """Builds in work, writes the four archives to out and returns their paths, and the build folder. add_report: as for
    stage_product."""
    build = compile_product(sources, work)
    check_ffmpeg_source(pathlib.Path(cached(build, "VELTO_FFMPEG_USED")))
    archives = write_binaries(build, out, sources.version, sources.about, sources.seconds, sign_command,
                              add_report)
    ffmpeg = pathlib.Path(cached(build, "VELTO_FFMPEG_USED"))
    return [*archives, write_own_source(sources, out), write_ffmpeg_source(ffmpeg, out, sources.seconds)], build


def compare_with_second_build(sources, archives):
    """Builds once more in a folder of another name and length, and compares the archives. The report of the first build has to
    be one of the second build, too: a second report would contain other measured values."""
    with tempfile.TemporaryDirectory(prefix="velto second build ") as name:
        work = pathlib.Path(name) / "work"
        add_report = (lambda folder: take_report(folder, archives[0], work / "build" / "wine")) if sources.is_checked else None
        second, _ = make(sources, work, pathlib.Path(name) / "out", add_report=add_report)
        different = [one.name for one, other in zip(archives, second) if not filecmp.cmp(one, other, shallow=False)]
    if different:
        raise RuntimeError(f"a second build gave other files: {', '.join(different)}")
    say("a second build in another folder gave identical files")


def test(product, build, with_demo):
    """Runs the tests of packages on the archive, and the demo with its binaries."""
    environment = dict(os.environ, VELTO_BUILD=str(build), VELTO_PACKAGES=str(product.parent), PYTHONDONTWRITEBYTECODE="1",
                       VELTO_FFMPEG_ROOT=cached(build, "VELTO_FFMPEG_USED"))
    for path in sorted((REPOSITORY / "tests" / "package").glob("test_*.py")):
        say(f"testing: {path.stem.removeprefix('test_')}")
        run(sys.executable, path, env=environment, log=OUT / "work" / f"{path.stem}.log")
    if with_demo:
        say("testing: a call with the unpacked binaries")
        with tempfile.TemporaryDirectory(prefix="velto unpacked ") as folder:
            zipfile.ZipFile(product).extractall(folder)
            run(sys.executable, REPOSITORY / "tests" / "system" / "demo.py",
                env=dict(environment, VELTO_WINDOWS_BIN=f"{folder}/bin"), log=OUT / "work" / "demo.log")


def arguments():
    parser = argparse.ArgumentParser(prog="scripts/package", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter,
                                     epilog="Exit code: 0, 1 if a step fails, 2 for wrong arguments.")
    parser.add_argument("--allow-dirty", action="store_true",
                        help="pack the working tree although it has changes; the names then have -dirty")
    parser.add_argument("--sign", metavar="COMMAND",
                        help="sign each DLL and program in place with COMMAND FILE, which the shell runs")
    parser.add_argument("--twice", action="store_true", help="build a second time elsewhere and compare the archives")
    parser.add_argument("--no-check", action="store_true",
                        help="do not examine the module with velto-host check; the names then have -unchecked")
    parser.add_argument("--no-demo", action="store_true", help="do not test the package with sound")
    parser.add_argument("--no-tests", action="store_true", help="do not test the package at all")
    options = parser.parse_args()
    if options.sign and options.twice:
        parser.error("--twice cannot compare signed files: a signature has the time")
    return options


def main():
    options = arguments()
    try:
        sources = Sources(REPOSITORY, options.allow_dirty, is_checked=not options.no_check)
        run(REPOSITORY / "scripts" / "setup", "--site" if options.no_tests and options.no_check else "--test")
        shutil.rmtree(OUT, ignore_errors=True)
        add_report = check_module if sources.is_checked else None
        archives, build = make(sources, OUT / "work", OUT, options.sign, add_report)
        if options.twice:
            compare_with_second_build(sources, archives)
        (OUT / "SHA256SUMS").write_text(package_archives.sums(archives, OUT), "utf-8")
        if not options.no_tests:
            test(archives[0], build, with_demo=not options.no_demo)
    except FAILURES as problem:
        print(f"package: error: {problem}", file=sys.stderr)
        return 1
    for path in archives:
        say(f"{path.relative_to(REPOSITORY)}: {path.stat().st_size / 1e6:.1f} MB")
    return 0


if __name__ == "__main__":
    sys.exit(main())
