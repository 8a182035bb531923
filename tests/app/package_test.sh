#!/usr/bin/env bash
# Packs the build into a Debian package, checks it with lintian (no error and no warning),
# unpacks it into a temporary root and runs the program from there: its help, a real song
# rendered into a WAV file, and a playlist read through a loader plug-in of its own
# Loader folder.
#   package_test.sh BUILD_DIR SONG.mid
set -euo pipefail
build=$1
song=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "package: $*" >&2; exit 1; }

cpack --config "$build/CPackConfig.cmake" -G DEB -B "$work/out" >/dev/null || fail "cpack failed"
deb=$(ls "$work"/out/quillmidi_*.deb)

field() { dpkg-deb -f "$deb" "$1"; }
[ "$(field Section)" = sound ] || fail "section $(field Section)"
[ "$(field Priority)" = optional ] || fail "priority $(field Priority)"
[ "$(field Recommends)" = fluid-soundfont-gm ] || fail "recommends $(field Recommends)"
# Depends come from the libraries the program links, as dpkg-shlibdeps found them.
for library in libqt6widgets6 libqt6svg6 libfluidsynth3 libasound2; do
  field Depends | grep -q "\b$library\b" || fail "Depends lacks $library: $(field Depends)"
done

report=$(lintian --pedantic "$deb" 2>&1 | grep -v 'running with root privileges') || true
! grep -E '^[EW]: ' <<<"$report" || fail "lintian reports errors or warnings"

root=$work/root
dpkg-deb -x "$deb" "$root"
doc=$root/usr/share/doc/quillmidi
head -1 "$doc/copyright" | grep -q '^Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/' ||
  fail "the copyright file is not machine-readable"
gzip -t "$doc/changelog.gz" || fail "no compressed changelog"
gzip -t "$root/usr/share/man/man1/quillmidi.1.gz" || fail "no compressed manual page"
[ ! -e "$root/usr/share/man/man1/quillmidi.1" ] || fail "an uncompressed manual page"

program=$root/usr/bin/quillmidi
[ "$(readlink -f "$program")" = "$root/usr/lib/quillmidi/quillmidi" ] ||
  fail "bin/quillmidi does not lead into the package's program folder"
"$program" --help | grep -q "quillmidi --render" || fail "--help"
"$program" --render "$work/song.wav" "$song" || fail "--render failed"
[ "$(head -c 4 "$work/song.wav")" = RIFF ] || fail "--render wrote no WAV file"
[ "$(stat -c %s "$work/song.wav")" -gt 1000000 ] || fail "--render wrote too little sound"

# The folders beside the program: a playlist only a plug-in reads plays (its song's title
# is printed), and the language files lie beside the program the link leads to.
printf '%s\n' "$song" >"$work/list.m3u"
timeout -s INT 5 "$program" --headless --tempo 300 --wav "$work/list.wav" "$work/list.m3u" \
  >"$work/list.log" 2>&1 || true
! grep -qE "Not a supported file|nothing to play" "$work/list.log" ||
  fail "the Loader folder was not found: $(cat "$work/list.log")"
# Five seconds of real-time sound; a list that did not load leaves a bare header.
[ "$(stat -c %s "$work/list.wav" 2>/dev/null || echo 0)" -gt 100000 ] ||
  fail "the playlist did not play: $(cat "$work/list.log")"
for language in English Japanese; do
  [ -s "$root/usr/lib/quillmidi/Language/$language.llt" ] || fail "no $language.llt beside the program"
done
echo "debian package: ok ($(basename "$deb"))"
