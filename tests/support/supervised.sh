# What a test in the shell begins with, by  . .../tests/support/supervised.sh : from there on it runs as a child, with
# a folder $scratch of its own. Whatever ends the test, an interruption too, the one who waits for it ends all that it
# has started, calls the function at_end, if the test has defined one before that line, and removes the folder. A shell
# by itself attends to a signal only when the command that it has called is over, and to none by "trap ... EXIT".
# shellcheck shell=sh
set -eu

if [ "${ZNORB_SUPERVISOR:-}" != "$PPID" ]; then
    # shellcheck source=script/parts/children.sh
    . "$(dirname "$0")/../../script/parts/children.sh"
    patience=${patience:-100}
    scratch=
    # shellcheck disable=SC2317 # called by the trap
    finish() {
        outcome=$?
        trap '' HUP INT TERM
        end_children
        ! command -v at_end >/dev/null || at_end
        [ -z "$scratch" ] || rm -rf --one-file-system "$scratch"
        exit "$outcome"
    }
    trap finish EXIT
    trap 'exit 129' HUP
    trap 'exit 130' INT
    trap 'exit 143' TERM
    scratch=$(mktemp -d)
    outcome=0
    run env ZNORB_SUPERVISOR=$$ scratch="$scratch" "$0" "$@" || outcome=$?
    exit $outcome
fi
unset ZNORB_SUPERVISOR
