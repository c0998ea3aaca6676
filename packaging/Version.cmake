# Runs when the package is put together: its version, which moves between releases, so that apt sees an upgrade. From
# git 1.1.0+N.gREV, with N commits since the release and ".dirty" where files have changed since the last of them; the
# release itself, or sources without git, have the plain version. ZNORB_PACKAGE_VERSION in the environment has the last
# word: sources that were taken out of git do not know their place in it.
get_filename_component(ZNORB_SOURCE ${CMAKE_CURRENT_LIST_DIR}/.. ABSOLUTE)

# ask_git(<result> <argument>...): what it prints, empty when it fails.
function(ask_git result)
    execute_process(COMMAND git -C ${ZNORB_SOURCE} ${ARGN}
        OUTPUT_VARIABLE output OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
    set(${result} "${output}" PARENT_SCOPE)
endfunction()

# The release is the commit with its tag. Where the tags are not known it is the one that gave the release its date in
# the changelog; where the history has been cut off nobody knows how many commits there are: 0.
function(append_what_came_since)
    ask_git(revision rev-parse --short=8 HEAD)
    if(NOT revision)
        message(WARNING "git does not tell what has come since ${CPACK_PACKAGE_VERSION}")
        return()
    endif()
    ask_git(release rev-parse --verify --quiet "refs/tags/v${CPACK_PACKAGE_VERSION}^{commit}")
    ask_git(isShallow rev-parse --is-shallow-repository)
    if(NOT release AND NOT isShallow STREQUAL "true")
        ask_git(release log -1 --format=%H "-S## [${CPACK_PACKAGE_VERSION}] - " -- CHANGELOG.md)
    endif()
    set(count 0)
    if(release)
        ask_git(count rev-list --count ${release}..HEAD)
    endif()
    ask_git(changes status --porcelain --untracked-files=no)
    if(changes)
        string(APPEND revision .dirty)
    elseif(release AND count EQUAL 0)
        return()
    endif()
    set(CPACK_PACKAGE_VERSION ${CPACK_PACKAGE_VERSION}+${count}.g${revision} PARENT_SCOPE)
endfunction()

if(DEFINED ENV{ZNORB_PACKAGE_VERSION})
    set(CPACK_PACKAGE_VERSION $ENV{ZNORB_PACKAGE_VERSION})
elseif(EXISTS ${ZNORB_SOURCE}/.git) # else git would answer for whatever the sources lie in
    append_what_came_since()
endif()
message(STATUS "The package's version: ${CPACK_PACKAGE_VERSION}")
