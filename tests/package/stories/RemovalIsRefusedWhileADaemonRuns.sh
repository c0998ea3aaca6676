# Else the program that stops it would be gone. It says what to do, and works afterwards.
install_package
expect 0 by_hand $daemon -d
expect 0 znorb-wait
expect 1 package_remove
grep -q 'Stop it first' /tmp/said || fail "it said: $(cat /tmp/said)"
[ -x $daemon ] || fail "the program is gone"
answers || fail "the daemon does not answer"
expect 255 $daemon -stop
expect 0 package_remove
[ ! -e $daemon ] || fail "the program is still there"
