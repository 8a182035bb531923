#!/usr/bin/env bash
# Installs the build into a temporary prefix and checks the layout a desktop needs: the
# program folder with its Language and Loader folders and help beside the executable, the
# link on the PATH, the desktop entry, the icon in every size, the software-centre metadata
# and the playlist type.
set -euo pipefail
build=$1
prefix=$(mktemp -d)
trap 'rm -rf "$prefix"' EXIT
cmake --install "$build" --prefix "$prefix" >/dev/null

fail() { echo "install: $*" >&2; exit 1; }
id=io.github.quillmidi.QuillMIDI
desktop=$prefix/share/applications/$id.desktop
app=$prefix/lib/quillmidi
for file in "$app/quillmidi" "$app/QuillMIDI.htm" "$app/Language/English.llt" \
            "$app/Language/Japanese.llt" "$app/Loader/quill_m3u_loader.so" \
            "$app/Loader/quill_folder_loader.so" "$app/Loader/quill_textlist_loader.so" \
            "$prefix/share/applications/$id.desktop" \
            "$prefix/share/metainfo/$id.metainfo.xml" \
            "$prefix/share/icons/hicolor/scalable/apps/quillmidi.svg" \
            "$prefix/share/mime/packages/quillmidi-playlist.xml" \
            "$prefix/share/man/man1/quillmidi.1.gz" \
            "$prefix/share/doc/quillmidi/copyright" \
            "$prefix/share/doc/quillmidi/changelog.gz"; do
  [ -e "$file" ] || fail "missing $file"
done
[ -L "$prefix/bin/quillmidi" ] || fail "no link bin/quillmidi"
[ "$(readlink -f "$prefix/bin/quillmidi")" = "$(readlink -f "$app/quillmidi")" ] ||
  fail "bin/quillmidi does not lead to $app/quillmidi"
"$prefix/bin/quillmidi" --help | grep -q "quillmidi --headless" || fail "the linked program does not run"
grep -q '^Exec=quillmidi %F$' "$desktop" || fail "desktop entry Exec"
grep -q 'text/x-vnd.VELDAN-QuillMIDI-PlayList' "$desktop" || fail "desktop entry lacks the playlist type"
desktop-file-validate "$desktop" || fail "desktop entry is not valid"
# Every launcher size of the icon, rendered from the SVG, as PNG of its own size.
for size in 16 24 32 48 64 128 256; do
  png=$prefix/share/icons/hicolor/${size}x${size}/apps/quillmidi.png
  [ -s "$png" ] || fail "missing $png"
  [ "$(head -c 8 "$png" | od -An -tx1 | tr -d ' \n')" = 89504e470d0a1a0a ] || fail "$png is not a PNG"
  # The width and height of the PNG header: big-endian 32-bit numbers from byte 16.
  read -r w0 w1 w2 w3 h0 h1 h2 h3 < <(od -An -tu1 -j16 -N8 "$png")
  [ $(( (w0 << 24) | (w1 << 16) | (w2 << 8) | w3 )) = "$size" ] &&
    [ $(( (h0 << 24) | (h1 << 16) | (h2 << 8) | h3 )) = "$size" ] || fail "$png is not $size by $size"
done
# Software centres list the program only from valid metadata that names the desktop entry.
report=$(appstreamcli validate --no-net "$prefix/share/metainfo/$id.metainfo.xml") ||
  fail "the AppStream metadata does not validate: $report"
! grep -E '^[EW]:' <<<"$report" || fail "the AppStream metadata has errors or warnings"
grep -qF "<launchable type=\"desktop-id\">$id.desktop</launchable>" "$prefix/share/metainfo/$id.metainfo.xml" ||
  fail "the metadata does not launch the desktop entry"
version=$(sed -n 's/^project(QuillMIDI VERSION \([0-9.]*\).*/\1/p' "$(dirname "$0")/../../CMakeLists.txt")
grep -qF "<release version=\"$version\"" "$prefix/share/metainfo/$id.metainfo.xml" ||
  fail "the metadata lacks the release $version"
gzip -dc "$prefix/share/doc/quillmidi/changelog.gz" >"$prefix/changelog"
[ "$(head -1 "$prefix/changelog")" = "quillmidi ($version) unstable; urgency=medium" ] ||
  fail "the changelog lacks the release $version"
mime=$(mktemp -d)
mkdir -p "$mime/packages"
cp "$prefix/share/mime/packages/quillmidi-playlist.xml" "$mime/packages/"
update-mime-database "$mime" || fail "update-mime-database refuses the playlist type"
grep -q 'text/x-vnd.VELDAN-QuillMIDI-PlayList' "$mime/globs2" || fail "the playlist glob is not in the database"
rm -rf "$mime"
# The manual page describes every option the program offers.
gzip -dc "$prefix/share/man/man1/quillmidi.1.gz" >"$prefix/manual.1"
for option in $("$prefix/bin/quillmidi" --help | grep -o -- '--[a-z-]*' | sort -u); do
  grep -qF -- "${option//-/\\-}" "$prefix/manual.1" || fail "the manual page lacks $option"
done
# Every installed file is in the manifest, so an uninstall removes it all.
while read -r installed; do
  [ -e "$installed" ] || [ -L "$installed" ] || fail "manifest names $installed, which is not there"
done < "$build/install_manifest.txt"
grep -q "$prefix/bin/quillmidi" "$build/install_manifest.txt" || fail "the link is not in the manifest"
echo "install layout: ok"
