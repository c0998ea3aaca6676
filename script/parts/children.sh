#!/bin/sh
# What ends whatever a script has started, for those who include this: head.sh and the tests in the shell.
# shellcheck disable=SC2034 # child is for them
child= # what `run` waits for
mark=${0##*/}-$$-$(date +%s)

# The processes that were started from here carry the mark in their environment: also those that have left the
# process group or lost their parent.
started_here() { grep -lszF "$mark" /proc/[0-9]*/environ | cut -d / -f 3; }

# Asks for three seconds, or for $patience tenths of one, then insists. A script among them takes the time to end its
# own.
end_children() {
    tries=$((${patience:-30} + 30))
    signal=TERM
    while left=$(started_here) && [ -n "$left$child" ] && [ $tries -gt 0 ]; do
        [ $tries -gt 30 ] || signal=KILL
        # shellcheck disable=SC2086 # a list
        kill -s $signal $left $child 2>/dev/null || true
        child=
        sleep 0.1
        tries=$((tries - 1))
    done
}

# In the background, because a shell attends to a signal only between commands or while it waits; a shell starts
# what is in the background without SIGINT, which is given back.
start() { # start <command>...
    env --default-signal=INT,QUIT "ZNORB_SCRIPTS=${ZNORB_SCRIPTS:-}:$mark" "$@" </dev/null &
    child=$!
}

run() { # run <command>...: shows what it prints, and returns its status; it has no input
    start "$@"
    ended=0
    wait "$child" || ended=$?
    child=
    return $ended
}
