# On another machine, by somebody with other habits, and later; with the same rpm. The time is also that of files that
# are older.
export SOURCE_DATE_EPOCH=4000000000
cpack --config "$build/CPackConfig.cmake" -B "$scratch/one" >"$scratch/log" 2>&1 || fail "$(cat "$scratch/log")"
in_other_ways() {
    umask 077
    if unshare --uts true 2>/dev/null; then
        set -- unshare --uts sh -c 'hostname elsewhere && exec "$@"' sh "$@"
    fi
    TZ=Asia/Kathmandu LC_ALL=C quietly "$@"
}
(in_other_ways cpack --config "$build/CPackConfig.cmake" -B "$scratch/a-longer-name")
one=$(echo "$scratch"/one/*.rpm)
cmp "$one" "$scratch/a-longer-name/$(basename "$one")" || fail "it differs"
[ "$(rpm --query --package --queryformat '[%{FILEMTIMES}\n]%{BUILDTIME}\n' "$one" | sort -u)" = $SOURCE_DATE_EPOCH ] ||
    fail "other times than the one"
