start
start_client
kill_all KILL
expect 0 clean
nothing_left_behind
! has_ended "$started" || fail "the client was ended"
