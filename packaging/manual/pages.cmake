# Makes the manual pages and the completion of the shells with generate.py, and installs them.
find_package(Python3 REQUIRED COMPONENTS Interpreter)
set(PAGES ${CMAKE_CURRENT_BINARY_DIR}/pages)
set(PAGE_NAMES quorl quorl-send quorl-receive quorl-list quorl-doctor)
list(TRANSFORM PAGE_NAMES PREPEND ${PAGES}/ OUTPUT_VARIABLE PAGE_FILES)
list(TRANSFORM PAGE_FILES APPEND .1)
file(GLOB TEMPLATES CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/*.in ${CMAKE_CURRENT_LIST_DIR}/*.py)
add_custom_command(OUTPUT ${PAGE_FILES} ${PAGES}/quorl.bash ${PAGES}/_quorl ${PAGES}/quorl.fish
                   COMMAND print_options > options.json
                   COMMAND ${Python3_EXECUTABLE} -B ${CMAKE_CURRENT_LIST_DIR}/generate.py options.json
                           ${CMAKE_CURRENT_LIST_DIR} ${PAGES}
                   DEPENDS print_options ${TEMPLATES} VERBATIM)
add_custom_target(pages ALL DEPENDS ${PAGE_FILES})

if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(ZSH_DIR vendor-completions)
else()
  set(ZSH_DIR site-functions)
endif()
install(FILES ${PAGE_FILES} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT command)
install(FILES ${PAGES}/quorl.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME quorl
        COMPONENT command)
install(FILES ${PAGES}/_quorl DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/${ZSH_DIR} COMPONENT command)
install(FILES ${PAGES}/quorl.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d COMPONENT command)
