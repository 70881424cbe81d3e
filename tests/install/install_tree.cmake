# Installs the build BUILD and moves the result to PREFIX, so that a path that was written down at
# installation leads nowhere. Clears CONSUMERS, what was built against an earlier one.
set(staged ${PREFIX}-staged)
file(REMOVE_RECURSE ${staged} ${PREFIX} ${CONSUMERS})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${staged} --config ${CONFIG}
                COMMAND_ERROR_IS_FATAL ANY)
file(RENAME ${staged} ${PREFIX})
