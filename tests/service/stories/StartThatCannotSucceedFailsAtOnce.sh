# A daemon that cannot have its socket ends in order, with a status that otherwise means success. The start fails
# nevertheless, and long before its time is up.
mkdir -p /var/run/znorb.socket/in-the-way
begun=$(date +%s)
unit_start && fail "the unit started without a socket"
[ $(($(date +%s) - begun)) -lt 15 ] || fail "it took $(($(date +%s) - begun)) seconds"
unit_settle
[ "$(unit_state)" = failed ] || fail "the unit is $(unit_state)"
none_run $daemon || fail "the daemon runs"
nothing_left_behind
rmdir /var/run/znorb.socket/in-the-way /var/run/znorb.socket
unit_start || fail "the unit did not start afterwards"
