# Checks that recording and packing give the same bytes on Windows and on this system.
#
#     cmake -DPROGRAM=cachefile.exe -DEMULATOR=... -DROOT=project -DDIRECTORY=... -P exchange.cmake
set(native ${ROOT}/build/dev/bin/cachefile)
file(REMOVE_RECURSE ${DIRECTORY})
file(MAKE_DIRECTORY ${DIRECTORY})
function(run)
    execute_process(COMMAND ${ARGN} WORKING_DIRECTORY ${DIRECTORY} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

run(${CMAKE_COMMAND} -S ${ROOT} --preset dev)
run(${CMAKE_COMMAND} --build ${ROOT}/build/dev --target cachefile_tool)

# A program file has bytes of every value. A conf stream begins with a header of 72 bytes.
file(COPY_FILE ${native} ${DIRECTORY}/4_7004-4.dat)
file(WRITE ${DIRECTORY}/4_7004-1.dat "")
string(REPEAT "conf" 100 conf)
file(WRITE ${DIRECTORY}/100_100-2.dat ${conf})
set(here ${native})
set(windows ${EMULATOR} ${PROGRAM})
foreach(system here windows)
    run(${${system}} record 1 --home ${system} --stream 4:7004:4=4_7004-4.dat
        --stream 4:7004:1=4_7004-1.dat --stream 100:100:2=100_100-2.dat)
    foreach(type 0 1)
        run(${${system}} pack ${system}/1 -o ${system}/packed-${type} --index ${type})
    endforeach()
endforeach()
foreach(type 0 1)
    run(${CMAKE_COMMAND} -E compare_files here/packed-${type} windows/packed-${type})
    run(${here} extract windows/packed-${type} -o from-windows/${type})
    run(${windows} extract here/packed-${type} -o from-here/${type})
endforeach()
foreach(place here/1 windows/1 from-here/0 from-here/1 from-windows/0 from-windows/1)
    foreach(file 4_7004-4.dat 4_7004-1.dat 100_100-2.dat)
        run(${CMAKE_COMMAND} -E compare_files ${file} ${place}/${file})
    endforeach()
endforeach()
