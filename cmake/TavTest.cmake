include(GoogleTest)

# Test code is compiled often and runs briefly: no optimisation, few debug symbols, and the headers that take longest to parse
# compiled once for all test programs.
set(TAV_TEST_OPTIONS -O0 -g1 -U_FORTIFY_SOURCE)
add_executable(tavtestheaders EXCLUDE_FROM_ALL ${CMAKE_CURRENT_LIST_DIR}/test_headers.cpp)
target_link_libraries(tavtestheaders PRIVATE GTest::gmock GTest::gtest nlohmann_json::nlohmann_json Threads::Threads)
target_compile_options(tavtestheaders PRIVATE ${TAV_TEST_OPTIONS})
target_precompile_headers(tavtestheaders PRIVATE
  <gmock/gmock.h> <gtest/gtest.h> <chrono> <filesystem> <fstream> <thread> <nlohmann/json.hpp>)

# tav_test(NAME SOURCES source... [LIBRARIES library...] [LABEL unit|scenario|threads|sweep|long] [TIMEOUT seconds] [SERIAL])
# One GoogleTest program. Each of its tests is a test of CTest and runs in a process of its own. SERIAL: no other test runs at the
# same time. LABEL long: takes over 20 seconds.
function(tav_test NAME)
  cmake_parse_arguments(ARG "SERIAL" "LABEL;TIMEOUT" "SOURCES;LIBRARIES" ${ARGN})
  if(NOT ARG_LABEL)
    set(ARG_LABEL unit)
  endif()
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 120)
  endif()
  # Slow tests start first, so that none of them runs alone at the end.
  set(COST 0)
  if(ARG_LABEL STREQUAL long)
    set(COST 500)
  elseif(ARG_LABEL STREQUAL threads)
    set(COST 100)
  endif()
  add_executable(${NAME} ${ARG_SOURCES})
  target_link_libraries(${NAME} PRIVATE ${ARG_LIBRARIES} GTest::gmock GTest::gtest_main Threads::Threads)
  target_include_directories(${NAME} PRIVATE ${PROJECT_SOURCE_DIR}/tests ${PROJECT_SOURCE_DIR}/tools)
  target_compile_definitions(${NAME} PRIVATE TAV_SOURCE_DIR="${PROJECT_SOURCE_DIR}" TAV_BINARY_DIR="${PROJECT_BINARY_DIR}")
  target_compile_options(${NAME} PRIVATE ${TAV_TEST_OPTIONS})
  target_precompile_headers(${NAME} REUSE_FROM tavtestheaders)
  list(LENGTH ARG_SOURCES COUNT)
  if(COUNT GREATER 1)
    list(FILTER ARG_SOURCES EXCLUDE REGEX "_test\\.cpp$")
    tav_batches(${NAME} ALONE ${ARG_SOURCES})
  endif()
  gtest_discover_tests(${NAME} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
    PROPERTIES LABELS ${ARG_LABEL} TIMEOUT ${ARG_TIMEOUT} RUN_SERIAL ${ARG_SERIAL} COST ${COST})
endfunction()
