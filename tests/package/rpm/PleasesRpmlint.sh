command -v rpmlint >/dev/null || skip "rpmlint is not installed"
quietly rpmlint --strict --rpmlintrc "$source/packaging/rpm/rpmlintrc" "$package"
grep -q ' 0 errors, 0 warnings' "$scratch/log" || fail "$(cat "$scratch/log")"
