# By the script, from scratch, elsewhere, by somebody with other habits; lintian has nothing to say there.
command -v lintian >/dev/null || skip "lintian is not installed"
folder="$scratch/a folder/with-a-longer-name/znorb"
mkdir -p "$folder"
(cd "$source" && tar -c --exclude=./build --exclude=./.git .) | tar -x -C "$folder"
cd "$folder"
quietly env TZ=Asia/Kathmandu LC_ALL=C script/package
other=$(sha256sum <"build/package/$(basename "$package")")
[ "$(sha256sum <"$package")" = "$other" ] || fail "$(cmp "$package" "build/package/$(basename "$package")")"
[ ! -s build/package/lintian.log ] || { cat build/package/lintian.log; fail "lintian has something to say"; }
