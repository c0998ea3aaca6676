engine=
for candidate in podman docker; do
    if command -v $candidate >/dev/null && $candidate info >/dev/null 2>&1; then
        engine=$candidate
        break
    fi
done
[ -n "$engine" ] || skip "there is no container engine"
mkdir "$scratch/context"
cp "$package" "$source/packaging/container/Containerfile" "$build/bin/znorbclient" "$scratch/context"
name=znorb-test-$$
echo "$engine rm --force $name; $engine rmi --force $name" >"$scratch/at-end"
quietly "$engine" build --tag $name --file "$scratch/context/Containerfile" "$scratch/context"
quietly "$engine" run --detach --name $name $name
quietly "$engine" exec $name znorb-wait -t 30
status=0
"$engine" exec $name znorbresponder -stop || status=$?
[ $status = 255 ] || fail "-stop returned $status"
[ "$(timeout 60 "$engine" wait $name)" = 255 ] || fail "the container's status was another one"
