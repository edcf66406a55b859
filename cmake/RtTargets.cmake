# rt_test(NAME SOURCES... [LIBS libs...] [PROPERTIES name value...])
# A GoogleTest program beside the code it tests. Tests know where the
# programs and the captures are through two definitions. PROPERTIES are
# added to every test case's (e.g. RESOURCE_LOCK for one shared program).
function(rt_test name)
  cmake_parse_arguments(T "" "" "LIBS;PROPERTIES" ${ARGN})
  add_executable(${name} ${T_UNPARSED_ARGUMENTS})
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${RT_TEST_OUTPUT_DIRECTORY})
  target_link_libraries(${name} PRIVATE ${T_LIBS} rt_testsupport GTest::gtest GTest::gmock GTest::gtest_main)
  target_compile_definitions(${name} PRIVATE
    RT_BIN_DIR="${CMAKE_BINARY_DIR}/bin"
    RT_CAPTURES_DIR="${RT_CAPTURES_DIR}")
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 30 PROPERTIES TIMEOUT 120 ${T_PROPERTIES})
endfunction()

# rt_bench(NAME SOURCES... [LIBS libs...]): a Google Benchmark program in build/bin.
function(rt_bench name)
  if(NOT RT_BENCHMARKS)
    return()
  endif()
  cmake_parse_arguments(B "" "" "LIBS" ${ARGN})
  add_executable(${name} ${B_UNPARSED_ARGUMENTS})
  target_link_libraries(${name} PRIVATE ${B_LIBS} rt_testsupport benchmark::benchmark)
  target_compile_definitions(${name} PRIVATE
    RT_BIN_DIR="${CMAKE_BINARY_DIR}/bin"
    RT_CAPTURES_DIR="${RT_CAPTURES_DIR}")
endfunction()

# rt_fuzz(NAME SOURCES... [LIBS libs...]): a libFuzzer target in build/fuzz,
# built only with RT_FUZZ (part of the fuzz_targets target).
function(rt_fuzz name)
  if(NOT RT_FUZZ)
    return()
  endif()
  cmake_parse_arguments(F "" "" "LIBS" ${ARGN})
  add_executable(${name} ${F_UNPARSED_ARGUMENTS})
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/fuzz)
  target_link_libraries(${name} PRIVATE ${F_LIBS})
  target_link_options(${name} PRIVATE -fsanitize=fuzzer)
  add_dependencies(fuzz_targets ${name})
endfunction()
