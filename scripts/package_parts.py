"""Reads packaging/parts.toml, the table of the other projects' parts in the shipped files.

package_parts.py notice [--write]         prints NOTICE, or writes it
package_parts.py licences FOLDER FFMPEG SITE
    writes the texts to FOLDER. FFMPEG is the folder of the FFmpeg build; SITE is that of the documents' site, which need not
    exist.
"""

import datetime
import functools
import hashlib
import pathlib
import re
import shutil
import subprocess
import sys
import textwrap
import tomllib

REPOSITORY = pathlib.Path(__file__).resolve().parent.parent
TABLE = REPOSITORY / "packaging" / "parts.toml"
NOTICE = REPOSITORY / "NOTICE"
PRODUCT = "LibVeltoAudioHandler"
LINKAGES = {"dynamic": "shared libraries, shipped as separate DLLs", "static": "linked statically",
            "headers": "header-only, compiled into the files", "site": "in the pages of doc/"}
NAMESPACE = "https://spdx.org/spdxdocs/velto-audio-handler"


class Part:
    def __init__(self, row):
        self.id = row["id"]
        self.name = row["name"]
        self.web = row["web"]
        self.license = row["license"]
        self.license_name = row["license_name"]
        self.tests_only = row.get("tests_only", False)
        self.version_from = row.get("version")
        self.debian = row.get("debian")
        self.linkage = row.get("linkage")
        self.files = row.get("files", [])
        self.site = row.get("site", [])
        self.inside = row.get("in", [])
        self.libraries = row.get("libraries", [])
        self.headers = row.get("headers", [])
        self.texts = row.get("texts", [])
        self.copyright = row.get("copyright", [])
        self.notice = row.get("notice", "").strip()

    def is_in(self, name):
        """Whether a file of the package, by its path there, is or contains this part, is its licence, or a page made with
        it."""
        path = pathlib.PurePosixPath(name)
        match path.parts[0]:
            case "bin":
                return path.name in self.files + self.inside
            case "licenses":
                return path.stem == self.id
            case "doc" if path.stem != "check-report":  # velto-host writes this page
                return any(path.match(f"doc/{pattern}") for pattern in self.site)
        return False

    def version(self, ffmpeg):
        if self.version_from == "ffmpeg":
            return ffmpeg_version(ffmpeg)
        return debian_version(self.debian)

    def paths_of_texts(self, ffmpeg):
        return [pathlib.Path(text.replace("{ffmpeg}", str(ffmpeg))) for text in self.texts]

    def full_text(self, ffmpeg):
        lines = [f"{self.name} {self.version(ffmpeg)}", self.web, f"Licence: {self.license_name} ({self.license})", "",
                 *self.copyright]
        for path in self.paths_of_texts(ffmpeg):
            if not path.is_file():
                raise OSError(f"{path}, the licence of {self.name}, is missing; scripts/setup installs it")
            lines += ["", "-" * 100, path.name, "-" * 100, "", path.read_text("utf-8", errors="replace").rstrip()]
        return "\n".join(lines) + "\n"


@functools.cache
def debian_version(package):
    result = subprocess.run(["dpkg-query", "-W", "-f", "${Version}", package], capture_output=True, text=True)
    if result.returncode != 0 or not result.stdout:
        raise OSError(f"the Debian package {package} is not installed; run scripts/setup")
    return result.stdout


@functools.cache
def ffmpeg_version(ffmpeg):
    header = pathlib.Path(ffmpeg) / "include" / "libavutil" / "ffversion.h"
    return re.search(r'FFMPEG_VERSION "([^"]+)"', header.read_text("utf-8"))[1]


def table():
    return [Part(row) for row in tomllib.loads(TABLE.read_text("utf-8"))["part"]]


def shipped_parts(site):
    """The parts in a package with the documents' site of this folder, which need not exist. Another version of Debian may have
    a theme without some of the parts."""
    return [part for part in table() if not part.tests_only
            and (part.linkage != "site" or any(any(site.glob(pattern)) for pattern in part.site))]


def notice():
    lines = [PRODUCT, "Licensed under the Apache License, Version 2.0 (see LICENSE).", "",
             "This product is shipped with, or contains, work of others. The full texts and all copyright lines are in the",
             "folder licenses/ of the package.", ""]
    for part in table():
        lines.append(f"{part.name}, {part.web}")
        lines.append(f"  {part.license_name}")
        lines += [f"  {line}" for line in part.copyright]
        about = ["Used by the tests only."] if part.tests_only else []
        if part.linkage in ("static", "headers"):
            about.append(f"{LINKAGES[part.linkage].capitalize()}: {', '.join(part.inside)}.")
        if part.linkage == "site":
            about.append("Used by the documents in doc/.")
        about += [part.notice] if part.notice else []
        for text in about:
            lines += textwrap.wrap(text, 112, initial_indent="  ", subsequent_indent="  ", break_on_hyphens=False)
        lines.append("")
    return "\n".join(lines).rstrip() + "\n"


def write_licences(folder, ffmpeg, site):
    folder.mkdir(parents=True, exist_ok=True)
    for name in ("LICENSE", "NOTICE"):
        shutil.copy(REPOSITORY / name, folder / name)
    for part in shipped_parts(site):
        (folder / f"{part.id}.txt").write_text(part.full_text(ffmpeg), "utf-8")


def digest(path, name):
    return hashlib.new(name, path.read_bytes()).hexdigest()


def file_id(name):
    return "SPDXRef-File-" + re.sub(r"[^A-Za-z0-9.-]", "-", name)


def part_id(part):
    return f"SPDXRef-Part-{part.id}"


