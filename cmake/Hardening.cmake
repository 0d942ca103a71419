# Flags for everything that is built: warnings are errors, and what lives in another process's address space is hardened.
add_compile_options(-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wformat=2 -Wno-format-nonliteral -Werror)
add_compile_options(-fstack-protector-strong)
add_link_options(-Wl,-z,now -Wl,-z,relro -Wl,--as-needed)

if(TAV_SANITIZE)
  add_compile_options(-fsanitize=${TAV_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all -O1 -g1)
  if(CMAKE_CXX_COMPILER_ID STREQUAL Clang AND TAV_SANITIZE MATCHES undefined)
    add_compile_options(-fno-sanitize=function) # the agent's libraries have C interfaces, with names of their own for types
  endif()
  add_link_options(-fsanitize=${TAV_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID STREQUAL Clang AND TAV_SANITIZE MATCHES address AND NOT TAV_FUZZ)
    # A runtime inside the program would come before the simulated machine, which stands at the C library's names too.
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-resource-dir
                    OUTPUT_VARIABLE TAV_CLANG_DIR OUTPUT_STRIP_TRAILING_WHITESPACE)
    add_link_options(-shared-libasan -Wl,-rpath,${TAV_CLANG_DIR}/lib/linux)
  endif()
elseif(TAV_COVERAGE)
  add_compile_options(--coverage -O0)
  add_link_options(--coverage)
else()
  # The sanitizers bring checks of their own; fortified calls would hide theirs.
  add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
endif()
