# A first installation starts nothing and says what would; the program works by hand, and a purge leaves the machine
# as it was.
# Files, and folders of ours; dpkg and rpm leave the parents of what it installs alone that were there before.
snapshot() {
    find /changed \( -path /changed/var/lib/dpkg -o -path /changed/var/log -o -path /changed/var/cache \) -prune -o \
        \( ! -type d -o -name 'zn*' \) -print >"$1"
    find /run /dev/shm >>"$1"
}
snapshot /tmp/before
expect 0 package_install
grep -q 'was not started' /tmp/said || fail "it said: $(cat /tmp/said)"
none_run $daemon || fail "the installation started it"
[ "$(package_verify)" = "" ] || fail "not as installed: $(package_verify)"
snapshot /tmp/installed
cp znorbclient znorbrequestor $home

expect 0 by_hand znorbresponder -d
expect 0 znorb-wait
start_client
expect 255 znorbresponder -stop
eventually "the client's end" none_run $client
if command -v man >/dev/null; then
    expect 0 man --where znorbresponder
fi

rm $client $home/znorbrequestor
expect 0 package_purge
snapshot /tmp/after
grep -q usr/sbin/znorb-clean /tmp/installed || fail "changes are not noticed"
grep -vxFf /tmp/before /tmp/after && fail "the purge left this behind, or took it away"
:
