# Runs before the package is put together: its folders do not depend on the umask of whoever builds it.
file(GLOB_RECURSE entries LIST_DIRECTORIES true ${CPACK_TEMPORARY_DIRECTORY}/*)
foreach(entry ${entries})
    if(IS_DIRECTORY ${entry} AND NOT IS_SYMLINK ${entry})
        file(CHMOD ${entry} DIRECTORY_PERMISSIONS
            OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
    endif()
endforeach()
