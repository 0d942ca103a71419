# The packages: one for each component, as .deb and as .rpm.
set(CPACK_PACKAGE_NAME tavstrg)
set(CPACK_PACKAGE_VENDOR TAV)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_GENERATOR DEB RPM)
set(CPACK_COMPONENTS_ALL provider tools agent)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_SOURCE_DIR}/layout.cmake)
set(CPACK_TAV_BUILD_LIBDIR ${PROJECT_BINARY_DIR}/lib)

set(TAV_PROVIDER_SUMMARY "Storage inventory and disk health for CIM brokers")
set(TAV_PROVIDER_TEXT "A CMPI provider that gives a management agent, through a CIM broker, the
storage inventory of a server and the health of its disks. With the schema, the
registration, the operations manual and examples of the administrator's files.")
set(TAV_TOOLS_SUMMARY "Health of the disks of a server, for people and monitoring")
set(TAV_TOOLS_TEXT "Lists every disk of a machine with its health, wear and temperature: as a
table, as JSON, as metrics for Prometheus, or as a page for a browser. With
tavstrg-provider it also shows what that reports to CIM brokers. Needs neither
a management agent nor a broker.")
set(TAV_AGENT_SUMMARY "Development trace and alert libraries for the storage provider")
set(TAV_AGENT_TEXT "Replacements of the management agent's libraries libtavlog.so and
libtavalert.so, which write traces and alerts to files. For a provider in a
broker on a development machine; on a server the agent has its own.")

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_RPM_COMPONENT_INSTALL ON)
set(CPACK_RPM_FILE_NAME RPM-DEFAULT)
set(CPACK_RPM_PACKAGE_LICENSE Apache-2.0)
set(CPACK_RPM_PACKAGE_GROUP "System Environment/Daemons")
set(CPACK_RPM_INSTALL_WITH_EXEC OFF)
set(CPACK_RPM_DEFAULT_USER root)
set(CPACK_RPM_DEFAULT_GROUP root)
set(CPACK_RPM_PACKAGE_RELOCATABLE OFF)
# Libraries in private directories: other packages cannot depend on them. No links in /usr/lib/.build-id, which could conflict
# with packages of other builds. No host name of the machine that built the package.
set(CPACK_RPM_SPEC_MORE_DEFINE "%global __provides_exclude_from ^/usr/.*/(tavstrg|tavstrg-devel-agent|cmpi|sfcb)/.*$
%global __requires_exclude ^libtav
%define _build_id_links none
%define _buildhost localhost")
# Directories that belong to the system or to other packages.
set(CPACK_RPM_EXCLUDE_FROM_AUTO_FILELIST_ADDITION
  /etc /usr/lib/systemd /usr/lib/systemd/system /usr/sbin /usr/lib64 /usr/lib64/cmpi /usr/lib/cmpi /usr/libexec /usr/share/doc
  /usr/share/man /usr/share/man/man5 /usr/share/man/man8
  /usr/share/bash-completion /usr/share/bash-completion/completions /usr/share/zsh /usr/share/zsh/site-functions)

foreach(COMPONENT_AND_PACKAGE PROVIDER:tavstrg-provider TOOLS:tavstrg AGENT:tavstrg-devel-agent)
  string(REPLACE ":" ";" PAIR ${COMPONENT_AND_PACKAGE})
  list(GET PAIR 0 COMPONENT)
  list(GET PAIR 1 PACKAGE)
  string(TOLOWER ${COMPONENT} LOWER_COMPONENT)
  set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_NAME ${PACKAGE})
  set(CPACK_RPM_${COMPONENT}_PACKAGE_NAME ${PACKAGE})
  set(CPACK_COMPONENT_${COMPONENT}_DESCRIPTION "${TAV_${COMPONENT}_SUMMARY}\n${TAV_${COMPONENT}_TEXT}")
  set(CPACK_RPM_${LOWER_COMPONENT}_PACKAGE_SUMMARY "${TAV_${COMPONENT}_SUMMARY}")
  set(CPACK_RPM_${LOWER_COMPONENT}_PACKAGE_DESCRIPTION "${TAV_${COMPONENT}_TEXT}")
endforeach()
set(CPACK_DEBIAN_AGENT_PACKAGE_SECTION devel)
# The tool needs no provider: it asks the disks itself. What asks the provider understands one of its own version.
set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS "tavstrg-provider, prometheus-node-exporter")
set(CPACK_DEBIAN_TOOLS_PACKAGE_BREAKS "tavstrg-provider (<< ${PROJECT_VERSION})")
set(CPACK_RPM_TOOLS_PACKAGE_SUGGESTS "tavstrg-provider")
set(CPACK_RPM_TOOLS_PACKAGE_CONFLICTS "tavstrg-provider < ${PROJECT_VERSION}")
set(CPACK_DEBIAN_PROVIDER_PACKAGE_SUGGESTS "sfcb, tavstrg")
# The name that every broker of these distributions provides.
set(CPACK_RPM_PROVIDER_PACKAGE_REQUIRES "cim-server")
set(CPACK_RPM_PROVIDER_PACKAGE_SUGGESTS "tavstrg")

# The schema is registered with an installed broker, and removed from it.
set(TAV_STAGE_SCHEMA ${CPACK_PACKAGING_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBEXECDIR}/tavstrg/stage-schema)
foreach(SCRIPT deb/postinst deb/prerm deb/tavstrg/postinst deb/tavstrg/prerm deb/tavstrg/postrm rpm/post rpm/preun
    rpm/tavstrg/preun rpm/tavstrg/postun)
  configure_file(${SCRIPT}.in ${CMAKE_CURRENT_BINARY_DIR}/${SCRIPT} @ONLY FILE_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
endforeach()
set(CPACK_DEBIAN_PROVIDER_PACKAGE_CONTROL_EXTRA
  ${CMAKE_CURRENT_BINARY_DIR}/deb/postinst ${CMAKE_CURRENT_BINARY_DIR}/deb/prerm)
# The monitoring service is enabled and started by the .deb, as Debian's services are, and left to the administrator by the .rpm.
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/deb/tavstrg/conffiles "/etc/tavstrg/monitor.conf\n")
set(CPACK_DEBIAN_TOOLS_PACKAGE_CONTROL_EXTRA
  ${CMAKE_CURRENT_BINARY_DIR}/deb/tavstrg/conffiles ${CMAKE_CURRENT_BINARY_DIR}/deb/tavstrg/postinst
  ${CMAKE_CURRENT_BINARY_DIR}/deb/tavstrg/prerm ${CMAKE_CURRENT_BINARY_DIR}/deb/tavstrg/postrm)
set(CPACK_RPM_TOOLS_USER_FILELIST "%config(noreplace) /etc/tavstrg/monitor.conf")
set(CPACK_RPM_TOOLS_PRE_UNINSTALL_SCRIPT_FILE ${CMAKE_CURRENT_BINARY_DIR}/rpm/tavstrg/preun)
set(CPACK_RPM_TOOLS_POST_UNINSTALL_SCRIPT_FILE ${CMAKE_CURRENT_BINARY_DIR}/rpm/tavstrg/postun)
set(CPACK_RPM_PROVIDER_POST_INSTALL_SCRIPT_FILE ${CMAKE_CURRENT_BINARY_DIR}/rpm/post)
set(CPACK_RPM_PROVIDER_PRE_UNINSTALL_SCRIPT_FILE ${CMAKE_CURRENT_BINARY_DIR}/rpm/preun)

include(CPack)
