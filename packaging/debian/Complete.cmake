# Runs before the package is put together, when all is in place: adds what only a Debian package has. Neither files nor
# folders depend on the umask of whoever builds it.
set(root ${CPACK_TEMPORARY_DIRECTORY})

string(TIMESTAMP ZNORB_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC) # of SOURCE_DATE_EPOCH, if that is set
configure_file(${CMAKE_CURRENT_LIST_DIR}/changelog.in ${root}.changelog @ONLY)
execute_process(COMMAND gzip -9nc ${root}.changelog
    OUTPUT_FILE ${root}/usr/share/doc/znorb/changelog.Debian.gz COMMAND_ERROR_IS_FATAL ANY)
configure_file(${CMAKE_CURRENT_LIST_DIR}/lintian-overrides ${root}/usr/share/lintian/overrides/znorb COPYONLY)
file(CHMOD ${root}/usr/share/doc/znorb/changelog.Debian.gz ${root}/usr/share/lintian/overrides/znorb
    PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)

file(GLOB_RECURSE entries LIST_DIRECTORIES true ${root}/*)
foreach(entry ${entries})
    if(IS_DIRECTORY ${entry} AND NOT IS_SYMLINK ${entry})
        file(CHMOD ${entry} DIRECTORY_PERMISSIONS
            OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
    endif()
endforeach()
