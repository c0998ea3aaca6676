# Who stops the daemon by hand and starts another at once keeps it: what the manager does after the end of its
# own one does not touch it.
unit_start || fail "the unit did not start"
expect 255 $daemon -stop
expect 0 by_hand $daemon -d
expect 0 znorb-wait
process=$(processes $daemon)
unit_settle
[ "$(unit_state)" = inactive ] || fail "the unit is $(unit_state), $(unit_result)"
# The after-work is over by now; a daemon that was asked to quit would end within a moment.
answers || fail "no reply"
start_client
[ "$(processes $daemon)" = "$process" ] || fail "the daemon is another one: $(processes $daemon), not $process"
[ -e $lock ] && [ -e $table ] || fail "lock or table were taken away"
unit_start && fail "the unit started beside it"
expect 255 $daemon -stop
unit_start || fail "the unit did not start after its end"
