command -v systemd-analyze >/dev/null || skip "systemd is not installed"
# In place, so that every command is found; the hardening as well.
quietly cmake --install "$build" --prefix "$scratch/prefix"
folder=$scratch/prefix/lib/systemd/system
mkdir "$folder/znorbresponder.service.d"
cp "$scratch/prefix/share/doc/znorb/examples/hardening.conf" "$folder/znorbresponder.service.d"
quietly env SYSTEMD_UNIT_PATH="$folder:" systemd-analyze verify --man=no "$folder/znorbresponder.service"
[ ! -s "$scratch/log" ] || { cat "$scratch/log"; fail "it is not silent"; }
echo 'Nonsense=yes' >>"$folder/znorbresponder.service.d/hardening.conf"
SYSTEMD_UNIT_PATH="$folder:" systemd-analyze verify --man=no "$folder/znorbresponder.service" >"$scratch/log" 2>&1 || true
grep -q Nonsense "$scratch/log" || fail "it does not look at the drop-in"
