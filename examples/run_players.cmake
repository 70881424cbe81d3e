# Records with the examples in BIN, plays the record files, packs them with the example and with the
# command line, and plays the containers. Checks that each step reports the expected number of bytes;
# the example pack adds a conf stream of 72. EMULATOR runs programs that were built for another
# system.
file(REMOVE_RECURSE ${DIRECTORY})
file(MAKE_DIRECTORY ${DIRECTORY})

function(run name wanted)
    execute_process(COMMAND ${EMULATOR} ${BIN}/${name}${SUFFIX} ${ARGN}
                    WORKING_DIRECTORY ${DIRECTORY}
                    RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE error)
    string(REGEX MATCH "[0-9]+" number "${output}")
    if(NOT result EQUAL 0 OR NOT number EQUAL wanted)
        message(FATAL_ERROR "${name} ended with ${result}, expected ${wanted}: ${output}${error}")
    endif()
endfunction()

function(refused name word)
    execute_process(COMMAND ${EMULATOR} ${BIN}/${name}${SUFFIX} ${ARGN}
                    WORKING_DIRECTORY ${DIRECTORY}
                    RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE error)
    if(NOT result EQUAL 1 OR NOT error MATCHES "${word}" OR NOT output STREQUAL "")
        message(FATAL_ERROR "${name} ended with ${result}: ${output}${error}")
    endif()
endfunction()

foreach(recorder record_sync record_async)
    execute_process(COMMAND ${EMULATOR} ${BIN}/${recorder}${SUFFIX} made
                    WORKING_DIRECTORY ${DIRECTORY} OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
endforeach()
set(notes made/1/notes.txt)
set(samples made/2/samples.raw)
file(SIZE ${DIRECTORY}/${notes} notes_size)
file(SIZE ${DIRECTORY}/${samples} samples_size)
math(EXPR all "${notes_size} + ${samples_size} + 72")

run(play_record ${notes_size} made)
run(pack 2 packed.qxf ${notes} ${samples})
run(play_container ${all} packed.qxf)
if(EXISTS ${BIN}/cachefile${SUFFIX})
    file(COPY_FILE ${DIRECTORY}/${notes} ${DIRECTORY}/made/1/1_1001-2.dat)
    run(cachefile 1 pack made/1 -o tool.qxf)
    run(play_container ${notes_size} tool.qxf)
endif()

refused(play_record NOT_FOUND missing)
refused(pack NOT_FOUND other.qxf missing)
refused(play_container BAD_CONTAINER ${notes})
if(EXISTS ${DIRECTORY}/other.qxf)
    message(FATAL_ERROR "pack left an incomplete container")
endif()
