"""A Wine prefix of the run's own, cheaply made from a template that is built once."""

import fcntl
import pathlib
import shutil
import signal

from . import paths, processes

_OWN_FILES = ("system.reg", "user.reg", "userdef.reg", ".update-timestamp")


def _environment(prefix, base):
    env = dict(base)
    env.update(WINEPREFIX=str(prefix), WINEDEBUG="-all", WINEDLLOVERRIDES="mscoree,mshtml=", DISPLAY="")
    return env


def _template(base_environment):
    """The prefix every run copies. Built under a lock: several tests start at once."""
    version = processes.run(["wine", "--version"], env=base_environment).split()[0]
    template = paths.CACHE / f"prefix-{version}-1"
    paths.CACHE.mkdir(parents=True, exist_ok=True)
    with open(paths.CACHE / "prefix.lock", "w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        if template.is_dir():
            return template
        unfinished = pathlib.Path(str(template) + ".unfinished")
        shutil.rmtree(unfinished, ignore_errors=True)
        home = unfinished / "home"
        home.mkdir(parents=True)
        env = _environment(unfinished / "prefix", base_environment)
        env.update(HOME=str(home), XDG_RUNTIME_DIR=str(home))
        processes.run(["wineboot", "-i"], env=env, timeout_s=240)
        # Without this, a process that finds no audio server once settles on a driver
        # without any endpoint for the rest of its life.
        processes.run(["wine", "reg", "add", r"HKCU\Software\Wine\Drivers", "/v", "Audio", "/d", "pulse", "/f"],
                      env=env, timeout_s=60)
        processes.run(["wineserver", "-k"], env=env, check=False)
        processes.run(["wineserver", "-w"], env=env, timeout_s=60, check=False)
        unfinished.rename(template)
    return template


class WinePrefix:
    """A private prefix with a server process that ends with the run."""

    def __init__(self, folder, base_environment):
        self.root = pathlib.Path(folder) / "prefix"
        self.environment = _environment(self.root, base_environment)
        self._server = None

    def start(self):
        processes.end_by_environment(f"WINEPREFIX={self.root}")  # of an earlier run that was killed
        template = _template(self.environment) / "prefix"
        shutil.rmtree(self.root, ignore_errors=True)
        self.root.mkdir(parents=True)
        # The system's files are shared by hard links (Wine only reads them); the registry is copied.
        processes.run(["cp", "-al", template / "drive_c", template / "dosdevices", self.root])
        for name in _OWN_FILES:
            if (template / name).exists():
                shutil.copy2(template / name, self.root / name)
        processes.at_end(self.stop)
        # An interrupted server ends all programs of its prefix first.
        self._server = processes.start(["wineserver", "-f", "-p"], env=self.environment, with_sound=True,
                                       death_signal=signal.SIGINT)
        self.run(["cmd", "/c", "ver"])
        return self

    def stop(self):
        """Ends every Windows program of this prefix and removes it."""
        if self._server is None:
            return
        processes.run(["wineserver", "-k"], env=self.environment, check=False, timeout_s=20)
        processes.end(self._server)
        processes.end_by_environment(f"WINEPREFIX={self.root}")
        self._server = None
        shutil.rmtree(self.root, ignore_errors=True)

    def run(self, command, timeout_s=60, check=True):
        return processes.run(["wine", *command], env=self.environment, timeout_s=timeout_s, check=check)

    def read_dword(self, key, name):
        """A registry number under a key such as HKCU\\Software\\X, or None."""
        for line in self.run(["reg", "query", key, "/v", name], check=False).splitlines():
            fields = line.split()
            if len(fields) == 3 and fields[0] == name:
                return int(fields[2], 16)
        return None

    def write_string(self, key, name, value):
        self.run(["reg", "add", key, "/v", name, "/t", "REG_SZ", "/d", value, "/f"])

    def make_default_output(self, endpoint_id):
        """Makes an endpoint the default for console and multimedia; running programs are told."""
        self.write_string(r"HKCU\Software\Wine\Drivers\winepulse.drv", "DefaultOutput", endpoint_id)

    def make_default_input(self, endpoint_id):
        """The same for the microphone."""
        self.write_string(r"HKCU\Software\Wine\Drivers\winepulse.drv", "DefaultInput", endpoint_id)
