# What a build for Windows needs beside the warnings: nothing that a Windows machine does not bring itself.

enable_language(RC)

# Windows 7 and later.
add_compile_definitions(_WIN32_WINNT=0x0601 WINVER=0x0601)

# The compiler's own libraries become part of each program; a date in a program would make every build another one.
add_link_options(-static -fstack-protector-strong -Wl,--no-insert-timestamp)

# The sources of the command's libraries, as tools/windows_sources.sh unpacks them.
set(QUORL_SOURCES ${PROJECT_SOURCE_DIR}/build/windows-sources)

# Packing wants the libraries, not every test program.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)
