# The target docs generates API pages of the public headers in docs/html of the build directory.
# Warnings of Doxygen are errors. The target is not part of the default build.
find_package(Doxygen QUIET)
if(NOT DOXYGEN_FOUND)
    add_custom_target(docs
        COMMAND ${CMAKE_COMMAND} -E echo "docs: Doxygen is missing (.ci/packages docs installs it)"
        COMMAND ${CMAKE_COMMAND} -E false)
    return()
endif()

set(DOXYGEN_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/docs)
set(DOXYGEN_PROJECT_BRIEF ${PROJECT_DESCRIPTION})
set(DOXYGEN_USE_MDFILE_AS_MAINPAGE ${CMAKE_CURRENT_SOURCE_DIR}/docs/api.md)
set(DOXYGEN_STRIP_FROM_PATH ${CMAKE_CURRENT_SOURCE_DIR})
set(DOXYGEN_STRIP_FROM_INC_PATH ${CMAKE_CURRENT_SOURCE_DIR})
set(DOXYGEN_FULL_PATH_NAMES YES)
set(DOXYGEN_EXTRACT_ALL YES)
set(DOXYGEN_JAVADOC_AUTOBRIEF YES)  # the first sentence of a comment is its summary
set(DOXYGEN_MACRO_EXPANSION YES)
set(DOXYGEN_EXPAND_ONLY_PREDEF YES)
set(DOXYGEN_PREDEFINED "CACHEFILE_API=" "CM_GUARDED_BY(mutex)=")
set(DOXYGEN_WARN_AS_ERROR FAIL_ON_WARNINGS)
set(DOXYGEN_WARN_IF_UNDOCUMENTED NO)
set(DOXYGEN_QUIET YES)
set(DOXYGEN_HAVE_DOT NO)

# Leaves out the headers that are installed only because other headers include them.
set(api_headers ${cachefile_headers})
list(FILTER api_headers EXCLUDE REGEX
     "CmCallable|CmMutex|CmReference|CmThreadSafety")
doxygen_add_docs(docs ${api_headers} docs/api.md)
