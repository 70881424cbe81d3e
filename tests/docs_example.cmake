# The hex example of docs/container-format.md is a container, and holds what its text says.
#
#     cmake -DPYTHON=... -DROOT=project -DDIRECTORY=... -P docs_example.cmake
file(STRINGS ${ROOT}/docs/container-format.md lines REGEX "^000000[0-9a-f]0: ")
set(hex "")
foreach(line IN LISTS lines)
    string(REGEX MATCH "^........: ([0-9a-f ]+)(  |$)" match "${line}")
    string(APPEND hex "${CMAKE_MATCH_1}")
endforeach()
string(REPLACE " " "" hex "${hex}")

file(MAKE_DIRECTORY ${DIRECTORY})
execute_process(COMMAND ${PYTHON} -c "import sys; open(sys.argv[1], 'wb').write(bytes.fromhex(sys.argv[2]))"
                        ${DIRECTORY}/example.qxf ${hex} COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${PYTHON} ${ROOT}/tests/container_reader.py ${DIRECTORY}/example.qxf
                OUTPUT_VARIABLE got COMMAND_ERROR_IS_FATAL ANY)
set(wanted "0 1 1716864051
257 3 2003 2 0 152 6 909783072
268 4 7004 4 9 158 3 891568578
269 4 7004 1 0 233 0 0
274 100 100 2 0 161 72 3573640304
")
if(NOT got STREQUAL wanted)
    message(FATAL_ERROR "the example says\n${got}and should say\n${wanted}")
endif()
