# The RPM, for CPack.
set(CPACK_RPM_PACKAGE_SUMMARY ${PROJECT_DESCRIPTION})
set(CPACK_RPM_PACKAGE_DESCRIPTION "${description}")
set(CPACK_RPM_FILE_NAME RPM-DEFAULT)
set(CPACK_RPM_PACKAGE_ARCHITECTURE ${ZNORB_ARCHITECTURE})
set(CPACK_RPM_PACKAGE_GROUP "System Environment/Daemons")
set(CPACK_RPM_COMPRESSION_TYPE xz)
# No licence has been chosen, and the C and C++ libraries are in the executables.
set(CPACK_RPM_PACKAGE_LICENSE
    "LicenseRef-none-chosen AND LGPL-2.1-or-later AND GPL-3.0-or-later WITH GCC-exception-3.1")
if(ZNORB_STATIC)
    set(CPACK_RPM_PACKAGE_AUTOREQ no) # else znorb.pc asks for pkg-config
endif()

# Only folders of its own belong to it, /opt/zn among them: whoever else has something there owns it as well.
set(CPACK_RPM_EXCLUDE_FROM_AUTO_FILELIST_ADDITION /opt /usr/lib/systemd /usr/lib/systemd/system /usr/sbin
    /usr/share/bash-completion /usr/share/bash-completion/completions /usr/share/licenses
    /usr/share/man /usr/share/man/man7 /usr/share/man/man8 /usr/share/pkgconfig)
set(CPACK_RPM_DEFAULT_DIR_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
install(CODE "unset(CMAKE_ABSOLUTE_DESTINATION_FILES)") # CPack takes them for configuration files
set(CPACK_RPM_USER_FILELIST "%license /usr/share/licenses/znorb/copyright")
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/Complete.cmake)

# The files as they were installed, without links by their build ids, and nothing of the machine or the hour.
set(CPACK_RPM_SPEC_MORE_DEFINE "%define packager ${ZNORB_PACKAGE_MAINTAINER}
%define __spec_install_post %{nil}
%define _build_id_links none
%define _buildhost znorb.invalid
%define use_source_date_epoch_as_buildtime 1
%define clamp_mtime_to_source_date_epoch 1
%define source_date_epoch_from_changelog 0")

# znorb_scriptlet(<scriptlet> <maintainer script> <words>): the Debian package's script, behind a line that turns the
# number of packages that rpm passes, those that remain, into dpkg's words.
function(znorb_scriptlet scriptlet script words)
    set(debian ${PROJECT_SOURCE_DIR}/packaging/debian/${script})
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${debian})
    file(READ ${debian} text)
    string(REGEX REPLACE "^#!/bin/sh\n" "" text "${text}")
    file(CONFIGURE OUTPUT rpm/${script} CONTENT "${words}\n${text}" @ONLY)
    set(CPACK_RPM_${scriptlet}_SCRIPT_FILE ${CMAKE_CURRENT_BINARY_DIR}/rpm/${script} PARENT_SCOPE)
endfunction()
znorb_scriptlet(POST_INSTALL postinst [[if [ "$1" = 1 ]; then set -- configure; else set -- configure older; fi]])
znorb_scriptlet(PRE_UNINSTALL prerm [[if [ "$1" = 0 ]; then set -- remove; else set -- upgrade; fi]])
znorb_scriptlet(POST_UNINSTALL postrm [[if [ "$1" = 0 ]; then set -- remove; else set -- upgrade; fi]])
