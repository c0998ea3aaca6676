# The daemon works on from its deleted file, clients included; the next start takes the new one.
unit_start || fail "the unit did not start"
process=$(main_process)
start_client
first=$started
dpkg-deb --raw-extract znorb.deb /tmp/next
sed -i 's/^Version: .*/&.next/' /tmp/next/DEBIAN/control
dpkg-deb --build --root-owner-group -Znone /tmp/next /tmp/next.deb >/dev/null
expect 0 dpkg --install /tmp/next.deb
grep -q 'was not restarted' /tmp/said || fail "dpkg said nothing about the daemon: $(cat /tmp/said)"
[ "$(readlink "/proc/$process/exe")" = "$daemon (deleted)" ] || fail "the file was not replaced: $(readlink "/proc/$process/exe")"
[ "$(unit_state)" = active ] || fail "the unit is $(unit_state)"
[ "$(main_process)" = "$process" ] || fail "the main process is another one"
expect 2 znorb-clean
start_client
has_ended "$first" && fail "the first client has ended"
expect 2 by_hand $daemon -d
unit_stop || fail "the unit did not stop"
eventually "the clients' end" none_run $client
nothing_left_behind
unit_start || fail "the unit did not start again"
[ "$(readlink "/proc/$(main_process)/exe")" = $daemon ] || fail "not the new file"
