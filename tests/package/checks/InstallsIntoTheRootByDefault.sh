quietly env DESTDIR="$scratch/stage" cmake --install "$build"
[ "$(tree "$scratch/stage")" = "$(installed_files)" ] || fail "$(tree "$scratch/stage")"
unpack
cmp "$scratch/stage/lib/systemd/system/znorbresponder.service" \
    "$scratch/root/lib/systemd/system/znorbresponder.service" || fail "the units differ"
