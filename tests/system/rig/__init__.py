"""Sound without a sound card: a private PulseAudio server, a private Wine prefix,
a recorder, the host program, and a judge that compares what was heard with what was sent."""
