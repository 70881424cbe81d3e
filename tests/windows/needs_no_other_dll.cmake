# Checks that the built files need only DLLs of the system and the library's DLL.
#
#     cmake -DOBJDUMP=... -DBIN=... -P needs_no_other_dll.cmake
file(GLOB files ${BIN}/*.exe ${BIN}/*.dll)
if(NOT EXISTS ${BIN}/cachefile.dll)
    message(FATAL_ERROR "no library in ${BIN}")
endif()
foreach(file IN LISTS files)
    execute_process(COMMAND ${OBJDUMP} -p ${file} OUTPUT_VARIABLE headers COMMAND_ERROR_IS_FATAL ANY)
    string(REGEX MATCHALL "DLL Name: [^\n]+" names "${headers}")
    if(NOT names)
        message(FATAL_ERROR "${file}: no imports found")
    endif()
    foreach(name IN LISTS names)
        if(NOT name MATCHES "^DLL Name: (KERNEL32|msvcrt|cachefile)\\.dll$")
            message(SEND_ERROR "${file} needs ${name}")
        endif()
    endforeach()
endforeach()
