# Also a newer one, for an upgrade.
folder=$(dirname "$package")
cd "$source"
quietly cmake --preset rpm -B "$build" -DCMAKE_UNITY_BUILD=ON # the same program, in half the time
quietly cmake --build "$build"
rm -rf "$folder"/znorb-*.rpm "$folder/newer"
quietly cpack --config "$build/CPackConfig.cmake" -B "$folder"
quietly env ZNORB_PACKAGE_VERSION="$release+8.g01234567" cpack --config "$build/CPackConfig.cmake" -B "$folder/newer"
[ -f "$package" ] || fail "there is no $package: $(ls "$folder")"
