# cmake -DLIBRARY=... -DNM=... -P calls_left.cmake: fails when the simulated copy of the library
# calls anything of libc but what is named here, none of which can fail or wait.
#
# execlp and _exit run in the child of ping_status alone, which the simulation never starts; signal
# fails for a bad signal number only.
set(harmless __errno_location _exit execlp inet_pton memcpy memmove memset printf pthread_self signal
    snprintf strerror strlen strncat strncpy vsnprintf _GLOBAL_OFFSET_TABLE_)

execute_process(COMMAND ${NM} ${LIBRARY} OUTPUT_VARIABLE symbols COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCHALL " [TBDRVWu] [^\n]+" defined "${symbols}")
list(TRANSFORM defined REPLACE "^ . " "")
string(REGEX MATCHALL " U [^\n]+" called "${symbols}")
list(TRANSFORM called REPLACE "^ U " "")
list(REMOVE_DUPLICATES called)
list(REMOVE_ITEM called ${defined} ${harmless})
list(FILTER called EXCLUDE REGEX "^sim_|^__gcov_|^__(asan|msan|tsan|ubsan|sanitizer)_|^__stack_chk_fail$")
if(called)
    message(FATAL_ERROR "calls that the simulation does not take: ${called}")
endif()
