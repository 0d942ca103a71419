# Installation directories, below CMAKE_INSTALL_PREFIX unless absolute. Set before the targets, because the tool contains the
# provider's directory.
include(GNUInstallDirs)

# The broker looks in the library directory without the subdirectory that Debian has for each architecture.
if(CMAKE_INSTALL_LIBDIR MATCHES "^lib64")
  set(TAV_DEFAULT_PROVIDER_DIR lib64/sfcb)
else()
  set(TAV_DEFAULT_PROVIDER_DIR lib/sfcb)
endif()
set(TAV_PROVIDER_DIR ${TAV_DEFAULT_PROVIDER_DIR} CACHE STRING "Directory in which the broker looks for providers")
set(TAV_ZSH_COMPLETION_DIR ${CMAKE_INSTALL_DATADIR}/zsh/site-functions CACHE STRING
  "Directory in which zsh looks for completions")

# Private directories: no other program links these libraries.
set(TAV_TOOL_LIBDIR ${CMAKE_INSTALL_LIBDIR}/tavstrg)
set(TAV_AGENT_LIBDIR ${CMAKE_INSTALL_LIBDIR}/tavstrg-devel-agent)
if(IS_ABSOLUTE ${TAV_TOOL_LIBDIR})
  set(TAV_TOOL_RPATH ${TAV_TOOL_LIBDIR})
else()
  file(RELATIVE_PATH TAV_TOOL_RPATH /${CMAKE_INSTALL_SBINDIR} /${TAV_TOOL_LIBDIR})
  set(TAV_TOOL_RPATH "$ORIGIN/${TAV_TOOL_RPATH}")
endif()
