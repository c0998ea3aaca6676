start
kill_all TERM
[ -e $table ] || fail "SIGTERM should have left the table"
expect 0 clean
nothing_left_behind
start
answers || fail "no reply"
