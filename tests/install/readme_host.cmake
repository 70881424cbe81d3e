# The host that README.md shows is the one that is built and run.
file(READ ${README} readme)
file(READ ${HOST} host)
string(FIND "${readme}" "```cpp\n${host}```" found)
if(found EQUAL -1)
    message(FATAL_ERROR "README.md doesn't show ${HOST} as it is")
endif()
