"""A private PulseAudio server. Null sinks are its loudspeakers. A microphone is the monitor of a null sink into which a
voice plays."""

import json
import os
import pathlib
import shutil
import signal
import subprocess
import tempfile

from . import processes, waiting

# A UNIX socket's path has at most 108 bytes. This limit leaves room for the server's "/pulse/native".
_MAX_RUNTIME_PATH = 80

# The order of six channels in Windows. PulseAudio's default order differs.
_SIX_CHANNELS = "front-left,front-right,front-center,lfe,rear-left,rear-right"


def channel_map(option, channels):
    """The option that sets Windows' order of six channels. Mono and stereo need none."""
    return [f"{option}={_SIX_CHANNELS}"] if channels == 6 else []


def _null_sink(name, rate, channels):
    return [f"sink_name={name}", f"rate={rate}", f"channels={channels}",
            f"sink_properties=device.description={name}", *channel_map("channel_map", channels)]


class PrivateAudioServer:
    """A server with its own runtime folder. It neither uses nor changes the user's server."""

    def __init__(self, folder, sinks=(), microphones=()):
        """sinks, microphones: (name, rate in Hz, channels) of each. The first of each is the default."""
        self.folder = pathlib.Path(folder)
        self.sinks = list(sinks)
        self.microphones = list(microphones)
        self.process = None
        self.runtime = self._make_runtime_folder()
        self.home = self.folder / "home"
        self.home.mkdir(parents=True, exist_ok=True)

    def _make_runtime_folder(self):
        runtime = self.folder / "run"
        if len(str(runtime)) > _MAX_RUNTIME_PATH:
            return pathlib.Path(tempfile.mkdtemp(prefix="velto-"))
        runtime.mkdir(parents=True, exist_ok=True, mode=0o700)
        os.chmod(runtime, 0o700)
        return runtime

    @property
    def environment(self):
        """The environment of a client. No variable in it names another server."""
        env = {k: v for k, v in os.environ.items() if not k.startswith("PULSE_")}
        env.update(XDG_RUNTIME_DIR=str(self.runtime), HOME=str(self.home), DISPLAY="", LC_ALL="C.UTF-8")
        env.pop("DBUS_SESSION_BUS_ADDRESS", None)
        return env

    def start(self):
        """Starts the server and waits until it answers."""
        command = ["pulseaudio", "-n", "--daemonize=no", "--exit-idle-time=-1", "--disable-shm=no", "--realtime=yes",
                   "--use-pid-file=no", "--log-target=stderr"]
        for sink in self.sinks + self.microphones:
            command += ["-L", " ".join(["module-null-sink", *_null_sink(*sink)])]
        command += ["-L", "module-native-protocol-unix"]
        processes.at_end(self.stop)
        with open(self.folder / "pulseaudio.log", "ab") as log:
            self.process = processes.start(command, stdout=log, stderr=log, env=self.environment)
        waiting.until(self._answers, "the private audio server to answer", 20)
        processes.give_all_threads_priority(self.process)
        if self.sinks:
            self.pactl("set-default-sink", self.sinks[0][0])
        if self.microphones:
            self.make_default_source(self.microphones[0][0])
        return self

    def make_default_source(self, microphone):
        self.pactl("set-default-source", f"{microphone}.monitor")

    def _answers(self):
        if self.process.poll() is not None:
            raise RuntimeError(f"pulseaudio ended with {self.process.returncode}; see {self.folder}/pulseaudio.log")
        return subprocess.run(["pactl", "info"], env=self.environment, capture_output=True, timeout=10).returncode == 0

    def kill(self):
        """Kills the server, as a crash would."""
        self.process.kill()
        self.process.wait(10)
        shutil.rmtree(self.runtime / "pulse", ignore_errors=True)

    def freeze(self):
        self.process.send_signal(signal.SIGSTOP)

    def thaw(self):
        self.process.send_signal(signal.SIGCONT)

    def stop(self):
        if self.process is not None:
            processes.end(self.process)
        if self.runtime.parent != self.folder:
            shutil.rmtree(self.runtime, ignore_errors=True)

    def pactl(self, *arguments):
        return processes.run(["pactl", *arguments], env=self.environment, timeout_s=20)

    def list(self, kind):
        """The server's objects of a kind ("sinks", "sink-inputs", "modules"), as dictionaries."""
        return json.loads(self.pactl("--format=json", "list", kind) or "[]")

    def streams(self, process_name="velto"):
        """Returns (sink-input index, sink name) of each playing stream of a program. Wine names a client after the
        program's version resource or its file."""
        return self._streams("sink-inputs", "sinks", "sink", process_name)

    def captures(self, process_name="velto"):
        """Returns (source-output index, source name) of each recording stream of a program."""
        return self._streams("source-outputs", "sources", "source", process_name)

    def _streams(self, kind, places, place, process_name):
        found = []
        for stream in self.list(kind):
            properties = stream.get("properties", {})
            label = " ".join(str(properties.get(key, "")) for key in
                             ("application.name", "application.process.binary", "media.name"))
            if process_name in label.lower():
                found.append(stream)
        names = {each["index"]: each["name"] for each in self.list(places)} if found else {}
        return [(stream["index"], names.get(stream[place], "?")) for stream in found]

    def unload_sink(self, name):
        """Removes an endpoint while the server runs."""
        self._unload("module-null-sink", f"sink_name={name}")

    def unload_source(self, name):
        self._unload("module-remap-source", f"source_name={name}")

    def _unload(self, wanted, argument):
        for line in self.pactl("list", "short", "modules").splitlines():
            index, module, arguments = (line.split("\t") + ["", ""])[:3]
            if module == wanted and argument in arguments.split():
                self.pactl("unload-module", index)
                return
        raise KeyError(argument)

    def load_sink(self, name, rate, channels):
        self.pactl("load-module", "module-null-sink", *_null_sink(name, rate, channels))

    def load_second_microphone(self, name, microphone, rate, channels):
        """Loads a microphone that has the sound of another microphone, at the given rate."""
        self.pactl("load-module", "module-remap-source", f"source_name={name}", f"master={microphone}.monitor",
                   f"rate={rate}", f"channels={channels}", f"source_properties=device.description={name}")

    def load_dead_microphone(self, name):
        """Loads a microphone that never delivers samples, because no process writes into its pipe; makes it the default."""
        self.pactl("load-module", "module-pipe-source", f"source_name={name}", f"file={self.folder}/{name}.pipe",
                   "format=s16le", "rate=48000", "channels=2")
        self.pactl("set-default-source", name)
