prefix=$scratch/prefix
quietly cmake --install "$build" --prefix "$prefix"
[ "$(tree "$prefix")" = "$(installed_files)" ] || fail "not what the package has: $(tree "$prefix")"
unit=$prefix/lib/systemd/system/znorbresponder.service
grep -qxF "ExecStart=$prefix/opt/zn/znorb/bin/znorbresponder -d" "$unit" || fail "$(grep ^Exec "$unit")"
grep -qE '(^|[^a-zA-Z0-9])/opt|@' "$unit" && fail "$(cat "$unit")"
[ "$(readlink "$prefix/usr/sbin/znorbresponder")" = "$prefix/opt/zn/znorb/bin/znorbresponder" ] || fail "the link"
# shellcheck disable=SC2046 # options
printf '#include "znorb/shared_table.h"\nint main(void) { return 0; }\n' |
    quietly "${CC:-cc}" -x c - -o "$scratch/program" \
        $(PKG_CONFIG_PATH="$prefix/usr/share/pkgconfig" pkg-config --cflags znorb)
