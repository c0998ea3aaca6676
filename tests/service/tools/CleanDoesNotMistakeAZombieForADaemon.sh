# Its parent becomes a program that collects nobody.
# shellcheck disable=SC2016 # expanded by the inner shell
sh -c '"$1" -test </dev/null >/dev/null 2>&1 & exec sleep 60' sh "$daemon" &
parent=$!
eventually "test mode" await
kill_all KILL
grep -l "^PPid:.$parent\$" /proc/[0-9]*/status >/dev/null || fail "there is no zombie"
expect 0 clean
nothing_left_behind
kill $parent
