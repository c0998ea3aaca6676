start
kill_all KILL
mkfifo "$scratch/turn"
# shellcheck disable=SC2094 # one end each
flock /run/znorb-clean.lock cat "$scratch/turn" &
exec 7>"$scratch/turn"
eventually "the other one's turn" other_has_turn
(exec 7>&- && clean) >"$scratch/cleaned" 2>&1 &
cleaner=$!
sleep 0.3 # no event can tell that nothing happens
[ -e $lock ] || fail "it did not wait for its turn"
exec 7>&-
expect 0 wait $cleaner
nothing_left_behind
