# By the lines of docs/OPERATING.md, from a place where others have something, too.
prefix=$scratch/prefix
mkdir -p "$prefix/include" "$prefix/opt/others" "$prefix/sbin" "$prefix/lib/pkgconfig" "$prefix/lib/systemd/system" \
    "$prefix/share/man/man7" "$prefix/share/man/man8" "$prefix/share/doc" "$prefix/share/bash-completion/completions"
touch "$prefix/sbin/others"
find "$prefix" | sort >"$scratch/before"
quietly cmake --install "$build" --prefix "$prefix"
find "$prefix" | sort | cmp -s - "$scratch/before" && fail "nothing was installed"
grep -E '^    (xargs|find) ' "$source/docs/OPERATING.md" |
    sed -e "s|/usr/local|$prefix|g" -e "s|build/package|$build|g" >"$scratch/lines"
[ "$(wc -l <"$scratch/lines")" = 2 ] || fail "docs/OPERATING.md has other lines: $(cat "$scratch/lines")"
quietly sh -e "$scratch/lines"
find "$prefix" | sort | diff "$scratch/before" - || fail "not as before"
