command -v lintian >/dev/null || skip "lintian is not installed"
option=
[ "$(id -u)" != 0 ] || option=--allow-root
# shellcheck disable=SC2086 # an option or nothing
quietly lintian $option --fail-on error,warning --tag-display-limit 0 "$package"
[ ! -s "$scratch/log" ] || { cat "$scratch/log"; fail "lintian has something to say"; }
