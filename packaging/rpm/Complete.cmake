# Runs before the package is put together, when all is in place: turns what is Debian's into what is usual for RPMs.
set(root ${CPACK_TEMPORARY_DIRECTORY})

file(READ ${root}/usr/share/doc/znorb/copyright text)
string(REGEX REPLACE "On Debian systems.*/GPL-3\\. " "" text "${text}")
file(WRITE ${root}/usr/share/licenses/znorb/copyright "${text}")
file(CHMOD ${root}/usr/share/licenses/znorb/copyright PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
file(REMOVE ${root}/usr/share/doc/znorb/copyright)

# rpm turns back only those times that are later.
if(DEFINED ENV{SOURCE_DATE_EPOCH})
    execute_process(COMMAND find ${root} -exec touch --no-dereference --date=@$ENV{SOURCE_DATE_EPOCH} {} +
        COMMAND_ERROR_IS_FATAL ANY)
endif()
