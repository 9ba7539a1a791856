# Test programs for Windows: googletest from Debian's sources, built for the target. Each program is one test, since
# starting a process takes longer here than most of what it does.
set(INSTALL_GTEST OFF)
set(BUILD_GMOCK OFF)
add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
foreach(LIBRARY gtest gtest_main)
  target_compile_options(${LIBRARY} PRIVATE -w)
endforeach()

function(quorl_test_under_wine NAME)
  add_test(NAME ${NAME} COMMAND test_${NAME} --gtest_brief=1)
  set_tests_properties(${NAME} PROPERTIES TIMEOUT 600 LABELS wine)
endfunction()

# Of the tests of the command one is of its system folder.
macro(quorl_windows_sources)
  if(NAME STREQUAL cli)
    set(SOURCES cli/staging_test.cpp)
  endif()
endmacro()
