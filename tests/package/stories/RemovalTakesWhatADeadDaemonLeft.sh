install_package
expect 0 by_hand $daemon -d
expect 0 znorb-wait
kill -KILL "$(processes $daemon)"
eventually "the daemon's end" none_run $daemon
[ -e $lock ] && [ -e $table ] || fail "SIGKILL should have left lock and table"
rm $client $home/znorbrequestor
expect 0 dpkg --remove znorb
nothing_left_behind
expect 0 dpkg --purge znorb
[ ! -e /var/run/znorb.socket ] || fail "the socket file is still there"
[ ! -e $home ] || fail "the folder is still there"
