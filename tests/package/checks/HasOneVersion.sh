# The package's, which moves between releases, and the program's, which does not.
[ "$(control Version)" = "$version-1" ] || fail "the package's is $(control Version)"
unpack
for program in opt/zn/znorb/bin/znorbresponder usr/sbin/znorb-clean usr/sbin/znorb-wait; do
    wanted="{\"type\":\"deb\",\"name\":\"znorb\",\"version\":\"$release\",\"architecture\":\"$(control Architecture)\"}"
    [ "$(note "$scratch/root/$program")" = "$wanted" ] || fail "$program's note: $(note "$scratch/root/$program")"
done
gzip -dc "$scratch/root/usr/share/doc/znorb/changelog.Debian.gz" | grep -q "^znorb ($version-1)" ||
    fail "changelog.Debian has another one"
gzip -dc "$scratch/root/usr/share/doc/znorb/changelog.gz" | grep -q "^## .*$release" ||
    fail "the changelog knows nothing of it"
grep -qx "Version: $release" "$scratch/root/usr/share/pkgconfig/znorb.pc" || fail "znorb.pc has another one"
