# What the library writes on one system it reads on the other.
#
#     cmake -DPROGRAM=exchange.exe -DEMULATOR=... -DROOT=project -DDIRECTORY=... -P exchange.cmake

function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE status)
    if(status)
        message(FATAL_ERROR "failed: ${ARGN}")
    endif()
endfunction()

set(native ${ROOT}/build/dev/bin/exchange)
run(${CMAKE_COMMAND} -S ${ROOT} --preset dev)
run(${CMAKE_COMMAND} --build ${ROOT}/build/dev --target exchange)

file(REMOVE_RECURSE ${DIRECTORY})
file(MAKE_DIRECTORY ${DIRECTORY}/from-here ${DIRECTORY}/from-windows)
run(${native} write ${DIRECTORY}/from-here)
run(${EMULATOR} ${PROGRAM} read Z:${DIRECTORY}/from-here)
run(${EMULATOR} ${PROGRAM} write Z:${DIRECTORY}/from-windows)
run(${native} read ${DIRECTORY}/from-windows)

file(GLOB files RELATIVE ${DIRECTORY}/from-here ${DIRECTORY}/from-here/*)
foreach(file IN LISTS files)
    run(${CMAKE_COMMAND} -E compare_files ${DIRECTORY}/from-here/${file}
        ${DIRECTORY}/from-windows/${file})
endforeach()
