include(GNUInstallDirs)

# orvid_library(NAME SOURCES files... DEPS targets... [TEST_SUPPORT])
# One static library per area. Headers are included as "orvid/<area>/<file>.h" from
# the source tree while building and from the include folder once installed. Each
# library is also orvid::<area> (NAME without its "orvid_" prefix) and, unless it is
# test support, installed and exported with the package.
function(orvid_library name)
  cmake_parse_arguments(ARG "TEST_SUPPORT" "" "SOURCES;DEPS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_include_directories(${name} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
                                            $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  target_compile_features(${name} PUBLIC cxx_std_20)
  target_link_libraries(${name} PUBLIC ${ARG_DEPS})
  if(ORVID_SANITIZE)
    # Instrumented code needs the sanitizer runtimes in whatever links it.
    target_link_options(${name} INTERFACE -fsanitize=address,undefined)
  endif()
  string(REGEX REPLACE "^orvid_" "" exported ${name})
  set_target_properties(${name} PROPERTIES EXPORT_NAME ${exported})
  add_library(orvid::${exported} ALIAS ${name})
  if(NOT ARG_TEST_SUPPORT)
    install(TARGETS ${name} EXPORT OrvidTargets ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
    set_property(GLOBAL APPEND PROPERTY ORVID_LIBRARIES ${name})
  endif()
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