def relation(element, kind, related):
    return {"spdxElementId": element, "relationshipType": kind, "relatedSpdxElement": related}


def described_part(part, ffmpeg):
    version = part.version(ffmpeg)
    package = {"SPDXID": part_id(part), "name": part.name, "versionInfo": version, "homepage": part.web,
               "downloadLocation": "NOASSERTION", "filesAnalyzed": False, "licenseConcluded": part.license,
               "licenseDeclared": part.license, "copyrightText": "\n".join(part.copyright),
               "comment": f"{LINKAGES[part.linkage].capitalize()}."}
    if part.version_from == "debian":
        package["externalRefs"] = [{"referenceCategory": "PACKAGE-MANAGER", "referenceType": "purl",
                                    "referenceLocator": f"pkg:deb/debian/{part.debian}@{version.replace('+', '%2B')}"}]
    return package


def described_file(root, path, parts):
    name = path.relative_to(root).as_posix()
    inside = [part for part in parts if part.is_in(name)]
    licenses = {license_id for part in inside for license_id in part.license.split(" AND ")}
    # Own work is in every file but the parts' own: FFmpeg's DLLs, licences, styles and scripts.
    is_own_binary = name.startswith("bin/") and not any(path.name in part.files for part in parts)
    if not inside or path.suffix == ".html" or is_own_binary:
        licenses.add("Apache-2.0")
    kind = "BINARY" if path.suffix in (".dll", ".exe", ".lib", ".a") else "IMAGE" if path.suffix in (".png", ".svg") else "TEXT"
    return {"SPDXID": file_id(name), "fileName": f"./{name}", "fileTypes": [kind],
            "checksums": [{"algorithm": algorithm.upper(), "checksumValue": digest(path, algorithm)}
                          for algorithm in ("sha1", "sha256")],
            "licenseConcluded": " AND ".join(sorted(licenses)), "copyrightText": "NOASSERTION"}


def sbom(root, version, commit, seconds, ffmpeg):
    """The bill of materials of the files under root: SPDX 2.3, as a structure for JSON."""
    parts = shipped_parts(root / "doc")
    files = [described_file(root, path, parts) for path in sorted(root.rglob("*")) if path.is_file()]
    binaries = {pathlib.PurePosixPath(file["fileName"]).name: file["SPDXID"] for file in files
                if file["fileName"].startswith("./bin/")}
    licenses = {license_id for file in files for license_id in file["licenseConcluded"].split(" AND ")}
    hashes = sorted(file["checksums"][0]["checksumValue"] for file in files)
    product = {"SPDXID": "SPDXRef-Product", "name": PRODUCT, "versionInfo": version, "downloadLocation": "NOASSERTION",
               "filesAnalyzed": True, "licenseConcluded": " AND ".join(sorted(licenses)), "licenseDeclared": "Apache-2.0",
               "licenseInfoFromFiles": ["NOASSERTION"], "copyrightText": "NOASSERTION", "primaryPackagePurpose": "LIBRARY",
               "sourceInfo": f"built from commit {commit}",
               "packageVerificationCode": {
                   "packageVerificationCodeValue": hashlib.sha1("".join(hashes).encode()).hexdigest(),
                   "packageVerificationCodeExcludedFiles": ["./sbom.spdx.json", "./SHA256SUMS"]}}
    relations = [relation("SPDXRef-DOCUMENT", "DESCRIBES", "SPDXRef-Product")]
    relations += [relation("SPDXRef-Product", "CONTAINS", file["SPDXID"]) for file in files]
    for part in parts:
        for name in part.files:
            relations.append(relation(binaries[name], "GENERATED_FROM", part_id(part)))
        if part.linkage == "site":
            relations += [relation(file["SPDXID"], "GENERATED_FROM", part_id(part)) for file in files
                          if file["fileName"].startswith("./doc/") and part.is_in(file["fileName"].removeprefix("./"))]
        if part.linkage == "dynamic":
            relations.append(relation("SPDXRef-Product", "DYNAMIC_LINK", part_id(part)))
        for name in part.inside:
            kind = "STATIC_LINK" if part.linkage == "static" else "CONTAINS"
            relations.append(relation(binaries[name], kind, part_id(part)))
    texts = [{"licenseId": identifier, "name": part.license_name, "extractedText": part.full_text(ffmpeg)}
             for part in parts for identifier in re.findall(r"LicenseRef-[\w.-]+", part.license)]
    created = datetime.datetime.fromtimestamp(seconds, datetime.timezone.utc).strftime("%Y-%m-%dT%H:%M:%SZ")
    return {"spdxVersion": "SPDX-2.3", "dataLicense": "CC0-1.0", "SPDXID": "SPDXRef-DOCUMENT",
            "name": f"velto-audio-handler-{version}-windows-x64",
            "documentNamespace": f"{NAMESPACE}-{version}-{commit}",
            "creationInfo": {"created": created, "creators": ["Tool: velto-package"]},
            "packages": [product, *(described_part(part, ffmpeg) for part in parts)], "files": files,
            "relationships": relations, "hasExtractedLicensingInfos": texts}


def main():
    try:
        match sys.argv[1:]:
            case ["notice"]:
                sys.stdout.write(notice())
            case ["notice", "--write"]:
                NOTICE.write_text(notice(), "utf-8")
            case ["licences", folder, ffmpeg, site]:
                write_licences(pathlib.Path(folder), ffmpeg, pathlib.Path(site))
            case _:
                print(__doc__, file=sys.stderr)
                return 2
    except OSError as error:
        print(f"package_parts: error: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
