# quill_add_test(NAME SOURCES... LIBS ... [LABELS ...] [LOCKS ...])
# One GoogleTest executable per module; each TEST becomes a ctest case.
# LOCKS names resources that the cases must not share with any other case running at once.
function(quill_add_test name)
  cmake_parse_arguments(QT "" "" "SOURCES;LIBS;LABELS;LOCKS" ${ARGN})
  add_executable(${name} ${QT_SOURCES})
  quill_warnings(${name})
  target_link_libraries(${name} PRIVATE ${QT_LIBS} quill_test_support GTest::gtest_main GTest::gmock)
  include(GoogleTest)
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60
                       PROPERTIES TIMEOUT 300 LABELS "${QT_LABELS}" RESOURCE_LOCK "${QT_LOCKS}")
endfunction()
