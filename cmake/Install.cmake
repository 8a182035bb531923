# Installing: one self-contained folder, lib/quillmidi, holding the executable with its
# "Language" and "Loader" folders and the help document beside it, as the program looks for
# them there; a quillmidi link on the PATH (the program finds its folder through
# /proc/self/exe, so the link works); the manual page, the desktop entry, the icon and the
# playlist type.
# `cpack -G DEB` in the build folder makes a Debian package from the same rules.
include(GNUInstallDirs)

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
install(FILES ${PROJECT_SOURCE_DIR}/resources/man/quillmidi.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${PROJECT_SOURCE_DIR}/resources/desktop/quillmidi.desktop
        DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
install(FILES ${PROJECT_SOURCE_DIR}/resources/desktop/quillmidi.svg
        DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)
# The PNG sizes the build rendered from the SVG (app/CMakeLists.txt).
install(DIRECTORY ${CMAKE_BINARY_DIR}/icons/hicolor DESTINATION ${CMAKE_INSTALL_DATADIR}/icons)
install(FILES ${PROJECT_SOURCE_DIR}/resources/desktop/quillmidi-playlist.xml
        DESTINATION ${CMAKE_INSTALL_DATADIR}/mime/packages)

set(CPACK_PACKAGE_NAME quillmidi)
set(CPACK_PACKAGE_VENDOR "Quill MIDI")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Player for Standard MIDI Files with playlists")
set(CPACK_PACKAGE_CONTACT "Quill MIDI developers")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "fluid-soundfont-gm")
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
include(CPack)
