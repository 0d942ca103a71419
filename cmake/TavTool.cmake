# For the libraries and programs of tools/, and for those of tests/ that are not test programs. In the shipped build they get less
# optimisation than the provider, and line numbers as their only debug information: with the provider's options they take more than
# twice as long to compile, and at run time they mostly wait for devices and clients.
set(TAV_TOOL_OPTIONS $<$<CONFIG:RelWithDebInfo>:-O1> $<$<CONFIG:RelWithDebInfo>:-g1>)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_BUILD_TYPE STREQUAL "RelWithDebInfo")
  # False positives of GCC 12 inside std::string when less of it is inlined.
  list(APPEND TAV_TOOL_OPTIONS -Wno-array-bounds -Wno-restrict -Wno-stringop-overflow)
endif()
if(TAV_SANITIZE AND NOT TAV_FUZZ)
  list(APPEND TAV_TOOL_OPTIONS -O0) # takes half the time to compile
endif()

# The headers that take longest to parse, compiled once for the static libraries with these options. GCC 12 crashes if a source is
# optimised differently from its precompiled headers.
set(TAV_TOOL_HEADERS
  <algorithm> <chrono> <filesystem> <fstream> <functional> <map> <memory> <mutex> <optional> <sstream> <string> <thread> <vector>
  <nlohmann/json.hpp>)
add_library(tavtoolheaders OBJECT EXCLUDE_FROM_ALL ${CMAKE_CURRENT_LIST_DIR}/tool_headers.cpp)
target_link_libraries(tavtoolheaders PRIVATE nlohmann_json::nlohmann_json Threads::Threads)
target_compile_options(tavtoolheaders PRIVATE ${TAV_TOOL_OPTIONS})
target_precompile_headers(tavtoolheaders PRIVATE ${TAV_TOOL_HEADERS})
