# CPack runs this on the installed files of all components before it makes the packages. It does what differs between .deb and
# .rpm: Debian has its own directory for zsh completions of packages, and libraries that are not executable; RPM systems have
# 64-bit libraries in lib64 and providers in its cmpi, and rpmbuild finds the dependencies of executable files only.
function(tav_move FROM TO)
  foreach(COMPONENT ${CPACK_COMPONENTS_ALL})
    set(ROOT ${CPACK_TEMPORARY_DIRECTORY}/${COMPONENT}${CPACK_PACKAGING_INSTALL_PREFIX})
    if(EXISTS ${ROOT}/${FROM})
      get_filename_component(PARENT ${ROOT}/${TO} DIRECTORY)
      file(MAKE_DIRECTORY ${PARENT})
      file(RENAME ${ROOT}/${FROM} ${ROOT}/${TO})
    endif()
  endforeach()
endfunction()

tav_move(etc ../etc) # of the system, not below the prefix

set(ALL_MAY_ENTER
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
if(CPACK_GENERATOR STREQUAL "DEB")
  set(LIBRARY_MODE OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
  tav_move(share/zsh/site-functions share/zsh/vendor-completions)
elseif(CPACK_GENERATOR STREQUAL "RPM")
  set(LIBRARY_MODE ${ALL_MAY_ENTER})
  # In %{_libdir}/cmpi, where every broker of these distributions looks, with a link where SFCB looks first.
  set(LIBDIR lib)
  if(CMAKE_HOST_SYSTEM_PROCESSOR MATCHES "64")
    set(LIBDIR lib64)
  endif()
  set(PROVIDER_ROOT ${CPACK_TEMPORARY_DIRECTORY}/provider${CPACK_PACKAGING_INSTALL_PREFIX})
  foreach(FROM lib/sfcb lib64/sfcb)
    tav_move(${FROM} ${LIBDIR}/cmpi)
  endforeach()
  file(MAKE_DIRECTORY ${PROVIDER_ROOT}/${LIBDIR}/sfcb)
  file(CREATE_LINK ../cmpi/libTAVStorageProvider.so ${PROVIDER_ROOT}/${LIBDIR}/sfcb/libTAVStorageProvider.so SYMBOLIC)
endif()
foreach(COMPONENT ${CPACK_COMPONENTS_ALL})
  file(GLOB_RECURSE LIBRARIES ${CPACK_TEMPORARY_DIRECTORY}/${COMPONENT}/*.so)
  file(CHMOD ${LIBRARIES} FILE_PERMISSIONS ${LIBRARY_MODE})
  # Independent of the umask.
  file(CHMOD_RECURSE ${CPACK_TEMPORARY_DIRECTORY}/${COMPONENT} DIRECTORY_PERMISSIONS ${ALL_MAY_ENTER})
endforeach()

# Sets the Debian dependencies of a component's binaries. CPack's own option would also make the packages call ldconfig, which
# does not look into private directories.
function(tav_debian_dependencies COMPONENT)
  set(ROOT ${CPACK_TEMPORARY_DIRECTORY}/${COMPONENT}${CPACK_PACKAGING_INSTALL_PREFIX})
  file(GLOB_RECURSE BINARIES ${ROOT}/*.so ${ROOT}/sbin/*)
  file(WRITE ${CPACK_TEMPORARY_DIRECTORY}/shlibdeps/debian/control "Source: tavstrg\n\nPackage: tavstrg\nArchitecture: any\n")
  execute_process(
    COMMAND dpkg-shlibdeps --ignore-missing-info -l${CPACK_TAV_BUILD_LIBDIR} -O ${BINARIES}
    WORKING_DIRECTORY ${CPACK_TEMPORARY_DIRECTORY}/shlibdeps
    OUTPUT_VARIABLE DEPENDS OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET COMMAND_ERROR_IS_FATAL ANY)
  file(REMOVE_RECURSE ${CPACK_TEMPORARY_DIRECTORY}/shlibdeps)
  string(REGEX REPLACE "^shlibs:Depends=" "" DEPENDS "${DEPENDS}")
  string(TOUPPER ${COMPONENT} UPPER_COMPONENT)
  list(APPEND DEPENDS ${CPACK_DEBIAN_${UPPER_COMPONENT}_PACKAGE_DEPENDS})
  list(JOIN DEPENDS ", " DEPENDS)
  set(CPACK_DEBIAN_${UPPER_COMPONENT}_PACKAGE_DEPENDS ${DEPENDS} PARENT_SCOPE)
endfunction()
if(CPACK_GENERATOR STREQUAL "DEB")
  foreach(COMPONENT ${CPACK_COMPONENTS_ALL})
    tav_debian_dependencies(${COMPONENT})
  endforeach()
endif()
