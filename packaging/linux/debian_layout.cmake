# What Debian wants otherwise than cmake installs it: run by CPack on what is to be packed.
set(share ${CPACK_TEMPORARY_DIRECTORY}/usr/share)
file(GLOB pages ${share}/man/man1/*.1)
execute_process(COMMAND gzip -9 -n ${pages} COMMAND_ERROR_IS_FATAL ANY)
file(RENAME ${share}/zsh/site-functions ${share}/zsh/vendor-completions)
