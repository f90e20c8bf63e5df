#!/usr/bin/python3
"""A host opens the microphone, which cannot be captured, and frees the DLL. Then the default microphone changes."""

import time

from rig import session
from rig.wine_prefix import DRIVERS_KEY

REGISTERED = "deviceEnumerator RegisterEndpointNotificationCallback"
CHANGED = "OnDefaultDeviceChanged"
CHANGES = 2


class UnloadWhileOpen(session.SystemTest):
    def start_and_free(self):
        """Starts a host that opens the microphone, frees the DLL, and ends later. Returns it when the DLL has been freed."""
        host = self.session.host("check-microphone", "--sequence", "unload-while-open", "--hold", "30", "--json")
        self.until(lambda: "unload-while-open:" in host.errors(), "the DLL to be freed", 60)
        return host

    def assert_survived(self, host):
        if not host.running:
            self.fail(f"the host ended with {host.wait()} when the default microphone changed")
        self.assert_ended_well(host)
        self.assertEqual(host.summary["exitCode"], 0)


class WithoutMicrophone(UnloadWhileOpen):
    """With an empty configuration, Wine's ALSA driver finds no device, whatever hardware the machine has. There is
    an enumerator, which accepts registrations, but no endpoint."""

    WITH_SERVER = False

    def setUp(self):
        super().setUp()
        empty = self.session.folder / "alsa.conf"
        empty.write_text("")
        prefix = self.session.prefix
        prefix.environment["ALSA_CONFIG_PATH"] = str(empty)
        prefix.write_string(DRIVERS_KEY, "Audio", "alsa")
        self.assertEqual(self.session.endpoints("capture"), {})

    def test_host_survives_default_changes_after_freeing_module(self):
        host = self.start_and_free()
        for change in range(1, CHANGES + 1):
            # Wine reports every new value of this entry as a change of the default microphone.
            self.session.prefix.write_string(rf"{DRIVERS_KEY}\winealsa.drv", "DefaultInput", f"microphone {change}")
            # Each change restarts the capture, which finds no microphone and registers again.
            self.until(lambda: not host.running or host.log.count(REGISTERED) == 1 + change,
                       f"registration {1 + change}", 10)
        self.assert_survived(host)
        self.assertEqual((host.summary["open"], host.summary["moduleGone"]), (0, False))
        self.assertGreaterEqual(host.log.count(CHANGED), CHANGES)
        self.assertEqual(host.log.count("GetDefaultAudioEndpoint failed, err=0x80070490"), 1 + CHANGES)


class WithUnusableDefault(UnloadWhileOpen):
    """The default endpoint exists, but PulseAudio has no source for it. The capture thread fails while the opening call
    registers for notifications. The recording keeps its registration only if the failure came first."""

    SINKS = ()

    def test_host_survives_new_microphone_after_freeing_module(self):
        _, default = self.session.default_endpoint("capture")
        host = self.start_and_free()
        is_registered = host.log.count(REGISTERED) > host.log.count("UnregisterEndpointNotificationCallback")
        print(f"  the recording follows the default: {is_registered}", flush=True)
        self.session.server.load_sink(*session.MICROPHONE_48K)
        for endpoint in ("another", default):
            self.session.prefix.make_default_input(endpoint)
            time.sleep(1)
        if is_registered:
            self.session.wait_for_capture()
        self.assert_survived(host)
        self.assertEqual((host.summary["open"], host.summary["moduleGone"]), (0, not is_registered))


if __name__ == "__main__":
    session.main()
