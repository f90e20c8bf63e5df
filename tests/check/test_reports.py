"""The reports of velto-host check are valid: JSON by its schema, JUnit and the page by Python's XML parser.

The first argument is the program of the unit tests, which writes sample reports."""

import copy
import html.parser
import json
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree as ElementTree

import jsonschema

SCHEMAS = pathlib.Path(__file__).resolve().parents[2] / "docs" / "schemas"
PROGRAM = None


def validator():
    schemas = [json.loads((SCHEMAS / f"velto-host-{name}.schema.json").read_text("utf-8")) for name in ("check", "error")]
    resolver = jsonschema.RefResolver.from_schema(schemas[0], store={schema["$id"]: schema for schema in schemas})
    return jsonschema.Draft202012Validator(schemas[0], resolver=resolver)


class Texts(html.parser.HTMLParser):
    """Collects the tags and the text of a page."""

    def __init__(self, page):
        super().__init__()
        self.tags = []
        self.text = []
        self.feed(page)

    def handle_starttag(self, tag, attrs):
        self.tags.append((tag, dict(attrs)))

    def handle_data(self, data):
        self.text.append(data)


class Reports(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        subprocess.run([PROGRAM, "--gtest_filter=ReportFiles.*"], check=True, stdout=subprocess.DEVNULL,
                       env=dict(os.environ, VELTO_REPORT_FOLDER=folder.name))
        cls.folder = pathlib.Path(folder.name)
        cls.names = sorted(path.stem for path in cls.folder.glob("*.json"))

    def read(self, name):
        return (self.folder / name).read_text("utf-8")

    def test_samples_are_complete(self):
        self.assertEqual(self.names, ["empty", "failed", "odd", "passed", "silent"])
        self.assertEqual(json.loads(self.read("failed.json"))["verdict"], "failed")

    def test_json_reports_match_their_schema(self):
        for name in self.names:
            with self.subTest(name):
                report = json.loads(self.read(f"{name}.json"))
                # The alternative of the report; validation by the whole schema would describe both alternatives.
                errors = [f"{'/'.join(map(str, each.absolute_path))}: {each.message}"
                          for error in validator().iter_errors(report) for each in error.context or [error]]
                self.assertEqual(errors, [])

    def test_changed_json_reports_do_not_match(self):
        # Shows that the test above can fail.
        report = json.loads(self.read("failed.json"))
        for change in (lambda r: r.pop("seed"), lambda r: r.update(schema="urn:velto:velto-host-check:2"),
                       lambda r: r.update(levelReached=11), lambda r: r["files"][0].update(extra=1),
                       lambda r: r["results"][0].update(outcome="warned"), lambda r: r["files"][0].update(sha256="ab"),
                       lambda r: r["measured"]["results"][0].pop("heard"),
                       lambda r: r["measured"]["results"][5]["heard"].update(framesHeard=-1)):
            changed = copy.deepcopy(report)
            change(changed)
            self.assertFalse(validator().is_valid(changed))

    def test_junit_reports_are_xml_with_correct_counts(self):
        for name in self.names:
            with self.subTest(name):
                root = ElementTree.fromstring(self.read(f"{name}.xml"))
                results = json.loads(self.read(f"{name}.json"))["results"]
                self.assertEqual([case.get("name") for case in root.iter("testcase")], [each["name"] for each in results])
                for suite in [root, *root.iter("testsuite")]:
                    for kind, tag in (("tests", "testcase"), ("failures", "failure"), ("errors", "error"), ("skipped", "skipped")):
                        self.assertEqual(int(suite.get(kind)), len(list(suite.iter(tag))))

    def test_pages_are_well_formed_and_accessible(self):
        for name in self.names:
            with self.subTest(name):
                page = self.read(f"{name}.html")
                root = ElementTree.fromstring(page.replace("<!DOCTYPE html>", ""))
                ids = [each.get("id") for each in root.iter() if each.get("id")]
                self.assertEqual(len(ids), len(set(ids)))
                for section in root.iter("section"):
                    self.assertIn(section.get("aria-labelledby"), ids)
                self.assertEqual(len(list(root.iter("h1"))), 1)
                levels = [int(each.tag[1]) for each in root.iter() if each.tag in ("h1", "h2", "h3")]
                self.assertTrue(all(after <= before + 1 for before, after in zip(levels, levels[1:])), levels)
                for picture in root.iter("svg"):
                    self.assertTrue(picture.find("title").text)
                for table in root.iter("table"):
                    columns = len(table.findall("thead/tr/th"))
                    self.assertTrue(all(len(row) == columns for row in table.findall("tbody/tr")))

    def test_pages_need_nothing_else(self):
        for name in self.names:
            tags = Texts(self.read(f"{name}.html")).tags
            self.assertFalse([tag for tag, attributes in tags if tag in ("script", "link", "img", "iframe", "object")
                              or any(key in attributes for key in ("src", "href", "srcset"))])

    def test_pictures_stay_within_their_frames(self):
        for name in self.names:
            root = ElementTree.fromstring(self.read(f"{name}.html").replace("<!DOCTYPE html>", ""))
            for picture in root.iter("svg"):
                width, height = map(float, picture.get("viewBox").split()[2:])
                for each in picture.iter():
                    for key in ("x", "x1", "x2", "cx"):
                        self.assertTrue(0 <= float(each.get(key, 0)) <= width, ElementTree.tostring(each))
                    for key in ("y", "y1", "y2", "cy"):
                        self.assertTrue(0 <= float(each.get(key, 0)) <= height, ElementTree.tostring(each))
                    self.assertLessEqual(float(each.get("x", 0)) + float(each.get("width", 0)), width + 0.01)


if __name__ == "__main__":
    PROGRAM = sys.argv.pop(1)
    unittest.main()
