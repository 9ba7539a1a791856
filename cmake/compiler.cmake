# Warnings, hardening and sanitizers, for every target of the project.

# Used where it is. It keeps what was compiled with a precompiled header only when told that macros in the header matter
# no more than usual, and when gcc says in its output which header it was.
find_program(CCACHE ccache)
if(CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros ${CCACHE})
  add_compile_options($<$<CXX_COMPILER_ID:GNU>:-fpch-preprocess>)
endif()

add_compile_options(-Wall -Wextra -Wpedantic $<IF:$<CXX_COMPILER_ID:GNU>,-Wshadow=local,-Wshadow> -Wconversion
                    "$<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor;-Woverloaded-virtual>" -Werror)
# Our structs give their members initial values; leaving them out is meant.
add_compile_options(-Wno-missing-field-initializers)

# Assertions and debug information name files as the tree does, wherever it lies: same sources, same program.
add_compile_options(-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.)

# Checks of the standard library stay on in release: a stop is better than a wrong answer.
add_compile_definitions(_GLIBCXX_ASSERTIONS)
add_compile_options(-fstack-protector-strong -fno-omit-frame-pointer)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
  add_compile_options(-fcf-protection)
endif()
if(CMAKE_BUILD_TYPE STREQUAL "Release")
  add_compile_options(-D_FORTIFY_SOURCE=2)
endif()
if(NOT WIN32)
  add_link_options(-Wl,-z,relro,-z,now)
endif()

# Assertions stay on too.
string(REPLACE "-DNDEBUG" "" CMAKE_CXX_FLAGS_RELEASE "${CMAKE_CXX_FLAGS_RELEASE}")
string(REPLACE "-O3" "-O2 -g1" CMAKE_CXX_FLAGS_RELEASE "${CMAKE_CXX_FLAGS_RELEASE}")

if(QUORL_SANITIZE)
  # gcc's sanitizer instrumentation hides initialisations from this warning; the plain builds keep it.
  add_compile_options($<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
  add_compile_options(-fsanitize=${QUORL_SANITIZE} -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${QUORL_SANITIZE})
endif()
