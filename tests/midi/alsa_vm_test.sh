#!/bin/sh
# Runs the tests labelled "alsa" inside a throw-away virtual machine whose kernel has the
# ALSA sequencer, from the build folder given as $1, with the VM script given as $2.
# Only when QUILLMIDI_ALSA_VM=1: a run boots a VM under software emulation and takes about
# 15 to 20 seconds (the first run ever also fetches Debian's kernel package through apt,
# about 10 seconds more). Otherwise it exits 77, which ctest shows as skipped.
[ "${QUILLMIDI_ALSA_VM:-0}" = 1 ] || { echo "QUILLMIDI_ALSA_VM is not 1: not booting a VM"; exit 77; }
# The VM script lives beside the repository, not in it; a clone without it cannot boot one.
[ -x "$2" ] || { echo "no VM script at $2: not booting a VM (skipped)"; exit 77; }
command -v qemu-system-x86_64 >/dev/null ||
  { echo "qemu-system-x86 is missing: scripts/install-deps --test"; exit 1; }
# The sanitizers' options (their suppressions among them) do not cross into the VM by
# themselves.
cd "$1" && exec "$2" env "ASAN_OPTIONS=${ASAN_OPTIONS:-}" "LSAN_OPTIONS=${LSAN_OPTIONS:-}" \
  "UBSAN_OPTIONS=${UBSAN_OPTIONS:-}" "TSAN_OPTIONS=${TSAN_OPTIONS:-}" \
  ctest -L '^alsa$' --output-on-failure
