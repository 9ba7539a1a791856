# The libraries of the command, compiled for Windows from the sources that Debian makes its packages of
# (tools/windows_sources.sh), under the names that they have elsewhere.
enable_language(C)
if(NOT EXISTS ${QUORL_SOURCES}/complete)
  message(FATAL_ERROR "Run tools/windows_sources.sh ${QUORL_SOURCES} first, or ./dev windows, which does.")
endif()

function(quorl_windows_library NAME)
  add_library(${NAME} STATIC EXCLUDE_FROM_ALL ${ARGN})
  target_compile_options(${NAME} PRIVATE -w)
endfunction()

set(FMT ${QUORL_SOURCES}/fmtlib)
quorl_windows_library(fmt ${FMT}/src/format.cc)
target_include_directories(fmt SYSTEM PUBLIC ${FMT}/include)
add_library(fmt::fmt ALIAS fmt)

add_library(cli11 INTERFACE)
target_include_directories(cli11 SYSTEM INTERFACE ${QUORL_SOURCES}/cli11/include)
add_library(CLI11::CLI11 ALIAS cli11)

# What depends on the processor chooses among its own implementations, or compiles to nothing.
set(SODIUM ${QUORL_SOURCES}/libsodium)
set(SODIUM_INCLUDE_DIR ${SODIUM}/src/libsodium/include ${CMAKE_BINARY_DIR}/sodium)
configure_file(${SODIUM}/builds/msvc/version.h ${CMAKE_BINARY_DIR}/sodium/sodium/version.h COPYONLY)
configure_file(${SODIUM}/src/libsodium/include/sodium/export.h ${CMAKE_BINARY_DIR}/sodium/sodium/export.h COPYONLY)
file(GLOB_RECURSE SODIUM_SOURCES CONFIGURE_DEPENDS ${SODIUM}/src/libsodium/*.c)
quorl_windows_library(sodium ${SODIUM_SOURCES})
target_compile_definitions(sodium PUBLIC SODIUM_STATIC PRIVATE CONFIGURED=1 NATIVE_LITTLE_ENDIAN)
target_include_directories(sodium PRIVATE ${SODIUM_INCLUDE_DIR} ${SODIUM}/src/libsodium/include/sodium
                                          ${CMAKE_BINARY_DIR}/sodium/sodium)
set(SODIUM_LIBRARY sodium)

quorl_windows_library(xxhash ${QUORL_SOURCES}/xxhash/xxhash.c)
set(XXHASH_LIBRARY xxhash)
set(XXHASH_INCLUDE_DIR ${QUORL_SOURCES}/xxhash)

quorl_windows_library(utf8proc ${QUORL_SOURCES}/utf8proc/utf8proc.c)
target_compile_definitions(utf8proc PUBLIC UTF8PROC_STATIC)
set(UTF8PROC_LIBRARY utf8proc)
set(UTF8PROC_INCLUDE_DIR ${QUORL_SOURCES}/utf8proc)
