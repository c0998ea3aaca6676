# As people know it below /usr/local; nothing names the stage.
quietly env DESTDIR="$scratch/stage" cmake --install "$build" --prefix /usr/local
tree "$scratch/stage" >"$scratch/files"
for file in opt/zn/znorb/bin/znorbresponder sbin/znorbresponder sbin/znorb-clean sbin/znorb-wait \
    include/znorb/shared_table.h lib/pkgconfig/znorb.pc lib/systemd/system/znorbresponder.service \
    share/man/man8/znorbresponder.8.gz share/man/man8/znorb-clean.8.gz share/man/man8/znorb-wait.8.gz \
    share/man/man7/znorb.7.gz share/bash-completion/completions/znorbresponder share/doc/znorb/copyright \
    share/doc/znorb/changelog.gz $(cd "$source" && printf 'share/doc/znorb/%s ' ./*.md docs/* | sed 's|/\./|/|g') \
    $(cd "$source/examples" && printf 'share/doc/znorb/examples/%s ' znorb*) \
    share/doc/znorb/examples/hardening.conf share/doc/znorb/examples/Containerfile; do
    echo "./usr/local/$file"
done | sort | diff - "$scratch/files" || fail "this is missing, or nobody knows why it is there"
[ "$(installed_files | sed -e 's|^\./usr/|./|' -e 's|^./share/pkgconfig/|./lib/pkgconfig/|' | sort)" = \
    "$(tree "$scratch/stage/usr/local")" ] || fail "the package has other files: $(tree "$scratch/root")"
grep -rlF "$scratch" "$scratch/stage" && fail "names the stage"
grep -qxF "ExecStart=/usr/local/opt/zn/znorb/bin/znorbresponder -d" \
    "$scratch/stage/usr/local/lib/systemd/system/znorbresponder.service" || fail "the unit names the stage"
[ "$(readlink "$scratch/stage/usr/local/sbin/znorbresponder")" = \
    /usr/local/opt/zn/znorb/bin/znorbresponder ] || fail "the link names the stage"
