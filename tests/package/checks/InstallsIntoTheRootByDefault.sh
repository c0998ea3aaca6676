quietly env DESTDIR="$scratch/stage" cmake --install "$build"
[ "$(tree "$scratch/stage")" = "$(installed_files)" ] || fail "$(tree "$scratch/stage")"
unpack
cmp "$scratch/stage/usr/lib/systemd/system/znorbresponder.service" \
    "$scratch/root/usr/lib/systemd/system/znorbresponder.service" || fail "the units differ"
