# Checks that a page of the documentation shows exactly the host that is built and run.
file(READ ${PAGE} page)
file(READ ${HOST} host)
string(FIND "${page}" "```${LANGUAGE}\n${host}```" found)
if(found EQUAL -1)
    message(FATAL_ERROR "the host in ${PAGE} differs from ${HOST}")
endif()
