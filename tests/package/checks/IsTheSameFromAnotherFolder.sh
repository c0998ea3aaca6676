# With the one command, from scratch, elsewhere, by somebody with other habits.
folder="$scratch/a folder/with-a-longer-name/znorb"
mkdir -p "$folder"
(cd "$source" && tar -c --exclude=./build --exclude=./.git .) | tar -x -C "$folder"
cd "$folder"
quietly env TZ=Asia/Kathmandu LC_ALL=C cmake --workflow --preset package
other=$(sha256sum <"build/package/$(basename "$package")")
[ "$(sha256sum <"$package")" = "$other" ] || fail "$(cmp "$package" "build/package/$(basename "$package")")"
