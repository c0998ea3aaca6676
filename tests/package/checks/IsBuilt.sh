rm -rf "$(dirname "$package")"
quietly cmake --build "$build" --target znorbresponder znorb-clean znorb-wait
quietly cpack --config "$build/CPackConfig.cmake" -B "$(dirname "$package")"
[ -f "$package" ] || fail "there is no $package: $(ls "$(dirname "$package")")"
