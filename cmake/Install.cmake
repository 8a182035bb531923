# Installing: one self-contained folder, lib/quillmidi, holding the executable with its
# "Language" and "Loader" folders and the help document beside it, as the program looks for
# them there; a quillmidi link on the PATH (the program finds its folder through
# /proc/self/exe, so the link works); the manual page, the desktop entry, the icon in the
# hicolor theme (the SVG and PNGs rendered from it), the software-centre metadata
# (AppStream) and the playlist type.
# `cpack -G DEB` in the build folder (scripts/package) makes a Debian package from the same
# rules, with its copyright file and changelog.
include(GNUInstallDirs)

# The desktop entry and the AppStream metadata share this id.
set(QUILL_APP_ID io.github.quillmidi.QuillMIDI)
# The release the metadata and the changelog name; moved with each version.
set(QUILL_RELEASE_DATE 2026-11-24)
set(QUILL_RELEASE_DATE_RFC2822 "Tue, 24 Nov 2026 00:00:00 +0000")
set(QUILL_HOMEPAGE "https://quillmidi.github.io/" CACHE STRING "The project's home page")
# The renders of tests/app (build/renders) are published here for software centres.
set(QUILL_SCREENSHOT_URL "https://quillmidi.github.io/screenshots" CACHE STRING
    "Where the screenshots named in the AppStream metadata are published")
# No licence has been chosen for the program yet: until one is, the package and the
# metadata say that all rights are reserved. Both take it from here.
set(QUILL_LICENSE LicenseRef-proprietary)
set(QUILL_LICENSE_TEXT
    " The authors have not yet published the terms under which Quill MIDI may be\n copied, changed and passed on; until they do, all rights are reserved.")
set(CPACK_PACKAGE_CONTACT "Quill MIDI maintainers <maintainers@quillmidi.invalid>")
set(QUILL_DOC_DIR ${CMAKE_INSTALL_DATADIR}/doc/quillmidi)

# A fixed lib/quillmidi, not the multiarch library folder: the link in bin points up one level.
set(QUILL_INSTALL_DIR lib/quillmidi)

install(TARGETS quillmidi RUNTIME DESTINATION ${QUILL_INSTALL_DIR})
install(TARGETS quill_folder_loader quill_m3u_loader quill_textlist_loader
        LIBRARY DESTINATION ${QUILL_INSTALL_DIR}/Loader)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/resources/Language DESTINATION ${QUILL_INSTALL_DIR}
        FILES_MATCHING PATTERN "*.llt")
install(FILES ${PROJECT_SOURCE_DIR}/resources/help/QuillMIDI.htm DESTINATION ${QUILL_INSTALL_DIR})
install(CODE "
  file(MAKE_DIRECTORY \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}\")
  file(CREATE_LINK ../${QUILL_INSTALL_DIR}/quillmidi
       \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}/quillmidi\" SYMBOLIC)
  list(APPEND CMAKE_INSTALL_MANIFEST_FILES \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}/quillmidi\")
")

# Manual pages and changelogs are installed compressed, as Debian wants them; -n keeps the
# time out of the archive so that two builds give the same bytes.
set(QUILL_PACKAGE_DIR ${CMAKE_BINARY_DIR}/package)
add_custom_command(
  OUTPUT ${QUILL_PACKAGE_DIR}/quillmidi.1.gz
  COMMAND ${CMAKE_COMMAND} -E make_directory ${QUILL_PACKAGE_DIR}
  COMMAND gzip -9nc ${PROJECT_SOURCE_DIR}/resources/man/quillmidi.1 > ${QUILL_PACKAGE_DIR}/quillmidi.1.gz
  DEPENDS ${PROJECT_SOURCE_DIR}/resources/man/quillmidi.1
  COMMENT "Compressing the manual page")
configure_file(${PROJECT_SOURCE_DIR}/resources/package/changelog.in ${QUILL_PACKAGE_DIR}/changelog
               @ONLY)
add_custom_command(
  OUTPUT ${QUILL_PACKAGE_DIR}/changelog.gz
  COMMAND gzip -9nc ${QUILL_PACKAGE_DIR}/changelog > ${QUILL_PACKAGE_DIR}/changelog.gz
  DEPENDS ${QUILL_PACKAGE_DIR}/changelog
  COMMENT "Compressing the changelog")
add_custom_target(quill_package_docs ALL
                  DEPENDS ${QUILL_PACKAGE_DIR}/quillmidi.1.gz ${QUILL_PACKAGE_DIR}/changelog.gz)
configure_file(${PROJECT_SOURCE_DIR}/resources/package/copyright.in ${QUILL_PACKAGE_DIR}/copyright
               @ONLY)
install(FILES ${QUILL_PACKAGE_DIR}/quillmidi.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${QUILL_PACKAGE_DIR}/copyright ${QUILL_PACKAGE_DIR}/changelog.gz
        DESTINATION ${QUILL_DOC_DIR})

install(FILES ${PROJECT_SOURCE_DIR}/resources/desktop/${QUILL_APP_ID}.desktop
        DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
configure_file(${PROJECT_SOURCE_DIR}/resources/desktop/${QUILL_APP_ID}.metainfo.xml.in
               ${QUILL_PACKAGE_DIR}/${QUILL_APP_ID}.metainfo.xml @ONLY)
install(FILES ${QUILL_PACKAGE_DIR}/${QUILL_APP_ID}.metainfo.xml
        DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)
install(FILES ${PROJECT_SOURCE_DIR}/resources/desktop/quillmidi.svg
        DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)
# The PNG sizes the build rendered from the SVG (app/CMakeLists.txt).
install(DIRECTORY ${CMAKE_BINARY_DIR}/icons/hicolor DESTINATION ${CMAKE_INSTALL_DATADIR}/icons)
install(FILES ${PROJECT_SOURCE_DIR}/resources/desktop/quillmidi-playlist.xml
        DESTINATION ${CMAKE_INSTALL_DATADIR}/mime/packages)

set(CPACK_PACKAGE_NAME quillmidi)
set(CPACK_PACKAGE_VENDOR "VELDAN")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "player for Standard MIDI Files with playlists")
# The extended description; CPack puts the summary above it and indents its lines.
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "Quill MIDI plays Standard MIDI Files (formats 0 and 1) in real time through
its built-in General MIDI synthesizer or any MIDI synthesizer on the system,
which it reaches by two MIDI OUT ports (ALSA sequencer and JACK). Songs are
kept in playlists and played in order, at random, or at random as learned
from the songs the user skips. Sliders set volume, key, tempo and position;
system resets (GM, GS, 88, XG) go out before each song. The interface texts
come from language files (English and Japanese included). A command-line
player and a renderer to WAV or FLAC are included.")
set(CPACK_PACKAGE_HOMEPAGE_URL ${QUILL_HOMEPAGE})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "fluid-soundfont-gm")
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# Debug information stays in the build; the package carries stripped programs.
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
include(CPack)
