quietly env DESTDIR="$scratch/stage" cmake --install "$build" --prefix /usr/local
[ "$(tree "$scratch/stage/usr/local")" = "$(installed_files)" ] || fail "$(tree "$scratch/stage")"
grep -qxF "ExecStart=/usr/local/opt/zn/znorb/bin/znorbresponder -d" \
    "$scratch/stage/usr/local/lib/systemd/system/znorbresponder.service" || fail "the unit names the stage"
[ "$(readlink "$scratch/stage/usr/local/usr/sbin/znorbresponder")" = \
    /usr/local/opt/zn/znorb/bin/znorbresponder ] || fail "the link names the stage"
