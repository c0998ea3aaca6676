# With a /dev/shm of its own, and the same path.
# shellcheck disable=SC2016 # expanded by the inner shell
if ! unshare --mount -- sh -c 'mount -t tmpfs tmpfs /dev/shm && "$1" -d' sh "$daemon" >"$scratch/said" 2>&1; then
    skip "no mounts here: $(cat "$scratch/said")"
fi
[ -n "$(processes "$daemon")" ] || fail "it does not run"
: >$lock
expect 0 clean
nothing_left_behind
[ -n "$(processes "$daemon")" ] || fail "it was ended"
