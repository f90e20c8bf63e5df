"""Mistakes in the sources of the site are errors with their place."""

import pathlib
import shutil
import tempfile
import unittest

import places
import site_header
import site_run

PAGES = """files = []
[[page]]
page = "index"
source = "README.md"
[[page]]
page = "other"
source = "docs/other.md"
"""


class Sources(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.root = self.folder / "root"
        shutil.copytree(places.REPOSITORY / "docs" / "site", self.root / "docs" / "site")


class Header(Sources):
    def page(self, before, after):
        text = (places.REPOSITORY / site_header.HEADER).read_text("utf-8")
        self.assertIn(before, text)
        path = self.root / site_header.HEADER
        path.parent.mkdir(parents=True)
        path.write_text(text.replace(before, after, 1), "utf-8")
        return site_header.page(self.root, self.folder)

    def refused(self, before, after, reason):
        with self.assertRaisesRegex(site_header.Failure, reason):
            self.page(before, after)

    def test_header_as_it_is_makes_a_page(self):
        self.assertIn(".. c:function:: int32_t VELTOGetAudioHandler(AudioHandlerTable *table)", self.page("@param", "@param"))

    def test_undocumented_parameter_is_refused(self):
        self.refused("     * @param count receives 4, also on failure\n", "", "parameter 'count'")

    def test_function_without_documented_parameters_is_refused(self):
        self.refused(" * @param table the host's memory\n", "", "VELTOGetAudioHandler does not document its parameter table")

    def test_function_without_documented_results_is_refused(self):
        self.refused("@retval VELTO_OK always", "", "NoOperation1 does not document its results")

    def test_parameter_that_does_not_exist_is_refused(self):
        self.refused("@param listener", "@param hearer", "hearer")

    def test_undocumented_constant_is_refused(self):
        self.refused("/**< the PC's microphone                */", "", "VELTO_ID_MIC")


class Documents(Sources):
    def make(self, index, other="# Other\n\n## Place\n\nText.\n"):
        (self.root / "README.md").write_text(index, "utf-8")
        (self.root / "docs" / "other.md").write_text(other, "utf-8")
        (self.root / site_run.PAGES).write_text(PAGES, "utf-8")
        site = site_run.Site(self.root, self.folder / "work", None, None)
        site.stage()
        return site.build("1.0.0", places.SECONDS)

    def test_correct_links_are_accepted(self):
        html = self.make("# Title\n\n[a](docs/other.md#place) [b](#title)\n")
        self.assertIn('href="other.html#place"', (html / "index.html").read_text("utf-8"))

    def test_link_to_missing_file_is_refused(self):
        with self.assertRaisesRegex(RuntimeError, "README.md links to docs/missing.md"):
            self.make("# Title\n\n[a](docs/missing.md)\n")

    def test_link_to_missing_anchor_is_refused(self):
        with self.assertRaisesRegex(RuntimeError, "(?i)other.*#?plaice"):
            self.make("# Title\n\n[a](docs/other.md#plaice)\n")

    def test_warning_of_sphinx_is_refused(self):
        with self.assertRaisesRegex(RuntimeError, r"index\.md(\.rst)?:3: WARNING"):
            self.make("# Title\n\n### Skips a level\n")


if __name__ == "__main__":
    unittest.main()
