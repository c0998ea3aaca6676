expect 0 "$daemon" -d
expect 0 await
answers || fail "no reply"
expect 0 await -t 0 "$(processes "$daemon")"
