# Each option of the drop-in alone, those that are commented out included, and then the drop-in as it is: the web
# console is published, a client starts and fills in its entry, the stop asks it to exit.
console=/opt/zn/znwbx
options=/usr/share/doc/znorb/examples/hardening.conf
folder=/etc/systemd/system/$unit.d

mkdir -p /opt/zn/znorb/WBX $folder
echo '<application name="ZNORB" page="ZNORB/chp.htm"/>' >/opt/zn/znorb/WBX/znorb.xml
echo '<html><body>ZN Orbisan</body></html>' >/opt/zn/znorb/WBX/chp.htm
# shellcheck disable=SC2016 # PHP's
echo '<?php $bin = "%ZNORB_BIN_PATH%";' >/opt/zn/znorb/WBX/ipcelmclient.php

tried=0
try() { # try WHAT: with the drop-in as it is now
    rm -rf $console
    mkdir -p $console/webapp $console/data/htdocs
    reload
    unit_start || fail "$1: the unit did not start"
    start_client
    [ -s $console/data/htdocs/ZNORB/bin/znorbrequestor ] || fail "$1: the web console was not published"
    [ -s $console/data/htdocs/ZNORB/ipcelmclient.php ] || fail "$1: the entry script was not published"
    [ -z "${2:-}" ] || $2
    unit_stop || fail "$1: the unit did not stop"
    [ "$(unit_result)" = success ] || fail "$1: $(unit_result)"
    eventually "$1: the client's end" none_run $client
    nothing_left_behind
    tried=$((tried + 1))
}

is_caged() {
    for process in "$(main_process)" "$started"; do
        grep -q '^NoNewPrivs:.1$' "/proc/$process/status" || fail "process $process may gain privileges"
        grep -q '^Seccomp:.2$' "/proc/$process/status" || fail "process $process has no filter"
        sed -n 's/^CapBnd:.//p' "/proc/$process/status" | grep -qi ffffff && fail "process $process has all capabilities"
        nsenter --mount="/proc/$process/ns/mnt" touch /etc/written 2>/dev/null && fail "/etc is writable"
        nsenter --mount="/proc/$process/ns/mnt" touch /opt/written || fail "/opt is not writable"
    done
}

grep -E '^#?[A-Z][A-Za-z]*=' $options | sed 's/^#//' >/tmp/options
while read -r option <&7; do
    case $option in
        IPAddressAllow=*) continue ;; # with IPAddressDeny
        IPAddressDeny=*) printf '[Service]\n%s\nIPAddressAllow=localhost\n' "$option" >$folder/one.conf ;;
        *) printf '[Service]\n%s\n' "$option" >$folder/one.conf ;;
    esac
    try "$option"
done 7</tmp/options
rm $folder/one.conf
cp $options $folder/
try "the whole drop-in" is_caged
[ $tried -ge 20 ] || fail "only $tried options were found"
echo "$tried starts under different options"
