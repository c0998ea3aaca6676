ln -s "$home" "$scratch/link"
start
expect 2 "$bin/znorb-clean" -e "$scratch/link/znorbresponder"
