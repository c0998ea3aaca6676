# With no daemon running there is nothing to say, and nothing is started.
expect 0 package_install
expect 0 package_upgrade
grep -q '^znorb:' /tmp/said && fail "it said: $(cat /tmp/said)"
none_run $daemon || fail "the upgrade started it"
