# Runs the example PROGRAM twice. In the new directory DIRECTORY it must write a file of the name and
# size that it prints. For a directory that cannot be created it must report an error. EMULATOR runs
# programs that were built for another system.
file(REMOVE_RECURSE ${DIRECTORY})
file(MAKE_DIRECTORY ${DIRECTORY})

# The first run uses a relative directory, the second an absolute one.
execute_process(COMMAND ${EMULATOR} ${PROGRAM} "some recordings/new" WORKING_DIRECTORY ${DIRECTORY}
                RESULT_VARIABLE result OUTPUT_VARIABLE output)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "the exit code is ${result}")
endif()
if(NOT output MATCHES "wrote ([0-9]+) bytes to ([^\r\n]+)\r?\n$")
    message(FATAL_ERROR "the output does not name the file: ${output}")
endif()
set(told ${CMAKE_MATCH_1})
file(SIZE "${DIRECTORY}/${CMAKE_MATCH_2}" size)
if(told EQUAL 0 OR NOT told EQUAL size)
    message(FATAL_ERROR "the output says ${told} bytes, the file has ${size}")
endif()

file(WRITE ${DIRECTORY}/file "in the way")
execute_process(COMMAND ${EMULATOR} ${PROGRAM} ${DIRECTORY}/file
                RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE error)
if(NOT result EQUAL 1 OR NOT error MATCHES "open|worker" OR NOT output STREQUAL "")
    message(FATAL_ERROR "without a directory the exit code is ${result}: ${output}${error}")
endif()
