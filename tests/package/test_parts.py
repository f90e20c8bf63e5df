"""packaging/parts.toml covers every library, header and DLL of others in the shipped files, and the lists made from it."""

import collections
import fnmatch
import functools
import hashlib
import json
import pathlib
import re
import subprocess
import unittest

import jsonschema
import packages
import package_parts
import package_run

SCHEMA = pathlib.Path(__file__).resolve().parent / "sbom.schema.json"
MODULE, HOST = "LibVeltoAudioHandler.dll", "velto-host.exe"
# The targets of CMake whose objects are in each binary.
TARGETS = {MODULE: {"LibVeltoAudioHandler", "velto_module_objects", "velto_codec", "velto_logging", "velto_registry"},
           HOST: {"velto-host", "velto_host_parts", "velto_host_portable", "velto_check_parts", "velto_check_portable"}}


def linked_libraries(text):
    """The archives from which a linker's map takes members, and the objects of others; without our own."""
    members = re.findall(r"^(\S.*\.a)\([^)]*\)", text.partition("Discarded input sections")[0], re.M)
    objects = re.findall(r"^LOAD (\S+\.o)$", text, re.M)
    return {pathlib.PurePosixPath(path).name for path in members + objects if path.startswith("/usr/")}


def map_of(binary):
    own = packages.BUILD / "symbols" / f"{binary}.map"
    return (own if own.exists() else packages.FFMPEG / "symbols" / f"{binary}.map").read_text("utf-8", errors="replace")


@functools.cache
def included_headers():
    """The headers outside the repository and the build folder that the objects of each binary include."""
    home = package_run.cached(packages.BUILD, "CMAKE_HOME_DIRECTORY")
    found = collections.defaultdict(set)
    binary = None
    output = subprocess.run(["ninja", "-C", str(packages.BUILD), "-t", "deps"], check=True, capture_output=True,
                            text=True).stdout
    resolved = functools.cache(lambda line: (packages.BUILD / line).resolve())
    for line in output.splitlines():
        if line.startswith("    "):
            if binary:
                found[binary].add(resolved(line.strip()))
        elif line:
            target = re.search(r"CMakeFiles/([^/]+)\.dir/", line)
            binary = next((name for name, targets in TARGETS.items() if target and target[1] in targets), None)
    own = (pathlib.Path(home).resolve(), packages.BUILD.resolve())
    return {name: {path for path in paths if not any(path.is_relative_to(folder) for folder in own)}
            for name, paths in found.items()}


def header_patterns(part):
    return [pattern.replace("{ffmpeg}", str(packages.FFMPEG.resolve())) for pattern in part.headers]


class Table(packages.Unpacked):
    def setUp(self):
        self.parts = package_parts.shipped_parts(self.package / "doc")

    def binaries(self):
        return sorted(path.name for path in (self.package / "bin").iterdir())

    def test_every_shipped_dll_of_others_is_in_the_table(self):
        listed = [name for part in self.parts for name in part.files]
        self.assertEqual(sorted(listed), [name for name in self.binaries() if name not in (MODULE, HOST)])

    def test_every_linked_library_is_in_the_table_for_its_binary(self):
        for binary in self.binaries():
            with self.subTest(binary):
                libraries = linked_libraries(map_of(binary))
                self.assertIn("libmingwex.a", libraries, "the map is not understood")
                for library in sorted(libraries):
                    self.assertTrue(any(library in part.libraries and binary in part.inside for part in self.parts),
                                    f"parts.toml has no part with {library} in {binary}")

    def test_every_style_and_script_of_the_pages_is_in_the_table(self):
        own = {"doc/searchindex.js", "doc/_static/velto.css"}
        site = [path.relative_to(self.package).as_posix() for path in (self.package / "doc").rglob("*")
                if path.is_file() and (path.suffix in (".css", ".js") or path.is_relative_to(self.package / "doc" / "_static"))]
        self.assertGreater(len(site), 5)
        for name in set(site) - own:
            self.assertEqual(len([part for part in self.parts if part.is_in(name)]), 1, f"parts of {name}")

    def test_every_pattern_of_the_pages_finds_a_file(self):
        for part in self.parts:
            for pattern in part.site:
                self.assertTrue(list((self.package / "doc").glob(pattern)), f"{part.id}: {pattern}")

    def test_table_names_no_binary_without_its_library(self):
        for part in self.parts:
            if part.linkage == "static":
                with self.subTest(part.id):
                    found = [binary for binary in self.binaries() if linked_libraries(map_of(binary)) & set(part.libraries)]
                    self.assertEqual(sorted(part.inside), found)

    def test_every_included_header_is_in_the_table(self):
        patterns = [pattern for part in self.parts for pattern in header_patterns(part)]
        for binary, headers in included_headers().items():
            self.assertGreater(len(headers), 100, "the dependencies of the objects are not understood")
            strangers = [str(path) for path in headers if not any(fnmatch.fnmatch(path, one) for one in patterns)]
            self.assertEqual(sorted(strangers), [], f"headers in {binary} that parts.toml does not have")

    def test_header_only_parts_name_the_binaries_that_include_them(self):
        for part in self.parts:
            if part.linkage == "headers":
                with self.subTest(part.id):
                    found = [binary for binary, headers in included_headers().items()
                             if any(fnmatch.fnmatch(path, one) for path in headers for one in header_patterns(part))]
                    self.assertEqual(sorted(part.inside), sorted(found))

    def test_notice_is_made_from_the_table(self):
        self.assertEqual(package_parts.NOTICE.read_text("utf-8"), package_parts.notice(),
                         "run scripts/package_parts.py notice --write")

    def test_licence_file_of_each_part_has_its_full_text_and_copyright_lines(self):
        openings = {"LGPL-2.1-or-later": "GNU LESSER GENERAL PUBLIC LICENSE", "MIT": "Permission is hereby granted",
                    "BSD-3-Clause": "Redistribution and use in source and binary forms",
                    "BSD-2-Clause": "Redistribution and use in source and binary forms",
                    "GPL-3.0-or-later": "GNU GENERAL PUBLIC LICENSE", "GCC-exception-3.1": "GCC RUNTIME LIBRARY EXCEPTION",
                    "ZPL-2.1": "ZPL", "Zlib": "This software is provided 'as-is'"}
        for part in self.parts:
            with self.subTest(part.id):
                text = (self.package / "licenses" / f"{part.id}.txt").read_text("utf-8")
                for line in part.copyright:
                    self.assertIn(line, text)
                names = [name for name in re.split(r" AND | WITH ", part.license) if not name.startswith("LicenseRef-")]
                for name in names:
                    self.assertIn(openings[name], text, name)


