# After a SIGKILL without the manager, and after a SIGTERM.
for signal in KILL TERM; do
    expect 0 by_hand $daemon -d
    expect 0 znorb-wait
    kill -$signal "$(processes $daemon)"
    eventually "the daemon's end" none_run $daemon
    [ -e $table ] || fail "SIG$signal should have left the table"
    unit_start || fail "the unit did not start after SIG$signal"
    answers || fail "no reply after SIG$signal"
    unit_stop || fail "the unit did not stop"
done
