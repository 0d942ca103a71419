option(TAV_BATCHES "Compile several sources of tests and tools together, which halves the time" ON)

# tav_batches(TARGET [ALONE source...])
# Compiles the target's sources in batches of eight, in the order of its list; ALONE: not these. The sources of a batch share their
# names at file scope, and GCC takes them for headers, in which a class with a member of the unnamed namespace would be an error.
# scripts/check-tidy.sh compiles each source alone.
function(tav_batches TARGET)
  cmake_parse_arguments(ARG "" "" "ALONE" ${ARGN})
  if(NOT TAV_BATCHES)
    return()
  endif()
  set_target_properties(${TARGET} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 8)
  target_compile_options(${TARGET} PRIVATE -Wno-shadow $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
  if(ARG_ALONE)
    set_source_files_properties(${ARG_ALONE} PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
  endif()
endfunction()
