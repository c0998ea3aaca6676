# The service under the real systemd, which is process 1 here.
# shellcheck shell=sh

reload() { systemctl daemon-reload; }
unit_start() { systemctl start "$unit"; }
unit_stop() { systemctl stop "$unit"; }
unit_state() { systemctl show --value --property=ActiveState "$unit"; }
unit_result() { systemctl show --value --property=Result "$unit"; }
main_process() { systemctl show --value --property=MainPID "$unit"; }
is_settled() {
    case $(unit_state) in
        inactive | failed) ;;
        *) false ;;
    esac
}
# Waits until systemd has done what it does after the daemon's end.
unit_settle() { eventually "the unit to settle" is_settled; }
