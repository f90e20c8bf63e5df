"""Test rig for real sound without a sound card: a private PulseAudio server, a private Wine prefix, recorders, voices,
the host program, and the comparison of a recording with the sound that was sent. README.md describes the modules."""
