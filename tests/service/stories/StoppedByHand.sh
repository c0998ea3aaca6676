# A stop by hand is as good as one through the manager: no failure, and the unit can be started again.
unit_start || fail "the unit did not start"
start_client
expect 255 $daemon -stop
grep -q 'has stopped' /tmp/said || fail "-stop said: $(cat /tmp/said)"
unit_settle
[ "$(unit_state)" = inactive ] || fail "the unit is $(unit_state), $(unit_result)"
eventually "the client's end" none_run $client
nothing_left_behind
unit_start || fail "the unit did not start again"
answers || fail "no reply after the second start"
