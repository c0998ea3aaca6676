# Whatever hides the daemon from them: lock and table stay, and both say that they cannot tell.
unshare --mount true 2>/dev/null || skip "no mounts here"

# under SETTING COMMAND...: the command, with the mounts of its own that the setting makes; it finds the scratch
# folder in $scratch.
under() {
    setting=$1
    shift
    # shellcheck disable=SC2016 # expanded by the inner shell
    scratch=$scratch unshare --mount -- sh -c "$setting"'; "$@"' sh "$@"
}
blind() { # blind SETTING SAID...: neither tool can tell, and each of the texts is in what they say
    setting=$1
    shift
    expect 1 under "$setting" "$bin/znorb-clean" -e "$daemon"
    says "nothing was removed"
    for text in "$@"; do says "$text"; done
    for process in "$running" ""; do
        # shellcheck disable=SC2086 # the daemon's process or no word
        expect 4 under "$setting" "$bin/znorb-wait" -e "$daemon" -t 0 $process
        for text in "$@"; do says "$text"; done
    done
    unchanged "$marks"
}
sees() { # sees SETTING: the daemon
    expect 2 under "$1" "$bin/znorb-clean" -e "$daemon"
    expect 0 under "$1" "$bin/znorb-wait" -e "$daemon" -t 0
    unchanged "$marks"
}

start
marks=$(marks)
running=$(processes "$daemon")
sees :

# shellcheck disable=SC2016 # expanded by the inner shell
without_proc='mount -t tmpfs tmpfs /mnt
for path in /*; do
    case $path in /proc | /mnt) continue ;; esac
    if [ -h "$path" ]; then
        cp -P "$path" /mnt
    elif [ -d "$path" ]; then
        mkdir "/mnt$path" && mount --rbind "$path" "/mnt$path"
    fi
done
set -- chroot /mnt "$@"'
blind "$without_proc" "cannot read /proc: No such file or directory"
blind "mount -t tmpfs tmpfs /proc" "/proc does not show this process"

# Of the namespace around its own, and of one inside.
around='set -- unshare --pid --fork -- "$@"'
blind "$around" "/proc does not show this process"
# shellcheck disable=SC2016 # expanded by the inner shell
inside='mkfifo "$scratch/up" "$scratch/end"
trap '\''rm "$scratch/up" "$scratch/end"'\'' EXIT
unshare --pid --fork -- sh -c "mount -t proc proc /proc; : >$scratch/up; read -r word <$scratch/end" &
: <"$scratch/up"
look() { looked=0; "$@" || looked=$?; echo >"$scratch/end"; wait; return $looked; }
set -- look "$@"'
blind "$inside" "/proc does not show this process"

# Root that may not look into a process that may do more than it.
weak='set -- setpriv --bounding-set=-sys_ptrace -- "$@"'
blind "$weak" "cannot read /proc/$running/exe: Permission denied"
can_look_at_process_1() { readlink /proc/1/exe >/dev/null; }
if under "mount -t proc -o hidepid=2 proc /proc" true 2>/dev/null; then
    sees "mount -t proc -o hidepid=2 proc /proc"
fi
# Group 0 would see what is hidden, unless another is named.
if under "mount -t proc -o hidepid=2,gid=65534 proc /proc" true 2>/dev/null; then
    ! can_look_at_process_1 || sees "mount -t proc -o hidepid=2,gid=65534 proc /proc"
    blind "mount -t proc -o hidepid=2,gid=65534 proc /proc; $weak" "/proc hides processes"
fi
if under "mount -t proc -o subset=pid proc /proc" true 2>/dev/null; then
    sees "mount -t proc -o subset=pid proc /proc"
fi

chmod 755 "$scratch"
cp "$bin/znorb-clean" "$bin/znorb-wait" "$scratch"
if $as_ordinary_user true 2>/dev/null; then
    for setting in : "mount -t proc -o hidepid=2 proc /proc"; do
        # shellcheck disable=SC2086 # a command of several words
        expect 1 under "$setting" $as_ordinary_user "$scratch/znorb-clean" -e "$daemon"
        says "only root"
        unchanged "$marks"
    done
fi

# status_with DESCRIPTORS COMMAND...: 127 where they are too few even to load it.
status_with() {
    got=0
    # shellcheck disable=SC2016 # expanded by the inner shell
    sh -c 'exec 3<&- 4<&- 5<&- 6<&- 7<&- 8<&- 9<&-; ulimit -n "$1"; shift; exec "$@"' sh "$@" \
        >"$scratch/said" 2>&1 || got=$?
}
for descriptors in 3 4 5 6 7 8 9 10 11 12; do
    status_with $descriptors "$bin/znorb-clean" -e "$daemon"
    case $descriptors:$got in
        3:1 | 3:127 | [45]:1 | [6-9]:2 | 1?:2) ;;
        *) fail "with $descriptors descriptors znorb-clean ends with $got: $(cat "$scratch/said")" ;;
    esac
    [ "$got" != 1 ] || says "cannot"
    unchanged "$marks"
    status_with $descriptors "$bin/znorb-wait" -t 0 -e "$daemon"
    case $descriptors:$got in
        3:4 | 3:127 | 4:4 | [5-9]:0 | 1?:0) ;;
        *) fail "with $descriptors descriptors znorb-wait ends with $got: $(cat "$scratch/said")" ;;
    esac
    [ "$got" != 4 ] || says "Too many open files"
done

# Only a process that may be a responder is in the way: others that it may not look into are not. On the machine's
# own names another sandbox's responder may be seen.
kill_all KILL
case ${ZNORB_SANDBOX_INSIDE:-} in
isolated*) expect 0 under "$weak" "$bin/znorb-clean" -e "$daemon" ;;
*) expect 0 clean ;;
esac
nothing_left_behind
