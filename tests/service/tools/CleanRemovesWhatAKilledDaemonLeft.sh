start
kill_all KILL
expect 2 "$daemon" -d
expect 0 clean
says "removed the stale lock"
says "removed the stale table"
nothing_left_behind
start
answers || fail "no reply"
