# Run by CPack over each package's tree before it is packed: Debian keeps manual pages and changelogs compressed.
file(GLOB_RECURSE PLAIN ${CPACK_TEMPORARY_DIRECTORY}/*/usr/share/man/*.1 ${CPACK_TEMPORARY_DIRECTORY}/*/changelog)
foreach(FILE ${PLAIN})
  execute_process(COMMAND gzip -9n ${FILE} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
