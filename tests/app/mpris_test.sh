#!/usr/bin/env bash
# The player on a private session bus, as a desktop's media controls see it: run as
#   dbus-run-session -- bash mpris_test.sh QUILLMIDI_BINARY
# Two real songs; a second start hands its song to the first; MPRIS calls and properties
# drive and describe the player; its property changes are signalled; Quit ends it.
set -euo pipefail
quillmidi=$1
work=$(mktemp -d)
first=""
monitor=""
cleanup() {
  if [ -n "$first" ]; then kill "$first" 2>/dev/null; wait "$first" 2>/dev/null; fi
  [ -n "$monitor" ] && kill "$monitor" 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT
fail() { echo "mpris: $*" >&2; exit 1; }

songs=(/usr/share/games/openttd/baseset/openmsx/*.mid)
[ -e "${songs[0]}" ] || fail "no songs: scripts/install-deps --test installs openttd-openmsx"
cp "${songs[0]}" "$work/first song.mid"
cp "${songs[1]}" "$work/second song.mid"
export QT_QPA_PLATFORM=offscreen XDG_CONFIG_HOME=$work/config XDG_DATA_HOME=$work/data

service=org.mpris.MediaPlayer2.quillmidi
call() {
  dbus-send --session --print-reply --dest=$service /org/mpris/MediaPlayer2 "$@"
}
get() { call org.freedesktop.DBus.Properties.Get string:org.mpris.MediaPlayer2.Player "string:$1"; }
set_property() {
  call org.freedesktop.DBus.Properties.Set string:org.mpris.MediaPlayer2.Player "string:$1" "$2" >/dev/null
}
player() { call "org.mpris.MediaPlayer2.Player.$1" "${@:2}" >/dev/null; }
# Waits up to 10 s for a property's reply to contain the text.
expect() {
  for _ in $(seq 100); do
    get "$1" 2>/dev/null | grep -q -- "$2" && return 0
    sleep 0.1
  done
  fail "$1 never showed \"$2\"; last: $(get "$1" 2>&1 | tail -n +2 | tr -s ' \n' ' ')"
}

dbus-monitor --session "type='signal',interface='org.freedesktop.DBus.Properties'" >"$work/signals" 2>&1 &
monitor=$!
"$quillmidi" "$work/first song.mid" >"$work/first.log" 2>&1 &
first=$!
expect PlaybackStatus '"Playing"'
expect Metadata 'first%20song.mid'
get Metadata | grep -q 'mpris:length' || fail "no length in the metadata"

# A second start hands its song over and ends at once.
timeout 20 "$quillmidi" "$work/second song.mid" || fail "the second start did not hand over and end"
expect Metadata 'second%20song.mid'
expect PlaybackStatus '"Playing"'

player Pause
expect PlaybackStatus '"Paused"'
grep -q 'PlaybackStatus' "$work/signals" || fail "no PropertiesChanged signal for the status"
player PlayPause
expect PlaybackStatus '"Playing"'
set_property LoopStatus variant:string:Track
expect LoopStatus '"Track"'
set_property Shuffle variant:boolean:true
expect Shuffle 'true'
expect LoopStatus '"None"'
set_property Rate variant:double:1.5
expect Rate '1.5'
sleep 1
position=$(get Position | awk '/int64/ {print $3}')
[ "${position:-0}" -gt 0 ] || fail "the position does not move: $position"
player Stop
expect PlaybackStatus '"Stopped"'

call org.mpris.MediaPlayer2.Quit >/dev/null
for _ in $(seq 100); do kill -0 "$first" 2>/dev/null || break; sleep 0.1; done
kill -0 "$first" 2>/dev/null && fail "Quit did not end the player"
wait "$first" || fail "the player ended with status $?"
first=""
echo "mpris: ok"
