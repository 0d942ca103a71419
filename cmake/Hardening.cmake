# Flags for all targets: warnings are errors. The provider runs in the broker's address space, so it is hardened.
add_compile_options(-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wformat=2 -Wno-format-nonliteral -Werror)
add_compile_options(-fstack-protector-strong)
add_link_options(-Wl,-z,now -Wl,-z,relro -Wl,--as-needed)

if(TAV_SANITIZE)
  add_compile_options(-fsanitize=${TAV_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all -O1 -g1)
  if(CMAKE_CXX_COMPILER_ID STREQUAL Clang AND TAV_SANITIZE MATCHES undefined)
    add_compile_options(-fno-sanitize=function) # function pointers of the agent's C interfaces have other type names
  endif()
  add_link_options(-fsanitize=${TAV_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID STREQUAL Clang AND TAV_SANITIZE MATCHES address AND NOT TAV_FUZZ)
    # A runtime inside the program would take precedence over the simulated machine, which interposes C library functions too.
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-resource-dir
                    OUTPUT_VARIABLE TAV_CLANG_DIR OUTPUT_STRIP_TRAILING_WHITESPACE)
    add_link_options(-shared-libasan -Wl,-rpath,${TAV_CLANG_DIR}/lib/linux)
  endif()
elseif(TAV_COVERAGE)
  add_compile_options(--coverage -O0)
  add_link_options(--coverage)
else()
  # Not with sanitizers: fortified calls would hide errors from them.
  add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
endif()
