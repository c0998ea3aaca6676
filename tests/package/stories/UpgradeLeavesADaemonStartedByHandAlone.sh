# It serves on from its deleted file; -stop of the new version stops it.
install_package
expect 0 by_hand $daemon -d
expect 0 znorb-wait
process=$(processes $daemon)
start_client
expect 0 package_upgrade
grep -q 'was not restarted' /tmp/said || fail "it said: $(cat /tmp/said)"
[ "$(processes $daemon)" = "$process" ] || fail "the daemon is another one"
[ "$(readlink "/proc/$process/exe")" = "$daemon (deleted)" ] || fail "the file was not replaced"
start_client
expect 2 znorb-clean
expect 0 znorb-wait
expect 255 $daemon -stop
eventually "the clients' end" none_run $client
nothing_left_behind
