unpack
tree "$scratch/root" >"$scratch/files"
for file in ./opt/zn/znorb/bin/znorbresponder ./usr/sbin/znorb-clean ./usr/sbin/znorb-wait \
    ./usr/sbin/znorbresponder ./usr/include/znorb/shared_table.h ./usr/share/pkgconfig/znorb.pc \
    ./usr/lib/systemd/system/znorbresponder.service ./usr/share/man/man8/znorbresponder.8.gz \
    ./usr/share/man/man8/znorb-clean.8.gz ./usr/share/man/man8/znorb-wait.8.gz \
    ./usr/share/man/man7/znorb.7.gz ./usr/share/bash-completion/completions/znorbresponder \
    ./usr/share/doc/znorb/copyright ./usr/share/doc/znorb/changelog.gz \
    ./usr/share/doc/znorb/changelog.Debian.gz ./usr/share/doc/znorb/README.md \
    ./usr/share/doc/znorb/SECURITY.md ./usr/share/doc/znorb/CONTRIBUTING.md \
    ./usr/share/doc/znorb/CHANGELOG.md $(cd "$source" && printf './usr/share/doc/znorb/%s ' docs/*) \
    ./usr/share/doc/znorb/examples/hardening.conf ./usr/share/doc/znorb/examples/Containerfile \
    ./usr/share/doc/znorb/examples/znorbclient.c ./usr/share/doc/znorb/examples/znorbrequestor.c \
    ./usr/share/doc/znorb/examples/znorbrequestor.sh ./usr/share/doc/znorb/examples/znorbclient.py \
    ./usr/share/doc/znorb/examples/znorbrequestor.py \
    ./usr/share/lintian/overrides/znorb; do
    grep -qxF "$file" "$scratch/files" || fail "there is no $file"
    echo "$file" >>"$scratch/wanted"
done
grep -vxFf "$scratch/wanted" "$scratch/files" && fail "nobody knows why this is in it"
[ "$(readlink "$scratch/root/usr/sbin/znorbresponder")" = /opt/zn/znorb/bin/znorbresponder ] ||
    fail "the link leads to $(readlink "$scratch/root/usr/sbin/znorbresponder")"
find "$scratch/root" -perm /6000 | grep . && fail "set-uid or set-gid"
find "$scratch/root" \( -type f -o -type d \) -perm /022 | grep . && fail "writable for others than root"
dpkg-deb --fsys-tarfile "$package" | tar -t --numeric-owner -v | grep -v ' 0/0 ' && fail "not root's"
[ -z "$(control Depends)" ] || fail "it depends on $(control Depends)"
for program in opt/zn/znorb/bin/znorbresponder usr/sbin/znorb-clean usr/sbin/znorb-wait; do
    readelf --dynamic "$scratch/root/$program" | grep NEEDED && fail "$program needs a library"
    readelf --sections "$scratch/root/$program" | grep -q '\.symtab' && fail "$program is not stripped"
done
grep -q 'No licence has been chosen yet' "$scratch/root/usr/share/doc/znorb/copyright" ||
    fail "the copyright file is silent about the licence"
