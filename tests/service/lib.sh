# What the stories share. They run in a copy of the machine (see machine), those of the tools in the sandbox; the
# package is checked where it was built.
# shellcheck shell=sh disable=SC2034 # for those who include this

scratch=${scratch:-/tmp}
home=${home:-/opt/zn/znorb/bin}
daemon=$home/znorbresponder
client=$home/znorbclient
unit=znorbresponder.service
lock=/dev/shm/sem.znorb.appLock
table=/dev/shm/znorb.shvars

fail() {
    echo "FAILED: $*"
    exit 1
}

skip() {
    echo "skipped: $*"
    exit 77
}

# expect STATUS COMMAND...: the command must end so; its output is kept in $scratch/said.
expect() {
    wanted=$1
    shift
    got=0
    "$@" >"$scratch/said" 2>&1 || got=$?
    [ "$got" = "$wanted" ] || fail "'$*' ended with $got, not $wanted: $(cat "$scratch/said")"
}

# eventually WHAT COMMAND...: must become true within ten seconds.
eventually() {
    what=$1
    shift
    tries=200
    while ! "$@" >/dev/null 2>&1; do
        tries=$((tries - 1))
        [ $tries -gt 0 ] || fail "waited too long for $what"
        sleep 0.05
    done
}

# processes EXECUTABLE: the ids of all that run it, also from a file that has been replaced. Zombies run nothing.
processes() {
    for link in /proc/[0-9]*/exe; do
        program=$(readlink "$link" 2>/dev/null) || continue
        if [ "$program" = "$1" ] || [ "$program" = "$1 (deleted)" ]; then
            link=${link#/proc/}
            echo "${link%/exe}"
        fi
    done
}
none_run() { [ -z "$(processes "$1")" ]; }
has_ended() { ! readlink "/proc/$1/exe" >/dev/null; }

# For whoever may have the process id 1: a daemon that it started itself would stay in the foreground.
by_hand() { sh -c '"$@"; exit $?' sh "$@"; }

# The package by its own manager; rpm has to be told that it is meant on Debian, and knows none of Debian's packages.
if [ -e znorb.rpm ]; then
    by_rpm() { rpm --force-debian --dbpath /tmp/rpm --nodeps "$@"; }
    package_install() { by_rpm --install znorb.rpm; }
    package_upgrade() { by_rpm --upgrade newer.rpm; }
    package_verify() { by_rpm --verify znorb; }
    package_remove() { by_rpm --erase znorb; }
    package_purge() { package_remove; }
else
    package_install() { dpkg --install znorb.deb; }
    package_upgrade() { dpkg --install znorb.deb; }
    package_verify() { dpkg --verify znorb; }
    package_remove() { dpkg --remove znorb; }
    package_purge() { dpkg --purge znorb; }
fi

install_package() {
    package_install >/tmp/installed 2>&1 || fail "not installed: $(cat /tmp/installed)"
    cp znorbclient znorbrequestor $home
}

ask() { $home/znorbrequestor "$1"; }
answers() { [ "$(ask PRINT)" = 0 ]; }

# start_client: one more, whose entry is filled in; sets `started` to its process id.
start_client() {
    before=$(processes $client)
    entry=$(ask 'GET|en') || fail "GET was not answered"
    eventually "entry $entry to be filled in" entry_has_port "$entry"
    started=
    for candidate in $(processes $client); do
        case " $(echo $before) " in
            *" $candidate "*) ;;
            *) started=$candidate ;;
        esac
    done
    [ -n "$started" ] || fail "no client was started"
}
entry_has_port() { [ "$(od -An -tu2 -j$((4 + 128 * $1 + 124)) -N2 $table | tr -d ' ')" != 0 ]; }

nothing_left_behind() {
    [ ! -e $lock ] || fail "the lock was left behind"
    [ ! -e $table ] || fail "the table was left behind"
}

inode() { stat -c %i "$1"; }
