# Records with the examples in BIN, plays the record file, packs it twice and plays the container.
# Checks that each step reports the expected number of bytes. EMULATOR runs programs that were built
# for another system.
file(REMOVE_RECURSE ${DIRECTORY})
file(MAKE_DIRECTORY ${DIRECTORY})

# Runs an example and checks its exit code and its output.
function(run wanted_result wanted name)
    execute_process(COMMAND ${EMULATOR} ${BIN}/c_${name}${SUFFIX} ${ARGN}
                    WORKING_DIRECTORY ${DIRECTORY}
                    RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE error)
    if(NOT result EQUAL wanted_result OR NOT "${output}${error}" MATCHES "${wanted}")
        message(FATAL_ERROR "${name} ended with ${result}, expected ${wanted}: ${output}${error}")
    endif()
endfunction()

run(0 "wrote [0-9]+ bytes" record made)
file(SIZE ${DIRECTORY}/made/4/samples.raw size)
math(EXPR all "${size} * 2 + 72")  # the header that c_pack sets is a separate stream
run(0 "played ${size} bytes" play made)
run(0 "packed 2 streams" pack packed.qxf made/4/samples.raw ${DIRECTORY}/made/4/samples.raw)
run(0 "played ${all} bytes" play_container packed.qxf)

run(1 "open: .*NOT_FOUND" play missing)
run(1 "BAD_CONTAINER" play_container made/4/samples.raw)
run(1 "NOT_FOUND" pack other.qxf missing)
if(EXISTS ${DIRECTORY}/other.qxf)
    message(FATAL_ERROR "pack left an incomplete container")
endif()
