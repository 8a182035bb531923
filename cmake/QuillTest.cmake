# quill_add_test(NAME SOURCES... LIBS ... [LABELS ...])
# One GoogleTest executable per module; each TEST becomes a ctest case.
function(quill_add_test name)
  cmake_parse_arguments(QT "" "" "SOURCES;LIBS;LABELS" ${ARGN})
  add_executable(${name} ${QT_SOURCES})
  quill_warnings(${name})
  target_link_libraries(${name} PRIVATE ${QT_LIBS} quill_test_support GTest::gtest_main GTest::gmock)
  include(GoogleTest)
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60
                       PROPERTIES TIMEOUT 300 LABELS "${QT_LABELS}")
endfunction()
