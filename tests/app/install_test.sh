#!/usr/bin/env bash
# Installs the build into a temporary prefix and checks the layout a desktop needs: the
# program folder with its Language and Loader folders and help beside the executable, the
# link on the PATH, the desktop entry, the icon and the playlist type.
set -euo pipefail
build=$1
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
cmake --install "$build" --prefix "$prefix" >/dev/null

fail() { echo "install: $*" >&2; exit 1; }
app=$prefix/lib/quillmidi
for file in "$app/quillmidi" "$app/QuillMIDI.htm" "$app/Language/English.llt" \
            "$app/Language/Japanese.llt" "$app/Loader/quill_m3u_loader.so" \
            "$app/Loader/quill_folder_loader.so" "$app/Loader/quill_textlist_loader.so" \
            "$prefix/share/applications/quillmidi.desktop" \
            "$prefix/share/icons/hicolor/scalable/apps/quillmidi.svg" \
            "$prefix/share/mime/packages/quillmidi-playlist.xml" \
            "$prefix/share/man/man1/quillmidi.1"; do
  [ -e "$file" ] || fail "missing $file"
done
[ -L "$prefix/bin/quillmidi" ] || fail "no link bin/quillmidi"
[ "$(readlink -f "$prefix/bin/quillmidi")" = "$(readlink -f "$app/quillmidi")" ] ||
  fail "bin/quillmidi does not lead to $app/quillmidi"
"$prefix/bin/quillmidi" --help | grep -q "quillmidi --headless" || fail "the linked program does not run"
grep -q '^Exec=quillmidi %F$' "$prefix/share/applications/quillmidi.desktop" || fail "desktop entry Exec"
grep -q 'text/x-vnd.VELDAN-QuillMIDI-PlayList' "$prefix/share/applications/quillmidi.desktop" ||
  fail "desktop entry lacks the playlist type"
desktop-file-validate "$prefix/share/applications/quillmidi.desktop" || fail "desktop entry is not valid"
mime=$(mktemp -d)
mkdir -p "$mime/packages"
cp "$prefix/share/mime/packages/quillmidi-playlist.xml" "$mime/packages/"
update-mime-database "$mime" || fail "update-mime-database refuses the playlist type"
grep -q 'text/x-vnd.VELDAN-QuillMIDI-PlayList' "$mime/globs2" || fail "the playlist glob is not in the database"
rm -rf "$mime"
# The manual page describes every option the program offers.
for option in $("$prefix/bin/quillmidi" --help | grep -o -- '--[a-z-]*' | sort -u); do
  grep -qF -- "${option//-/\\-}" "$prefix/share/man/man1/quillmidi.1" || fail "the manual page lacks $option"
done
# Every installed file is in the manifest, so an uninstall removes it all.
while read -r installed; do
  [ -e "$installed" ] || [ -L "$installed" ] || fail "manifest names $installed, which is not there"
done < "$build/install_manifest.txt"
grep -q "$prefix/bin/quillmidi" "$build/install_manifest.txt" || fail "the link is not in the manifest"
echo "install layout: ok"
