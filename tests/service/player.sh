# Plays process 1: does what the unit file says as far as our unit needs it, in the order in which systemd does.
# Knows nothing about the unit itself. This shell must be process 1.
# shellcheck shell=sh

unit_file=/usr/lib/systemd/system/$unit
state=inactive
main=

[ $$ = 1 ] || fail "the player must be process 1"

reload() { :; }
unit_state() { echo "$state"; }
unit_result() { echo "$result"; }
main_process() { echo "$main"; }

# lines KEY: the key's values, one per line.
lines() { sed -n "s/^$1=//p" "$unit_file"; }

# run_line LINE [how]: runs one command of the unit file. Prefixes: "-" forgives a failure, "+" asks for all
# privileges, which are never less here. "$$" is a dollar, ${MAINPID} one word. With "how" = exec it replaces the
# shell.
run_line() {
    line=$1
    forgiven=false
    while :; do
        case $line in
            -*) forgiven=true ;;
            +*) ;;
            *) break ;;
        esac
        line=${line#?}
    done
    line=$(printf '%s\n' "$line" | sed -e 's/\$\$/\$/g' -e "s/\${MAINPID}/\"$main\"/g")
    # The quoting of our lines means the same to a shell.
    [ "${2:-}" != exec ] || eval "exec $line"
    status=0
    if [ -n "$main" ]; then
        (export MAINPID="$main"; eval "exec $line") || status=$?
    else
        (unset MAINPID; eval "exec $line") || status=$?
    fi
    [ $status = 0 ] || $forgiven
}

# run_lines KEY: all of them in order, until one fails.
run_lines() {
    lines "$1" >"/tmp/$1"
    while read -r command <&9; do
        run_line "$command" || return 1
    done 9<"/tmp/$1"
}

# is_success STATUS: 0, or one that the unit calls so.
is_success() {
    case " 0 $(lines SuccessExitStatus) " in
        *" $1 "*) ;;
        *) false ;;
    esac
}

finish() {
    main=
    run_lines ExecStopPost || true
    result=$1
    state=inactive
    [ "$1" = success ] || state=failed
}

# await_main SECONDS: false when it still runs then.
await_main() {
    tries=$(($1 * 20))
    while ! has_ended "$main"; do
        tries=$((tries - 1))
        [ $tries -gt 0 ] || return 1
        sleep 0.05
    done
}

# The end of the main process, from wherever it came: its status decides.
collect_main() {
    status=0
    wait "$main" || status=$?
    if is_success $status; then outcome=success; else outcome=exit-code; fi
}

end_main() {
    kill -TERM "$main" 2>/dev/null || true
    if ! await_main "$(lines TimeoutStopSec)"; then
        kill -KILL "$main"
        await_main 5 || fail "the main process cannot be killed"
    fi
    collect_main
}

unit_start() {
    if ! run_lines ExecStartPre; then
        finish exit-code
        return 1
    fi
    (run_line "$(lines ExecStart)" exec) </dev/null &
    main=$!
    # Type=simple: the next command does not wait until this one is on its way.
    if ! run_lines ExecStartPost; then
        end_main
        finish exit-code
        return 1
    fi
    state=active
}

unit_stop() {
    [ "$state" = active ] || return 0
    run_lines ExecStop || true
    end_main # at once: the command has returned
    finish "$outcome"
}

unit_settle() {
    [ "$state" = active ] || return 0
    eventually "the main process's end" has_ended "$main"
    collect_main
    main=
    [ $outcome != success ] || run_lines ExecStop || true
    finish $outcome
}
