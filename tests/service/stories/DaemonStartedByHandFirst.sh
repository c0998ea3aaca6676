# The unit does not start beside a daemon that was started by hand, and does not touch it.
expect 0 by_hand $daemon -d
expect 0 znorb-wait
process=$(processes $daemon)
start_client
marks="$(inode $lock) $(inode $table)"
unit_start && fail "the unit started beside it"
unit_settle
[ "$(unit_state)" = failed ] || fail "the unit is $(unit_state)"
unit_stop || fail "a unit that does not run cannot be stopped"
[ "$(processes $daemon)" = "$process" ] || fail "the daemon is another one: $(processes $daemon), not $process"
[ "$(inode $lock) $(inode $table)" = "$marks" ] || fail "lock or table are others"
answers || fail "no reply"
expect 255 $daemon -stop
eventually "the client's end" none_run $client
unit_start || fail "the unit did not start after its end"
