# The Debian packages. They belong to /usr, so the tree they are built from has to be configured for it (preset
# "package", or ./dev package, which does both).
set(CPACK_GENERATOR DEB)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_PACKAGE_VENDOR "The Quorl authors")
set(CPACK_PACKAGE_CONTACT "The Quorl authors <quorl@localhost>")
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
                                                WORLD_READ WORLD_EXECUTE)
set(CPACK_COMPONENTS_ALL library development command)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# What the packages need of the system is read from the programs themselves.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR})
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

set(ABOUT "Quorl multicasts a selection of files over the local network (IPv4, UDP) and
repairs afterwards what a receiver missed, so that thirty machines take about
as long as one.
.
")

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libquorl${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/triggers)
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION "shared library that sends files to a room of machines
${ABOUT}This package holds the library that programs load.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libquorl-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libquorl${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "shared library that sends files to a room of machines (development files)
${ABOUT}This package holds the headers, the files for pkg-config and CMake, examples,
and a guide for programs that use the library.")

set(CPACK_DEBIAN_COMMAND_PACKAGE_NAME quorl)
set(CPACK_DEBIAN_COMMAND_PACKAGE_SECTION net)
set(CPACK_DEBIAN_COMMAND_PACKAGE_DEPENDS "libquorl${PROJECT_VERSION_MAJOR} (>= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_COMMAND_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/postinst)
set(CPACK_COMPONENT_COMMAND_DESCRIPTION "send files to a room of machines over UDP multicast
${ABOUT}This package holds the command: \"quorl receive\" on every machine, \"quorl send\"
on the one that has the files; and a sandboxed service, off until enabled,
that receives one transfer after the other.")

# A package tells its licence and its history in a directory of its own name; a plain installation needs neither.
foreach(COMPONENT library development command)
  string(TOUPPER ${COMPONENT} UPPER)
  set(DOC_DIR share/doc/${CPACK_DEBIAN_${UPPER}_PACKAGE_NAME})
  install(FILES ${CMAKE_CURRENT_LIST_DIR}/copyright ${CMAKE_CURRENT_LIST_DIR}/changelog DESTINATION ${DOC_DIR}
          COMPONENT ${COMPONENT} EXCLUDE_FROM_ALL)
endforeach()
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/compress.cmake)

include(CPack)
