# quill_add_test(NAME SOURCES... LIBS ... [LABELS ...] [SERIAL])
# One GoogleTest executable per module; each TEST becomes a ctest case.
# SERIAL cases run with no other case beside them: they check timing (against servers of
# their own, or the clock), which a busy machine would skew.
function(quill_add_test name)
  cmake_parse_arguments(QT "SERIAL" "" "SOURCES;LIBS;LABELS" ${ARGN})
  add_executable(${name} ${QT_SOURCES})
  quill_warnings(${name})
  target_link_libraries(${name} PRIVATE ${QT_LIBS} quill_test_support GTest::gtest_main GTest::gmock)
  set(serial FALSE)
  if(QT_SERIAL)
    set(serial TRUE)
  endif()
  include(GoogleTest)
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60
                       PROPERTIES TIMEOUT 300 LABELS "${QT_LABELS}" RUN_SERIAL ${serial})
endfunction()
