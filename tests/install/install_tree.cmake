# Installs the build BUILD and moves the result to PREFIX, so that absolute paths from the
# installation are invalid. Removes CONSUMERS, which were built against an earlier installation. If
# SOURCE is set, first configures and builds only the static library in BUILD.
if(SOURCE)
    execute_process(COMMAND ${CMAKE_COMMAND} -S ${SOURCE} -B ${BUILD} -G ${GENERATOR} ${OPTIONS}
                            -DCMAKE_BUILD_TYPE=${CONFIG} -DBUILD_SHARED_LIBS=OFF
                            -DCACHEFILE_TESTS=OFF -DCACHEFILE_TOOL=OFF -DCACHEFILE_EXAMPLES=OFF
                    COMMAND_ERROR_IS_FATAL ANY)
    execute_process(COMMAND ${CMAKE_COMMAND} --build ${BUILD} -j2 COMMAND_ERROR_IS_FATAL ANY)
endif()
set(staged ${PREFIX}-staged)
file(REMOVE_RECURSE ${staged} ${PREFIX} ${CONSUMERS})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${staged} --config ${CONFIG}
                COMMAND_ERROR_IS_FATAL ANY)
file(RENAME ${staged} ${PREFIX})
