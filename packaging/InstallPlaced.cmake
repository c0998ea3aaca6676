# Runs at installation: makes what names the place, the unit and the link in the search path.
string(REGEX REPLACE "/+$" "" ZNORB_PREFIX "${CMAKE_INSTALL_PREFIX}")
set(home ${ZNORB_PREFIX}/opt/zn/znorb/bin)

string(LENGTH "${home}" length)
if(length GREATER 79)
    message(WARNING "The daemon finds its clients only in a directory with a path of fewer than 80 bytes; this one has "
        "${length}: ${home}")
endif()
if(ZNORB_PREFIX MATCHES "[^A-Za-z0-9_./+@-]")
    message(WARNING "The prefix has characters that a unit file would have to quote: ${ZNORB_PREFIX}")
endif()

configure_file(${ZNORB_UNIT} ${ZNORB_WORK}/znorbresponder.service @ONLY)
file(INSTALL DESTINATION ${ZNORB_PREFIX}/lib/systemd/system TYPE FILE FILES ${ZNORB_WORK}/znorbresponder.service)
file(CREATE_LINK ${home}/znorbresponder ${ZNORB_WORK}/znorbresponder SYMBOLIC)
file(INSTALL DESTINATION ${ZNORB_PREFIX}/usr/sbin TYPE FILE FILES ${ZNORB_WORK}/znorbresponder)
