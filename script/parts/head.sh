#!/bin/sh
# What every script begins with, by  . "$(dirname "$0")/parts/head.sh"  before it does anything: answers --help with
# the script's own head, goes to the project's folder, and sees to it that the script ends with a verdict of one line,
# with what it has started, and without its folder of scratch.
# shellcheck disable=SC2034 # verdict is for those who include this
set -eu
cd "$(dirname "$0")/.."
name=${0##*/}

for word in "$@"; do
    case $word in
    -h | --help)
        sed -n '2,/^[^#]/s/^# \{0,1\}//p' "script/$name"
        exit 0
        ;;
    esac
done

verdict= # how it ended: what comes behind the name in the last line
scratch=
owned= # build/ was looked at
# shellcheck source=script/parts/children.sh
. script/parts/children.sh

fail() { # fail <why>: the end
    verdict="FAILED: $*"
    exit 1
}

refuse() { # refuse <word>: one that the script does not know
    echo "$name: '$1' is unknown here: see script/$name --help" >&2
    trap - EXIT
    exit 2
}

need() { # need <tool>...
    for tool in "$@"; do
        command -v "$tool" >/dev/null || fail "$tool is missing: script/bootstrap $name installs what this needs"
    done
}

make_scratch() { # a folder of the name $scratch, which goes when the script ends
    scratch=$(mktemp -d "${TMPDIR:-/tmp}/znorb.XXXXXX")
}

at_end() {
    status=$?
    trap '' HUP INT TERM
    [ -z "$child" ] || end_children
    [ -z "$scratch" ] || rm -rf --one-file-system "$scratch"
    if [ $status != 0 ] && [ "${verdict#FAILED}" = "$verdict" ]; then
        verdict="FAILED: ${verdict:-a command ended with $status; the lines above say more}"
    fi
    echo "$name: ${verdict:-passed}"
    exit $status
}

interrupted() { # interrupted <signal> <status>
    trap '' HUP INT TERM
    verdict="FAILED: ended by SIG$1"
    exit "$2"
}
trap at_end EXIT
trap 'interrupted HUP 129' HUP
trap 'interrupted INT 130' INT
trap 'interrupted TERM 143' TERM

# After sudo it may be root's.
own_build() {
    [ -z "$owned" ] && [ -d build ] || return 0
    foreign=$(find build -type d ! -writable -prune -print 2>/dev/null | head -n 1)
    [ -z "$foreign" ] || fail "$foreign belongs to $(stat -c %U "$foreign"), since a run with sudo perhaps:" \
        "remove it (sudo rm -rf $foreign), or run this as $(stat -c %U "$foreign"), too"
    owned=yes
}

# What ninja or CTest, or a script's own stage, counted last.
count_in() { # count_in <log>
    tail -c 4096 "$1" | grep -aoE '^ *[0-9]+/[0-9]+ Test|\[ *[0-9]+/[0-9]+\]' | tail -n 1 | tr -cd '0-9/'
}

progress() { # progress <title> <log> <seconds>
    counted=$(count_in "$2")
    if [ -t 1 ]; then
        printf '\r\033[K%s: %s: %s%s s' "$name" "$1" "${counted:+[$counted] }" "$3"
    else
        printf '%s: %s: %safter %s s\n' "$name" "$1" "${counted:+[$counted] }" "$3"
    fi
}

# Of CTest's log not the tests that passed. Where build/ is thrown away, this is all that is left of it.
show_log() { # show_log <log>
    lines=40
    [ "${CI:-}" != true ] || lines=2000
    grep -avE '^ +Start +[0-9]|Test +#[0-9].* Passed ' "$1" | tail -n $lines
}

stage() { # stage <title> <log> <command>...: tells how far it is; its output is in the log, its time half an hour
    title=$1
    log=$2
    shift 2
    own_build
    mkdir -p "$(dirname "$log")"
    echo "$name: $title"
    began=$(date +%s)
    start "$@" >"$log" 2>&1
    every=30
    [ ! -t 1 ] || every=1
    due=$every
    seconds=0
    while kill -0 "$child" 2>/dev/null; do
        sleep $([ $seconds = 0 ] && echo 0.05 || echo 0.2)
        seconds=$(($(date +%s) - began))
        [ $seconds -lt $due ] || {
            due=$((seconds + every))
            progress "$title" "$log" $seconds
        }
        [ $seconds -lt ${stage_limit:-1800} ] || {
            end_children
            fail "$title: not done within ${stage_limit:-1800} s; the log is $log"
        }
    done
    ended=0
    wait "$child" || ended=$?
    child=
    seconds=$(($(date +%s) - began))
    [ ! -t 1 ] || printf '\r\033[K'
    if [ $ended = 0 ]; then
        echo "$name: $title: $seconds s"
        return
    fi
    echo "$name: $title: failed after $seconds s; the log is $log, which ends with"
    show_log "$log"
    verdict="FAILED: $title; the log is $log"
    return $ended
}
