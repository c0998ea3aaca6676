# Runs last at an installation: makes what names the places of others, and the link in the search path.
string(RANDOM LENGTH 8 work) # there may be several at a time
set(ZNORB_WORK ${ZNORB_WORK}-${work})
set(ZNORB_HOME /${ZNORB_ROOT}opt/zn/znorb)
set(ZNORB_SBIN /${ZNORB_USR}sbin)

string(LENGTH "${ZNORB_HOME}/bin" length)
if(length GREATER 79)
    message(WARNING "The daemon finds its clients only in a directory with a path of fewer than 80 bytes; this one has "
        "${length}: ${ZNORB_HOME}/bin")
endif()
if(ZNORB_HOME MATCHES "[^A-Za-z0-9_./+@-]")
    message(WARNING "The prefix has characters that a unit file would have to quote: /${ZNORB_ROOT}")
endif()

# znorb_install(<file> <folder>): one of ZNORB_WORK. A macro, or it would not get into the manifest.
macro(znorb_install file folder)
    file(INSTALL DESTINATION ${folder} TYPE FILE FILES ${ZNORB_WORK}/${file})
endmacro()

configure_file(${ZNORB_SOURCE}/systemd/znorbresponder.service.in ${ZNORB_WORK}/znorbresponder.service @ONLY)
znorb_install(znorbresponder.service /${ZNORB_USR}lib/systemd/system)
string(REGEX REPLACE "/$" "" prefix /${ZNORB_USR})
string(REPLACE ${prefix}/ "\${prefix}/" programdir ${ZNORB_HOME}/bin) # pkg-config --define-prefix moves both
configure_file(${ZNORB_SOURCE}/znorb.pc.in ${ZNORB_WORK}/znorb.pc @ONLY)
znorb_install(znorb.pc /${ZNORB_PKGCONFIG})
file(CREATE_LINK ${ZNORB_HOME}/bin/znorbresponder ${ZNORB_WORK}/znorbresponder SYMBOLIC)
znorb_install(znorbresponder ${ZNORB_SBIN})

# znorb_place(<file>): a copy in ZNORB_WORK that has the places of this installation for those of the package.
function(znorb_place file)
    cmake_path(GET file FILENAME name)
    file(READ ${file} text)
    string(REPLACE /opt/zn/znorb/ ${ZNORB_HOME}/ text "${text}")
    string(REPLACE /usr/share/pkgconfig/ /${ZNORB_PKGCONFIG}/ text "${text}")
    foreach(folder include/znorb share/doc/znorb)
        string(REPLACE /usr/${folder}/ /${ZNORB_USR}${folder}/ text "${text}")
    endforeach()
    file(WRITE ${ZNORB_WORK}/${name} "${text}")
endfunction()

# znorb_compress(<file> <name>): <name>.gz in ZNORB_WORK, always the same for the same text.
function(znorb_compress file name)
    execute_process(COMMAND gzip -9nc ${file} OUTPUT_FILE ${ZNORB_WORK}/${name}.gz COMMAND_ERROR_IS_FATAL ANY)
endfunction()

znorb_place(${ZNORB_SOURCE}/systemd/hardening.conf)
znorb_install(hardening.conf /${ZNORB_USR}share/doc/znorb/examples)
znorb_compress(${ZNORB_SOURCE}/../CHANGELOG.md changelog)
znorb_install(changelog.gz /${ZNORB_USR}share/doc/znorb)
file(GLOB pages ${ZNORB_SOURCE}/man/*.[78])
foreach(page ${pages})
    cmake_path(GET page FILENAME name)
    string(REGEX REPLACE ".*[.]" "" section ${name})
    znorb_place(${page})
    znorb_compress(${ZNORB_WORK}/${name} ${name})
    znorb_install(${name}.gz /${ZNORB_USR}share/man/man${section})
endforeach()
file(REMOVE_RECURSE ${ZNORB_WORK})
