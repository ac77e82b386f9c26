# Fails the build when the shared library would need anything but the C library at run time.
#   cmake -DLIBRARY=... -DREADELF=... -P needs_libc_alone.cmake
execute_process(COMMAND ${READELF} -d ${LIBRARY} OUTPUT_VARIABLE dynamic COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL "\\(NEEDED\\)[^\n]*\\[[^]\n]*\\]" needed "${dynamic}")
if(NOT needed MATCHES "^\\(NEEDED\\)[^;]*\\[libc\\.so\\.6\\]$")
    file(REMOVE ${LIBRARY})
    message(FATAL_ERROR "the library must need libc.so.6 alone, but it needs: ${needed}")
endif()
