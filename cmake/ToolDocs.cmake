# Man pages (help2man) and bash completion files made from the tools' own --help at build time,
# so that they never disagree with the binaries; installed with them.
find_program(HELP2MAN help2man REQUIRED)

# morvik_tool_docs(TARGET "one-line description")
function(morvik_tool_docs target description)
  set(man ${PROJECT_BINARY_DIR}/man/${target}.1)
  set(completion ${PROJECT_BINARY_DIR}/completion/${target})
  add_custom_command(OUTPUT ${man} ${completion}
    COMMAND ${PROJECT_SOURCE_DIR}/cmake/tool-docs.sh $<TARGET_FILE:${target}> ${target}
            ${description} ${PROJECT_VERSION} ${PROJECT_BINARY_DIR}
    DEPENDS ${target} ${PROJECT_SOURCE_DIR}/cmake/tool-docs.sh
    COMMENT "Man page and bash completion of ${target}"
    VERBATIM)
  add_custom_target(${target}-docs ALL DEPENDS ${man} ${completion})
  install(FILES ${man} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES ${completion} DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
endfunction()
