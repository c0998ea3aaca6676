start_sleeper
await -t 60 "$sleeper" >"$scratch/waited" 2>&1 &
waiter=$!
sleep 0.2 # so that it waits; without the pause the test passes as well
kill -0 $waiter || fail "it did not wait"
begun=$(date +%s)
kill -KILL "$sleeper"
expect 2 wait $waiter
[ $(($(date +%s) - begun)) -lt 20 ] || fail "it took $(($(date +%s) - begun)) seconds"
