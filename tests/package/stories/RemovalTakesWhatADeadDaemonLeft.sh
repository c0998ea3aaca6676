install_package
expect 0 by_hand $daemon -d
expect 0 znorb-wait
kill -KILL "$(processes $daemon)"
eventually "the daemon's end" none_run $daemon
[ -e $lock ] && [ -e $table ] || fail "SIGKILL should have left lock and table"
rm $client $home/znorbrequestor
expect 0 package_remove
nothing_left_behind
[ -e znorb.rpm ] || expect 0 package_purge
[ ! -e /var/run/znorb.socket ] || fail "the socket file is still there"
[ ! -e $home ] || fail "the folder is still there"
