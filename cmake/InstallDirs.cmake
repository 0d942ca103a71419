# Where things go when the project is installed, below CMAKE_INSTALL_PREFIX unless absolute. Known before the targets are:
# the tool looks for the provider where it is installed.
include(GNUInstallDirs)

# The broker's library directory is the system's own name for it, without a subdirectory for the architecture.
if(CMAKE_INSTALL_LIBDIR MATCHES "^lib64")
  set(TAV_DEFAULT_PROVIDER_DIR lib64/sfcb)
else()
  set(TAV_DEFAULT_PROVIDER_DIR lib/sfcb)
endif()
set(TAV_PROVIDER_DIR ${TAV_DEFAULT_PROVIDER_DIR} CACHE STRING "Directory in which the broker looks for providers")
set(TAV_ZSH_COMPLETION_DIR ${CMAKE_INSTALL_DATADIR}/zsh/site-functions CACHE STRING
  "Directory in which zsh looks for completions")

# The tool's own libraries, which no other program links.
set(TAV_TOOL_LIBDIR ${CMAKE_INSTALL_LIBDIR}/tavstrg)
if(IS_ABSOLUTE ${TAV_TOOL_LIBDIR})
  set(TAV_TOOL_RPATH ${TAV_TOOL_LIBDIR})
else()
  file(RELATIVE_PATH TAV_TOOL_RPATH /${CMAKE_INSTALL_SBINDIR} /${TAV_TOOL_LIBDIR})
  set(TAV_TOOL_RPATH "$ORIGIN/${TAV_TOOL_RPATH}")
endif()
