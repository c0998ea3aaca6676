# The start is over when the daemon takes requests; it is the manager's own child.
unit_start || fail "the unit did not start"
answers || fail "no reply right after the start"
[ "$(unit_state)" = active ] || fail "the unit is $(unit_state)"
process=$(main_process)
[ "$(processes $daemon)" = "$process" ] || fail "other processes than $process: $(processes $daemon)"
[ "$(sed 's/.*) . \([0-9]*\) .*/\1/' "/proc/$process/stat")" = 1 ] || fail "process 1 is not its parent"
[ -e $lock ] || fail "there is no lock"
