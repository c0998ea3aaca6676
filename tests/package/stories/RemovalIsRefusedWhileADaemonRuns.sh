# Else the program that stops it would be gone. It says what to do, and works afterwards.
install_package
expect 0 by_hand $daemon -d
expect 0 znorb-wait
expect 1 dpkg --remove znorb
grep -q 'Stop it first' /tmp/said || fail "dpkg said: $(cat /tmp/said)"
[ -x $daemon ] || fail "the program is gone"
answers || fail "the daemon does not answer"
expect 255 $daemon -stop
expect 0 dpkg --remove znorb
[ ! -e $daemon ] || fail "the program is still there"
