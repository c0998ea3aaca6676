# What the Containerfile says, word for word, without an engine: the package is installed by its RUN line, and its
# entry point is process 1 of namespaces of its own.
command -v tini >/dev/null || skip "tini is not installed"
grep -q '^FROM debian:bookworm' Containerfile || fail "another system than this one"

# words KEY: the JSON list of strings behind the key, one per line.
words() { sed -n "s/^$1 .*\[\(.*\)\]\$/\1/p; s/^$1 \[\(.*\)\]\$/\1/p" Containerfile | head -n 1 | sed 's/", *"/\n/g; s/"//g'; }

mkdir /tmp/znorb
cp znorb.deb /tmp/znorb/znorb_0_any.deb
cp znorbclient /tmp/znorb
sed -n '/^RUN dpkg/,/[^\\]$/p' Containerfile | sed 's/^RUN //' >/tmp/run
expect 0 sh -e /tmp/run
[ -x $client ] || fail "the client is not installed"
cp znorbrequestor $home

command=$(words ENTRYPOINT; words CMD)
[ "$(echo "$command" | tail -n 1)" = -d ] || fail "the command is $command"

# run [WORD...]: starts the container, with the words behind tini's name; sets `container` to process 1 of it.
run() {
    # shellcheck disable=SC2046 # a list
    unshare --pid --fork --kill-child --mount-proc -- \
        $(echo "$command" | head -n 1) "$@" $(echo "$command" | tail -n +2) >/tmp/said 2>&1 &
    outside=$!
    eventually "the container" is_ready
    container=$(parent "$(processes $daemon)")
}
is_ready() {
    # shellcheck disable=SC2046 # a list
    [ -n "$(processes $daemon)" ] && inside $(words HEALTHCHECK)
}
inside() { nsenter --target "$(processes $daemon)" --pid --mount -- "$@"; }
parent() { sed 's/.*) . \([0-9]*\) .*/\1/' "/proc/$1/stat"; }
ends_with() {
    got=0
    wait $outside || got=$?
    [ "$got" = "$1" ] || fail "the container ended with $got, not $1"
    eventually "the end of everything in it" none_run $client
}

run
[ "$(sed -n 's/^NSpid:.*\t//p' "/proc/$(processes $daemon)/status")" != 1 ] || fail "the daemon is process 1"
[ "$(sed -n 's/^NSpid:.*\t//p' "/proc/$container/status")" = 1 ] || fail "its parent is not process 1"
start_client
# The end of the container may overtake the end of the one who asked for it.
got=0
inside znorbresponder -stop >/tmp/said 2>&1 || got=$?
[ $got = 255 ] || [ $got = 137 ] || fail "-stop ended with $got: $(cat /tmp/said)"
ends_with 255
nothing_left_behind

run
start_client
kill -TERM "$container"
ends_with 10
rm $table

run -e 10 -e 255
kill -TERM "$container"
ends_with 0
rm $table

run
kill -KILL "$(processes $daemon)"
ends_with 137
[ -e $lock ] || fail "SIGKILL should have left the lock"
# As in a /dev/shm that is shared with another container.
got=0
# shellcheck disable=SC2046 # a list
unshare --pid --fork --kill-child --mount-proc -- $command >/tmp/said 2>&1 || got=$?
[ $got = 2 ] || fail "a container beside another one ended with $got: $(cat /tmp/said)"
