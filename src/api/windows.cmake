# The product on Windows: Quorl.dll with the thirteen functions of quorl.h, and QuorlHost.dll, which is the same library
# with the functions of host.h added. A host loads one of them.

function(quorl_dll TARGET NAME DESCRIPTION)
  configure_file(${CMAKE_CURRENT_SOURCE_DIR}/api/version.rc.in ${CMAKE_CURRENT_BINARY_DIR}/${NAME}.rc @ONLY)
  add_library(${TARGET} SHARED ${ALL_FLOORS} ${CMAKE_CURRENT_SOURCE_DIR}/api/${NAME}.def
                               ${CMAKE_CURRENT_BINARY_DIR}/${NAME}.rc)
  target_include_directories(${TARGET} PUBLIC ${PROJECT_SOURCE_DIR}/include)
  target_link_libraries(${TARGET} PRIVATE Threads::Threads ${SYSTEM_LIBRARIES})
  set_target_properties(${TARGET} PROPERTIES OUTPUT_NAME ${NAME} PREFIX "" IMPORT_PREFIX "" IMPORT_SUFFIX .lib
                                             LINKER_LANGUAGE CXX RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}
                                             ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})
endfunction()

quorl_dll(quorl_thirteen Quorl "Multicast file distribution")
quorl_dll(quorl QuorlHost "Multicast file distribution, with queries for hosts")
