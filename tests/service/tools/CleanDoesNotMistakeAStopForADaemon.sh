# It waits five seconds for a lock that nobody will let go.
start
cp $lock "$scratch/lock" && rm $lock && cp "$scratch/lock" $lock
"$daemon" -stop >/dev/null 2>&1 &
stopper=$!
eventually "the stop to be alone" only_runs $stopper
expect 0 clean
nothing_left_behind
expect 3 wait $stopper
