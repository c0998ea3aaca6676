# Whatever names the place of others names it as it is.
prefix=$scratch/prefix
quietly cmake --install "$build" --prefix "$prefix"
unit=$prefix/lib/systemd/system/znorbresponder.service
grep -qxF "ExecStart=$prefix/opt/zn/znorb/bin/znorbresponder -d" "$unit" || fail "$(grep ^Exec "$unit")"
grep -qE '(^|[^a-zA-Z0-9])/opt|@' "$unit" && fail "$(cat "$unit")"
[ "$(readlink "$prefix/sbin/znorbresponder")" = "$prefix/opt/zn/znorb/bin/znorbresponder" ] || fail "the link"
named=0
for path in $(gzip -dc "$prefix"/share/man/man?/*.gz | sed -n 's/^\.It Pa //p' | grep -vE '^/(run|dev|var|opt/zn/znwbx)/') \
    $(sed -n 's/^#  *cp \([^ ]*\) .*/\1/p' "$prefix/share/doc/znorb/examples/hardening.conf") \
    $(grep -o "$prefix[^ ]*/[a-z-]*" "$unit"); do
    case $path in
        "$prefix"/*) [ -e "$path" ] || fail "there is no $path" ;;
        *) fail "$path is elsewhere" ;;
    esac
    named=$((named + 1))
done
[ $named -ge 13 ] || fail "only $named places were found"

# Where the folder usr is the prefix, or in it, the responder is beside it, as in the package.
for prefix in "$scratch/root" "$scratch/root/usr"; do
    rm -rf "$scratch/root" "$scratch/stage"
    quietly env DESTDIR="$scratch/stage" cmake --install "$build" --prefix "${prefix#"$scratch/root"}/"
    [ "$(tree "$scratch/stage")" = "$(installed_files)" ] || fail "not as in the package: $(tree "$scratch/stage")"
    for file in $(cd "$scratch/stage" && find . -type f ! -path './*bin/*'); do # those there are stripped later
        cmp "$scratch/stage/$file" "$scratch/root/$file" || fail "not as in the package"
    done
done

# shellcheck disable=SC2046 # options
printf '#include "znorb/shared_table.h"\nint main(void) { return 0; }\n' |
    quietly "${CC:-cc}" -x c - -o "$scratch/program" \
        $(PKG_CONFIG_PATH="$scratch/prefix/lib/pkgconfig" pkg-config --cflags znorb)
