# Debian wants manual pages compressed: run by CPack on what is to be packed.
file(GLOB_RECURSE pages ${CPACK_TEMPORARY_DIRECTORY}/usr/share/man/*.1)
execute_process(COMMAND gzip -9 -n ${pages} COMMAND_ERROR_IS_FATAL ANY)
