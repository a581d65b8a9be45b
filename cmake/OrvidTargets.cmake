# orvid_library(NAME SOURCES files... DEPS targets...)
# One static library per area; the include root is the repository root, so headers
# are included as "orvid/<area>/<file>.h".
function(orvid_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PUBLIC ${ARG_DEPS})
endfunction()

# orvid_tests(NAME SOURCES files... DEPS targets...)
# One GoogleTest program per area, registered with CTest test by test.
function(orvid_tests name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS" ${ARGN})
  if(NOT ORVID_BUILD_TESTS)
    return()
  endif()
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_DEPS} orvid_testing GTest::gtest GTest::gmock GTest::gtest_main)
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 120)
endfunction()
