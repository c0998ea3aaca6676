# What an installation puts into place, where Red Hat has it, and nothing that is Debian's.
query() { rpm --query --package "$@" "$package"; }

quietly env DESTDIR="$scratch/stage" cmake --install "$build"
tree "$scratch/stage" | sed 's|/doc/znorb/copyright$|/licenses/znorb/copyright|' |
    sort >"$scratch/wanted"
unpack
tree "$scratch/root" | diff "$scratch/wanted" - || fail "other files than those of an installation"
printf '%s\n' /opt/zn /opt/zn/znorb /opt/zn/znorb/bin /usr/include/znorb /usr/share/doc/znorb \
    /usr/share/doc/znorb/docs /usr/share/doc/znorb/examples /usr/share/licenses/znorb >"$scratch/wanted"
query --queryformat '[%{FILEMODES:perms} %{FILENAMES}\n]' | sed -n 's/^d[^ ]* //p' | diff "$scratch/wanted" - ||
    fail "other folders than its own"
query --queryformat '[%{FILEMODES:perms} %{FILEUSERNAME} %{FILEGROUPNAME} %{FILENAMES}\n]' >"$scratch/modes"
grep -vE '^(drwxr-xr-x|-rwxr-xr-x|-rw-r--r--|lrwxrwxrwx) root root ' "$scratch/modes" && fail "other rights than usual"
grep -E '^-rwx' "$scratch/modes" | grep -vE ' /(opt/zn/znorb/bin|usr/sbin)/[^/]*$' && fail "executable"
[ -z "$(query --configfiles)" ] || fail "configuration: $(query --configfiles)"
[ "$(query --licensefiles)" = /usr/share/licenses/znorb/copyright ] || fail "the licence: $(query --licensefiles)"
grep -q 'No licence has been chosen yet' "$scratch/root/usr/share/licenses/znorb/copyright" ||
    fail "the copyright file is silent about the licence"
grep -E 'Debian|common-licenses' "$scratch/root/usr/share/licenses/znorb/copyright" && fail "these are Debian's"
query --requires | grep -vE '^(/bin/sh|rpmlib\(.*)$' && fail "it depends on that"

[ "$(query --queryformat '%{VERSION}-%{RELEASE}')" = "$version-1" ] || fail "the version: $(query)"
for program in opt/zn/znorb/bin/znorbresponder usr/sbin/znorb-clean usr/sbin/znorb-wait; do
    wanted="{\"type\":\"rpm\",\"name\":\"znorb\",\"version\":\"$release\",\"architecture\":\"$(uname -m)\"}"
    [ "$(note "$scratch/root/$program")" = "$wanted" ] || fail "$program's note: $(note "$scratch/root/$program")"
    readelf --sections "$scratch/root/$program" | grep -q '\.symtab' && fail "$program is not stripped"
done
cmp "$scratch/root/usr/lib/systemd/system/znorbresponder.service" \
    "$scratch/stage/usr/lib/systemd/system/znorbresponder.service" || fail "the units differ"
