start
kill_all KILL
chmod 755 "$scratch" "$home"
cp "$(command -v sleep)" "$daemon"
$as_ordinary_user true 2>/dev/null || skip "there is no other user here"
$as_ordinary_user "$daemon" 60 &
sleeper=$!
eventually "the other user's process" only_runs "$sleeper"
expect 0 clean
nothing_left_behind
only_runs "$sleeper" || fail "the other user's process was ended"
