chmod 755 "$scratch"
$as_ordinary_user true 2>/dev/null || skip "there is only one user in this sandbox"
cp "$bin/znorb-clean" "$bin/znorb-wait" "$scratch"
for tool in clean wait; do
    expect 1 $as_ordinary_user "$scratch/znorb-$tool"
    says "only root"
done
