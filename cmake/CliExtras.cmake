# The command-line program's manual page and bash completion. The page is
# written by help2man from the program's own --help and --version, so it can
# never describe options the program does not have.
include(GNUInstallDirs)

find_program(HELP2MAN_EXECUTABLE help2man)
if(NOT HELP2MAN_EXECUTABLE)
  message(FATAL_ERROR "help2man not found: the tapedesk-cli manual page is generated with it. "
                      "Install the Debian package help2man (scripts/setup does).")
endif()

function(tapedesk_cli_extras target)
  set(include_file ${PROJECT_SOURCE_DIR}/resources/man/tapedesk-cli.h2m)
  set(completion ${PROJECT_SOURCE_DIR}/resources/completion/tapedesk-cli)
  set(page ${CMAKE_CURRENT_BINARY_DIR}/man/tapedesk-cli.1)
  add_custom_command(OUTPUT ${page} ${page}.gz
    COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_CURRENT_BINARY_DIR}/man
    # A sanitizer build's leak report at exit would fail --help and so the build.
    COMMAND ${CMAKE_COMMAND} -E env ASAN_OPTIONS=detect_leaks=0 QT_QPA_PLATFORM=offscreen
            ${HELP2MAN_EXECUTABLE} --no-info --name "run LTO tape drives carrying LTFS volumes from the command line"
            --section 1 --include ${include_file} --output ${page} $<TARGET_FILE:${target}>
    # Installed compressed, as Debian wants it; -n leaves out the name and time.
    COMMAND gzip -9nkf ${page}
    DEPENDS ${target} ${include_file}
    COMMENT "Generating the tapedesk-cli manual page"
    VERBATIM)
  add_custom_target(${target}_man ALL DEPENDS ${page}.gz)

  install(FILES ${page}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES ${completion} DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
endfunction()
