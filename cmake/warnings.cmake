# The warnings of the whole project, and the only place that names them. They apply to every target
# that is defined after this file is included. CACHEFILE_STRICT turns them into errors, as all
# presets do; a build without presets only prints them, so a compiler that knows new warnings
# still builds the project.
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
