"""A private Wine prefix, copied from a template that is built once."""

import fcntl
import pathlib
import shutil
import signal

from . import paths, processes, waiting

DRIVERS_KEY = r"HKCU\Software\Wine\Drivers"
PULSE_KEY = DRIVERS_KEY + r"\winepulse.drv"

# These services and drivers would start with each prefix, and have nothing to do with sound.
_UNUSED_SERVICES = ("Eventlog", "NDIS", "nsiproxy", "PlugPlay")
_UNUSED_DRIVERS = "winebus.sys,winehid.sys,wineusb.sys"
_SERVICES_KEY, _NEVER_STARTS = r"HKLM\System\CurrentControlSet\Services", "4"

_COPIED_FILES = ("system.reg", "user.reg", "userdef.reg", ".update-timestamp")


def _environment(prefix, base):
    env = dict(base)
    env.update(WINEPREFIX=str(prefix), WINEDEBUG="-all", WINEDLLOVERRIDES=f"mscoree,mshtml,{_UNUSED_DRIVERS}=", DISPLAY="")
    return env


def _template(base_environment):
    """Returns the template, and builds it first if there is none. A lock guards it, because several tests start at once."""
    version = processes.run(["wine", "--version"], env=base_environment).split()[0]
    template = paths.CACHE / f"prefix-{version}-2"
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
        # Without this entry, a process that once finds no audio server uses a driver without
        # endpoints until the process ends.
        processes.run(["wine", "reg", "add", DRIVERS_KEY, "/v", "Audio", "/d", "pulse", "/f"],
                      env=env, timeout_s=60)
        for service in _UNUSED_SERVICES:
            processes.run(["wine", "reg", "add", rf"{_SERVICES_KEY}\{service}", "/v", "Start", "/t", "REG_DWORD",
                           "/d", _NEVER_STARTS, "/f"], env=env, timeout_s=60)
        processes.run(["wineserver", "-k"], env=env, check=False)
        processes.run(["wineserver", "-w"], env=env, timeout_s=60, check=False)
        unfinished.rename(template)
    return template


class WinePrefix:
    """A private prefix with its own Wine server, which ends with the run."""

    def __init__(self, folder, base_environment):
        self.root = pathlib.Path(folder) / "prefix"
        self.environment = _environment(self.root, base_environment)
        self._server = None

    def start(self):
        processes.end_by_environment(f"WINEPREFIX={self.root}")  # left by a run that was killed
        template = _template(self.environment) / "prefix"
        shutil.rmtree(self.root, ignore_errors=True)
        self.root.mkdir(parents=True)
        # The system's files are hard links, because Wine only reads them. The registry is copied.
        processes.run(["cp", "-al", template / "drive_c", template / "dosdevices", self.root])
        for name in _COPIED_FILES:
            if (template / name).exists():
                shutil.copy2(template / name, self.root / name)
        processes.at_end(self.stop)
        # A Wine server that gets SIGINT ends all programs of its prefix before it ends.
        self._server = processes.start(["wineserver", "-f", "-p"], env=self.environment,
                                       death_signal=signal.SIGINT)
        waiting.until(self._answers, "the private Wine server to answer", 60)
        processes.give_all_threads_priority(self._server, processes.WINE_SERVER_PRIORITY)
        return self

    def _answers(self):
        if self._server.poll() is not None:
            raise RuntimeError(f"wineserver ended with {self._server.returncode}")
        try:
            self.run(["cmd", "/c", "ver"])
        except RuntimeError as reason:
            if "No such file or directory" in str(reason):
                return False  # the server has not created its folder yet
            raise
        return True

    def stop(self):
        """Ends every Windows program of this prefix, and removes the prefix."""
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
        """Returns a number from the registry, or None. An example of a key is HKCU\\Software\\X."""
        for line in self.run(["reg", "query", key, "/v", name], check=False).splitlines():
            fields = line.split()
            if len(fields) == 3 and fields[0] == name:
                return int(fields[2], 16)
        return None

    def write_string(self, key, name, value):
        self.run(["reg", "add", key, "/v", name, "/t", "REG_SZ", "/d", value, "/f"])

    def make_default_output(self, endpoint_id):
        """Makes a loudspeaker the default for the console and multimedia roles. Running programs are notified."""
        self.write_string(PULSE_KEY, "DefaultOutput", endpoint_id)

    def make_default_input(self, endpoint_id):
        """Makes a microphone the default, in the same way."""
        self.write_string(PULSE_KEY, "DefaultInput", endpoint_id)