class BillOfMaterials(packages.Unpacked):
    def setUp(self):
        self.bill = json.loads((self.package / "sbom.spdx.json").read_text("utf-8"))

    def test_bill_matches_the_schema(self):
        jsonschema.Draft7Validator.check_schema(schema := json.loads(SCHEMA.read_text("utf-8")))
        jsonschema.validate(self.bill, schema, format_checker=jsonschema.FormatChecker())

    def test_schema_refuses_what_spdx_requires(self):
        # Shows that the test above can fail.
        schema = json.loads(SCHEMA.read_text("utf-8"))
        for change in (lambda bill: bill.pop("dataLicense"), lambda bill: bill["packages"][1].pop("downloadLocation"),
                       lambda bill: bill["files"][0].update(checksums=[]), lambda bill: bill.update(spdxVersion="SPDX-2.2"),
                       lambda bill: bill["relationships"][0].update(relationshipType="USES")):
            bill = json.loads(json.dumps(self.bill))
            change(bill)
            with self.assertRaises(jsonschema.ValidationError):
                jsonschema.validate(bill, schema)

    def test_every_id_is_unique_and_every_relation_has_two_ends(self):
        ids = [self.bill["SPDXID"], *(item["SPDXID"] for item in self.bill["packages"] + self.bill["files"])]
        self.assertEqual(len(ids), len(set(ids)))
        for relation in self.bill["relationships"]:
            self.assertIn(relation["spdxElementId"], ids)
            self.assertIn(relation["relatedSpdxElement"], ids)

    def test_every_part_is_related_to_a_shipped_file(self):
        files = {item["SPDXID"] for item in self.bill["files"]}
        for part in package_parts.shipped_parts(self.package / "doc"):
            self.assertTrue(any(relation["relatedSpdxElement"] == f"SPDXRef-Part-{part.id}"
                                and relation["spdxElementId"] in files for relation in self.bill["relationships"]), part.id)

    def test_files_and_checksums_are_those_of_the_package(self):
        listed = {item["fileName"].removeprefix("./"): item for item in self.bill["files"]}
        present = {path.relative_to(self.package).as_posix() for path in self.package.rglob("*") if path.is_file()}
        self.assertEqual(set(listed), present - {"sbom.spdx.json", "SHA256SUMS"})
        contained = [item["relatedSpdxElement"] for item in self.bill["relationships"]
                     if (item["spdxElementId"], item["relationshipType"]) == ("SPDXRef-Product", "CONTAINS")]
        self.assertEqual(sorted(contained), sorted(item["SPDXID"] for item in self.bill["files"]))
        for name, item in listed.items():
            for checksum in item["checksums"]:
                digest = hashlib.new(checksum["algorithm"].lower(), (self.package / name).read_bytes()).hexdigest()
                self.assertEqual(checksum["checksumValue"], digest, name)

    def test_licence_of_each_binary_and_of_the_package_has_those_of_its_parts(self):
        licenses = {item["fileName"].removeprefix("./"): set(item["licenseConcluded"].split(" AND "))
                    for item in self.bill["files"]}
        for part in package_parts.shipped_parts(self.package / "doc"):
            for name in part.files + part.inside:
                self.assertLessEqual(set(part.license.split(" AND ")), licenses[f"bin/{name}"], f"{part.id} in {name}")
        for name in (MODULE, HOST):
            self.assertIn("Apache-2.0", licenses[f"bin/{name}"])
        self.assertNotIn("Apache-2.0", licenses["bin/avcodec-59.dll"])
        self.assertEqual(licenses["include/velto/audio_handler.h"], {"Apache-2.0"})
        product = set(self.bill["packages"][0]["licenseConcluded"].split(" AND "))
        self.assertEqual(product, set().union(*licenses.values()))

    def test_own_licence_ids_are_explained(self):
        explained = {item["licenseId"] for item in self.bill["hasExtractedLicensingInfos"]}
        used = set(re.findall(r"LicenseRef-[\w.-]+", json.dumps([self.bill["packages"], self.bill["files"]])))
        self.assertEqual(used, explained)


if __name__ == "__main__":
    unittest.main()
