# Runs the example PROGRAM twice: into the new directory DIRECTORY, where the file that it names has
# to hold as many bytes as it says, and into a directory that can't be, which it has to report.
# EMULATOR runs it where it was built for another system.
file(REMOVE_RECURSE ${DIRECTORY})
file(MAKE_DIRECTORY ${DIRECTORY})

# A relative directory in one, an absolute one in the other.
execute_process(COMMAND ${EMULATOR} ${PROGRAM} "some recordings/new" WORKING_DIRECTORY ${DIRECTORY}
                RESULT_VARIABLE result OUTPUT_VARIABLE output)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "it ended with ${result}")
endif()
if(NOT output MATCHES "wrote ([0-9]+) bytes to ([^\r\n]+)\r?\n$")
    message(FATAL_ERROR "it doesn't say what it wrote: ${output}")
endif()
set(told ${CMAKE_MATCH_1})
file(SIZE "${DIRECTORY}/${CMAKE_MATCH_2}" size)
if(told EQUAL 0 OR NOT told EQUAL size)
    message(FATAL_ERROR "it says ${told} bytes, the file has ${size}")
endif()

file(WRITE ${DIRECTORY}/file "in the way")
execute_process(COMMAND ${EMULATOR} ${PROGRAM} ${DIRECTORY}/file
                RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE error)
if(NOT result EQUAL 1 OR NOT error MATCHES "open|worker" OR NOT output STREQUAL "")
    message(FATAL_ERROR "with a file for a directory it ended with ${result}: ${output}${error}")
endif()
