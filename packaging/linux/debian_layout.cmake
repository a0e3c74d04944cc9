# What Debian wants beyond what cmake installs, or otherwise: run by CPack on what is to be packed.
set(share ${CPACK_TEMPORARY_DIRECTORY}/usr/share)
string(TIMESTAMP date %s UTC)  # SOURCE_DATE_EPOCH, where that is set
set(changelog ${share}/doc/sondex/changelog)
execute_process(
  COMMAND ${CMAKE_CURRENT_LIST_DIR}/changelog ${CMAKE_CURRENT_LIST_DIR}/../../CHANGELOG.md
          ${CPACK_PACKAGE_VERSION} ${CPACK_PACKAGE_CONTACT} ${date}
  OUTPUT_FILE ${changelog} COMMAND_ERROR_IS_FATAL ANY)
file(GLOB pages ${share}/man/man1/*.1)
execute_process(COMMAND gzip -9 -n ${pages} ${changelog} COMMAND_ERROR_IS_FATAL ANY)
file(RENAME ${share}/zsh/site-functions ${share}/zsh/vendor-completions)
