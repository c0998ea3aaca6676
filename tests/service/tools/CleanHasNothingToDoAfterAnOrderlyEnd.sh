start
expect 255 "$daemon" -stop
eventually "the daemon's end" none_run "$daemon"
expect 0 clean
[ ! -s "$scratch/said" ] || fail "it said: $(cat "$scratch/said")"
