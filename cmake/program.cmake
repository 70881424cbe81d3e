# cachefile_program(NAME SOURCE...): adds a program that takes paths from its command line. On Windows
# its manifest sets the encoding of the process to UTF-8, so that all file names can be passed.
function(cachefile_program name)
    add_executable(${name} ${ARGN})
    target_link_libraries(${name} PRIVATE cachefile::cachefile Threads::Threads)
    set(manifest ${PROJECT_SOURCE_DIR}/cmake/utf8.manifest)
    if(MSVC)
        target_sources(${name} PRIVATE ${manifest})
    elseif(WIN32)
        set(resource ${PROJECT_SOURCE_DIR}/cmake/utf8.rc)
        target_sources(${name} PRIVATE ${resource})
        set_source_files_properties(${resource} PROPERTIES
            INCLUDE_DIRECTORIES ${PROJECT_SOURCE_DIR}/cmake OBJECT_DEPENDS ${manifest})
    endif()
endfunction()
