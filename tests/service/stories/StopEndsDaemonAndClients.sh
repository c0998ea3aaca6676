# The clients are asked to exit, and nothing is left behind.
unit_start || fail "the unit did not start"
start_client
start_client
unit_stop || fail "the unit did not stop"
[ "$(unit_state)" = inactive ] || fail "the unit is $(unit_state), $(unit_result)"
none_run $daemon || fail "the daemon runs on"
eventually "the clients' end" none_run $client
nothing_left_behind
unit_start || fail "the unit did not start again"
answers || fail "no reply after the second start"
unit_stop || fail "the unit did not stop again"
