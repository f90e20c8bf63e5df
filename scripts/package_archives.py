"""Writes archives that depend on the names and contents of their files only: sorted, with one time for all."""

import hashlib
import io
import lzma
import stat
import tarfile
import time
import zipfile

PROGRAMS = (".dll", ".exe")


def files_of(root):
    return sorted(path for path in root.rglob("*") if path.is_file())


def write_zip(archive, root, seconds):
    """Packs the files under root. seconds: the time of all entries, since 1970."""
    moment = time.gmtime(seconds)[:6]
    with zipfile.ZipFile(archive, "w", zipfile.ZIP_DEFLATED, compresslevel=9) as out:
        for path in files_of(root):
            entry = zipfile.ZipInfo(path.relative_to(root).as_posix(), moment)
            entry.compress_type = zipfile.ZIP_DEFLATED
            entry.create_system = 3  # Unix, for the mode
            entry.external_attr = (stat.S_IFREG | (0o755 if path.suffix in PROGRAMS else 0o644)) << 16
            out.writestr(entry, path.read_bytes())


def write_tar(archive, contents, seconds):
    """contents: the text or bytes of each name."""
    with tarfile.open(archive, "w", format=tarfile.PAX_FORMAT) as out:
        for name, data in sorted(contents.items()):
            data = data.encode() if isinstance(data, str) else data
            entry = tarfile.TarInfo(name)
            entry.size, entry.mtime, entry.mode = len(data), seconds, 0o644
            out.addfile(entry, io.BytesIO(data))


def write_xz(archive, data):
    archive.write_bytes(lzma.compress(data, preset=9))


def sums(paths, root):
    """The lines of a SHA256SUMS file."""
    return "".join(f"{hashlib.sha256(path.read_bytes()).hexdigest()}  {path.relative_to(root).as_posix()}\n"
                   for path in paths)
