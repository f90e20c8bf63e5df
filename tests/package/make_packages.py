"""Makes the package and the symbols of the build under test for the other tests, as scripts/package does from a clean build.

The module is checked up to level 1 only, so the name of the package says that it is for tests."""

import functools
import os
import shutil

import packages
import package_run

if __name__ == "__main__":
    shutil.rmtree(packages.PACKAGES, ignore_errors=True)
    package_run.write_binaries(packages.BUILD, packages.PACKAGES, os.environ["VELTO_VERSION"] + "-test", "0" * 40,
                               1_700_000_000, add_report=functools.partial(package_run.check_module, level=1))
