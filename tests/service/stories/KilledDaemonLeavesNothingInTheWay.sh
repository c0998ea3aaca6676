# SIGKILL leaves lock and table behind, which would refuse every start. Its clients run on.
unit_start || fail "the unit did not start"
start_client
kill -KILL "$(main_process)"
unit_settle
[ "$(unit_state)" = failed ] || fail "the unit is $(unit_state)"
nothing_left_behind
has_ended "$started" && fail "the client was ended"
unit_start || fail "the unit did not start again"
answers || fail "no reply after the second start"
unit_stop || fail "the unit did not stop"
has_ended "$started" && fail "the client of the first daemon was ended by the second one's stop"
kill -TERM "$started"
