# Test mode holds no lock, but the table and the socket are its own.
mkfifo /tmp/keys
by_hand $daemon -test </tmp/keys >/tmp/console 2>&1 &
exec 8>/tmp/keys
expect 0 by_hand sh -c 'until znorb-wait; do sleep 0.1; done'
marks=$(inode $table)
unit_start && fail "the unit started beside it"
unit_settle
[ "$(inode $table)" = "$marks" ] || fail "the table is another one"
answers || fail "no reply"
echo q >&8
eventually "the end of test mode" none_run $daemon
unit_start || fail "the unit did not start after its end"
