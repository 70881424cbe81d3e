# The host that a page of the documentation shows is the one that is built and run.
file(READ ${PAGE} page)
file(READ ${HOST} host)
string(FIND "${page}" "```${LANGUAGE}\n${host}```" found)
if(found EQUAL -1)
    message(FATAL_ERROR "${PAGE} doesn't show ${HOST} as it is")
endif()
