quietly env DESTDIR="$scratch/stage" cmake --install "$build"
unpack
[ "$(tree "$scratch/stage")" = "$(tree "$scratch/root")" ] || fail "$(tree "$scratch/stage")"
cmp "$scratch/stage/lib/systemd/system/znorbresponder.service" \
    "$scratch/root/lib/systemd/system/znorbresponder.service" || fail "the units differ"
