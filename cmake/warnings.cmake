# The compiler warnings of the whole project. They apply to every target that is defined after this
# file is included. CACHEFILE_STRICT, which all presets set, turns them into errors. A build without a
# preset only prints them, so that a compiler with new warnings can still build the project.
if(MSVC)
    set(cachefile_warnings /W4)
    set(cachefile_warnings_as_errors /WX)
else()
    set(cachefile_warnings -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
    if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
        list(APPEND cachefile_warnings -Wthread-safety)
    endif()
    set(cachefile_warnings_as_errors -Werror)
endif()
if(CACHEFILE_STRICT)
    list(APPEND cachefile_warnings ${cachefile_warnings_as_errors})
endif()
add_compile_options("$<$<COMPILE_LANGUAGE:CXX>:${cachefile_warnings}>")
