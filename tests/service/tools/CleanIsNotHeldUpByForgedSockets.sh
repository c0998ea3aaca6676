# Anybody may give a socket a name that holds another socket's line, and may have root hold a socket.
python=/usr/bin/python3 # everybody's
[ -x $python ] || skip "python3 is not installed"
$as_ordinary_user true 2>/dev/null || skip "there is no other user here"
path=/var/run/znorb.socket

# play COMMAND...: it tells its socket's inode in a file that it is given, which is then in $told, and stays.
play() {
    : >"$scratch/told"
    chmod 666 "$scratch/told"
    "$@" "$scratch/told" &
    played=$!
    eventually "the socket" test -s "$scratch/told"
    told=$(cat "$scratch/told")
}
stays='
    with open(sys.argv[-1], "w") as told:
        print(os.fstat(s.fileno()).st_ino, file=told)
    signal.pause()'
# A listener at the path, as it looks to /proc, that was made by the user.
listener="import os, signal, socket, sys
if os.path.exists('$path'): os.unlink('$path')
os.seteuid(int(sys.argv[1]))
with socket.socket(socket.AF_UNIX) as s:
    os.seteuid(0)
    s.bind('$path')
    s.listen()$stays"
other="import os, signal, socket, sys
with socket.socket() as s:$stays"
forger="import os, signal, socket, sys
with socket.socket(socket.AF_UNIX) as s:
    s.bind('\\0\\n0: 2 0 10000 1 1 %s $path' % sys.argv[1])$stays"
is_shown() { grep -q " $told $path\$" /proc/net/unix; }

chmod 755 "$scratch"
play $python -c "$listener" 0
is_shown || fail "nobody listens"
expect 2 clean
says "process $played listens on $path"
kill "$played"
wait "$played" || true

play $python -c "$listener" 65534
is_shown || fail "nobody listens"
expect 0 clean
kill "$played"
wait "$played" || true

play $python -c "$other"
! is_shown || fail "a socket of another kind listens"
inode=$told
# shellcheck disable=SC2086 # a command of several words
play $as_ordinary_user $python -c "$forger" "$inode"
told=$inode
is_shown || fail "nothing was forged"
expect 0 clean
