"""The report of velto-host check in the package: it is of the packed bytes, and a module that fails is not packed."""

import json
import pathlib
import shutil
import tempfile
import unittest

import packages
import package_run

OF_OTHER_BYTES = 6  # exit code of velto-host check --verify
# The entry fills nothing.
EMPTY_MODULE = """__declspec(dllexport) int VELTOGetAudioHandler(void *table)
{
    return table == 0 ? -2000 : 0;
}
"""


@unittest.skipIf(packages.is_unchecked(), "made with --no-check")
class Report(packages.Unpacked):
    def verify(self, expect):
        return packages.run_windows(self.package / "bin" / "velto-host.exe", "check", "--verify",
                                    packages.wine_program.to_windows(self.package / package_run.REPORTS[0]), expect=expect)

    def test_report_passed_the_required_level(self):
        report = json.loads((self.package / package_run.REPORTS[0]).read_text("utf-8"))
        level = 1 if packages.is_for_tests() else package_run.CHECK_LEVEL
        self.assertEqual((report["verdict"], report["level"], report["levelReached"]), ("passed", level, level))
        self.assertEqual((report["only"], report["seed"]), ("", 1))

    def test_report_belongs_to_packed_bytes(self):
        self.verify(expect=0)

    def test_report_does_not_belong_to_other_bytes(self):
        module = self.package / "bin" / "LibVeltoAudioHandler.dll"
        original = module.read_bytes()
        self.addCleanup(module.write_bytes, original)
        module.write_bytes(original + b"\0")
        self.assertIn("LibVeltoAudioHandler.dll", self.verify(expect=OF_OTHER_BYTES))

    def test_second_build_takes_report_of_same_bytes_only(self):
        archive = packages.archive("windows-x64.zip")
        with tempfile.TemporaryDirectory() as name:
            second = pathlib.Path(name)
            shutil.copytree(self.package / "bin", second / "bin")
            package_run.take_report(second, archive, packages.BUILD / "wine")
            for report in package_run.REPORTS:
                self.assertEqual((second / report).read_bytes(), (self.package / report).read_bytes())
            module = second / "bin" / "LibVeltoAudioHandler.dll"
            module.write_bytes(module.read_bytes() + b"\0")
            with self.assertRaisesRegex(RuntimeError, "is not of this build"):
                package_run.take_report(second, archive, packages.BUILD / "wine")

    def test_module_that_breaks_its_contract_is_refused(self):
        with tempfile.TemporaryDirectory() as name:
            folder = pathlib.Path(name)
            shutil.copytree(self.package / "bin", folder / "bin")
            source = folder / "module.c"
            source.write_text(EMPTY_MODULE)
            packages.run(packages.GCC, "-shared", "-s", "-o", folder / "bin" / "LibVeltoAudioHandler.dll", source)
            with self.assertRaisesRegex(RuntimeError, "(?s)certify.py failed.*ENT-3"):
                package_run.check_module(folder, level=1)


if __name__ == "__main__":
    unittest.main()
