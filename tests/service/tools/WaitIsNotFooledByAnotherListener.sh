# Nor by the socket file that it has.
start "$elsewhere"
start_sleeper
[ -S /var/run/znorb.socket ] || fail "there should be a socket file"
expect 3 await -t 0 "$sleeper"
expect 3 await -t 0
