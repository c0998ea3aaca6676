# SIGTERM leaves the table behind, on which the next start would fail after it has reported success.
unit_start || fail "the unit did not start"
start_client
kill -TERM "$(main_process)"
unit_settle
[ "$(unit_state)" = inactive ] || fail "the unit is $(unit_state), $(unit_result)"
nothing_left_behind
has_ended "$started" && fail "the client was ended"
unit_start || fail "the unit did not start again"
answers || fail "no reply after the second start"
kill -TERM "$started"
