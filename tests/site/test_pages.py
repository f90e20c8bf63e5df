"""The site as made: pages, links, nothing that differs between two builds."""

import filecmp
import json
import os
import pathlib
import re
import shutil
import tempfile
import tomllib
import unittest

import places
import site_header
import site_links
import site_run


def files_of(folder):
    return {path.relative_to(folder).as_posix() for path in folder.rglob("*") if path.is_file()}


class Pages(unittest.TestCase):
    def text_of(self, name):
        return (places.SITE / name).read_text("utf-8")

    def test_every_page_of_the_table_is_in_the_menu_of_every_page(self):
        listed = [page["page"] for page in tomllib.loads((places.REPOSITORY / site_run.PAGES).read_text("utf-8"))["page"]]
        for page in listed:
            menu = re.search(r'<div class="sidebar-tree">.*?</div>', self.text_of(f"{page}.html"), re.S)[0]
            for other in listed:
                self.assertIn('href="#"' if other == page else f'href="{other}.html"', menu, f"{page}: {other}")

    def test_every_document_is_a_page(self):
        sources = {page["source"] for page in tomllib.loads((places.REPOSITORY / site_run.PAGES).read_text("utf-8"))["page"]}
        for path in (places.REPOSITORY / "docs").glob("*.md"):
            self.assertIn(f"docs/{path.name}", sources, "add it to docs/site/pages.toml")

    def test_interface_page_has_every_slot_and_constant_of_header(self):
        header = (places.REPOSITORY / site_header.HEADER).read_text("utf-8").partition(site_header.ASSERTIONS)[0]
        page = self.text_of("interface.html")
        slots = re.findall(r"^    \w+ \(\*(\w+)\)\(", header, re.M)
        self.assertEqual(len(slots), 11)
        for slot in slots:
            self.assertIn(f'id="c.AudioHandlerTable.{slot}"', page)
        constants = set(re.findall(r"^(?:#define|   ) (VELTO_\w+)(?: =)? [^\\]", header, re.M)) - {"VELTO_API"}
        self.assertGreater(len(constants), 30)
        for constant in constants:
            self.assertIn(f">{constant}<", page)

    def test_command_line_page_has_every_command_and_script(self):
        page = self.text_of("command-line.html")
        scripts = [path.name for path in (places.REPOSITORY / "scripts").iterdir()
                   if not path.suffix and os.access(path, os.X_OK)]
        self.assertIn("site", scripts)
        for heading in [f"scripts/{name}" for name in scripts] + ["velto-host play", "velto-host duplex"]:
            self.assertRegex(page, rf"<h2>{heading}<")
        self.assertIn("--no-silent-end", page, "the diagnostic options are missing")

    def test_every_command_with_json_has_a_schema_on_the_page(self):
        commands = re.findall(r"<h2>velto-host (\w+)<", self.text_of("command-line.html"))
        self.assertGreater(len(commands), 4)
        page = self.text_of("json.html")
        for command in [*commands, "error"]:
            schema = json.loads((places.SITE / "files" / f"velto-host-{command}.schema.json").read_text("utf-8"))
            self.assertIn(f"<h2>{command}<", page)
            self.assertIn(schema["$id"], page)

    def test_links_and_anchors_are_right_and_nothing_is_loaded_from_elsewhere(self):
        self.assertEqual(site_links.problems(places.SITE), [])

    def test_script_of_theme_is_no_module(self):
        # A browser does not load modules from files.
        script = self.text_of("_static/scripts/furo.js")
        self.assertNotRegex(script, r"(?m)^\s*(import|export) ")
        self.assertNotIn('type="module"', self.text_of("index.html"))

    def test_no_file_contains_a_path_of_this_machine(self):
        for name in sorted(files_of(places.SITE)):
            data = (places.SITE / name).read_bytes()
            for path in (str(places.REPOSITORY), str(pathlib.Path.home()), "/tmp/velto", "/usr/lib/python"):
                # Not a relative path that ends in the same way, such as build/fresh/SUITE/root.
                self.assertFalse(re.search(rb"(?<![\w.-])" + re.escape(path.encode()) + rb"\b", data), f"{name} contains {path}")

    def test_second_build_in_another_folder_is_identical(self):
        with tempfile.TemporaryDirectory(prefix="another folder ") as name:
            # Other paths of the sources, too.
            root = pathlib.Path(name) / "sources"
            for part in ("bench", "docs", "examples", "include", "packaging", "scripts", "tests"):
                shutil.copytree(places.REPOSITORY / part, root / part, ignore=shutil.ignore_patterns("__pycache__"))
            for path in places.REPOSITORY.iterdir():
                if path.is_file() and path.name != ".git":
                    shutil.copy(path, root)
            second = pathlib.Path(name) / "site"
            site_run.make(root, places.HOST, places.WINE_PREFIX, second, places.SECONDS)
            self.assertEqual(files_of(second), files_of(places.SITE))
            _, different, wrong = filecmp.cmpfiles(places.SITE, second, files_of(second), shallow=False)
            self.assertEqual((different, wrong), ([], []))


class BrokenLinks(unittest.TestCase):
    """Shows that the check of the links can fail."""

    PAGE = '<html><body><h1 id="top">Title</h1><a href="other.html#there">link</a>{}</body></html>'

    def problems(self, added):
        with tempfile.TemporaryDirectory() as name:
            folder = pathlib.Path(name)
            (folder / "index.html").write_text(self.PAGE.format(added), "utf-8")
            (folder / "other.html").write_text('<p id="there">text</p>', "utf-8")
            return site_links.problems(folder)

    def test_right_links_are_accepted(self):
        self.assertEqual(self.problems('<a href="#top">a</a><a href="https://example.org/a#b">b</a><img src="data:image/png,">'), [])

    def test_wrong_links_are_found(self):
        for wrong in ('<a href="#bottom">a</a>', '<a href="other.html#here">a</a>', '<a href="missing.html">a</a>',
                      '<img src="missing.png">', '<script src="https://example.org/a.js"></script>',
                      '<link rel="stylesheet" href="//example.org/a.css">', '<a href="/index.html">a</a>',
                      '<a href="../outside.html">a</a>', '<a href="http://no host/">a</a>',
                      '<style>@import "https://example.org/a.css"</style>', '<p style="background: url(missing.png)">a</p>'):
            with self.subTest(wrong):
                self.assertEqual(len(self.problems(wrong)), 1)


if __name__ == "__main__":
    unittest.main()
