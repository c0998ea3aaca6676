# Older packages have the unit in /lib, which is a link to usr/lib: what goes there is what has come here.
dpkg-deb --raw-extract znorb.deb older
mkdir older/lib
mv older/usr/lib/systemd older/lib
rmdir older/usr/lib
sed -i '/lib\/systemd/d' older/DEBIAN/md5sums
dpkg-deb --build older older.deb >/dev/null
unit_is_of() { [ "$(dpkg --search "$1/systemd/system/$unit")" = "znorb: $1/systemd/system/$unit" ]; }

expect 0 dpkg --install older.deb
unit_is_of /lib || fail "the older package has it elsewhere"
expect 0 package_install
unit_is_of /usr/lib || fail "the newer package has it elsewhere"
[ -s /usr/lib/systemd/system/$unit ] || fail "it is gone"
expect 0 package_verify
expect 0 package_remove
[ ! -e /usr/lib/systemd/system/$unit ] || fail "it has stayed"
