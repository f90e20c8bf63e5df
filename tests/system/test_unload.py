#!/usr/bin/python3
"""A host frees the DLL while it plays. Takes over four minutes, because the DLL stays loaded until its idle release."""

from rig import media, session
from rig.module_log import IDLE_RELEASE


class Unload(session.SystemTest):
    def test_freed_module_unloads_after_idle_release(self):
        recorder = self.session.record()
        host = self.session.play(media.speech("speech"), "--unload-after", "4", "--unload-wait", "330")
        recorder.wait_for_sound(60)
        host.log.wait_for(IDLE_RELEASE, 320)
        self.assert_ended_well(host, 120)
        unload = host.summary["unload"]
        print(f"  FreeLibrary took {unload['freeLibrarySeconds']:.3f} s, the DLL was unloaded after {unload['seconds']:.1f} s",
              flush=True)
        self.assertLess(unload["freeLibrarySeconds"], 5)
        self.assertTrue(unload["moduleGone"])
        # The DLL stays loaded while its threads run, so that they never run unmapped code.
        self.assertGreater(unload["seconds"], 230)
        self.assertEqual(host.log.count(IDLE_RELEASE), 1)
        self.session.wait_for_end_of_streams()


if __name__ == "__main__":
    session.main()
