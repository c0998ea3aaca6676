# A client that takes the exit request and never answers holds QUIT up for half an hour. The stop waits its
# minute for the reply, and then SIGTERM ends the daemon. Takes that minute.
unit_start || fail "the unit did not start"
start_client
kill -STOP "$started"
begun=$(date +%s)
unit_stop || fail "the unit did not stop"
took=$(($(date +%s) - begun))
[ $took -ge 55 ] && [ $took -lt 90 ] || fail "it took $took seconds"
[ "$(unit_state)" = inactive ] || fail "the unit is $(unit_state), $(unit_result)"
none_run $daemon || fail "the daemon runs on"
nothing_left_behind
kill -KILL "$started" 2>/dev/null || true # it may have ended with its stopped group
