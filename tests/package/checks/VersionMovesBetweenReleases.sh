# As dpkg orders versions, and rpm where it is installed, in a history of its own.
command -v git >/dev/null || skip "git is not installed"
history=$scratch/history
export GIT_CONFIG_GLOBAL=/dev/null GIT_CONFIG_NOSYSTEM=1
export GIT_AUTHOR_NAME=nobody GIT_AUTHOR_EMAIL=nobody@invalid GIT_COMMITTER_NAME=nobody GIT_COMMITTER_EMAIL=nobody@invalid
unset ZNORB_PACKAGE_VERSION

of() { # of <folder> <release>: the version of a package that is made there
    cmake -DCPACK_PACKAGE_VERSION="$2" -P "$1/packaging/Version.cmake" 2>"$scratch/warned" |
        sed -n "s/^-- The package's version: //p"
}
is() { # is <version, as a pattern> [<folder> [<release>]]
    found=$(of "${2:-$history}" "${3:-1.0.0}")
    printf '%s\n' "$found" | grep -qx -- "$1" || fail "$found is not like $1"
}
commit() {
    git -C "$history" add --all
    git -C "$history" commit --quiet --allow-empty --message "$1"
}
last=0
rises() { # rises <pattern> [<release>]: like that, and an upgrade from the one before
    is "$1" "$history" "${2:-1.0.0}"
    dpkg --compare-versions "$last-1" lt "$found-1" || fail "$found is no upgrade from $last"
    if command -v rpm >/dev/null; then
        [ "$(rpm --eval "%{lua:print(rpm.vercmp('$last-1', '$found-1'))}")" = -1 ] ||
            fail "$found is no upgrade from $last for rpm"
    fi
    last=$found
}

mkdir -p "$history/packaging"
cp "$source/packaging/Version.cmake" "$history/packaging"
echo '## [1.0.0] - 2026-01-01' >"$history/CHANGELOG.md"
is '1\.0\.0'
git -C "$history" init --quiet
is '1\.0\.0'
grep -q 'git does not tell' "$scratch/warned" || fail "it did not say that there is no history"
commit "first"
rises '1\.0\.0'
echo 'and a line' >>"$history/CHANGELOG.md"
rises '1\.0\.0+0\.g[0-9a-f]\{8\}\.dirty'
for count in 1 2 3 4 5 6 7 8 9 10 11; do
    commit "$count"
    rises "1\\.0\\.0+$count\\.g[0-9a-f]\\{8\\}"
done
touch "$history/of-nobody"
is "$last"
echo 'and another' >>"$history/CHANGELOG.md"
rises '1\.0\.0+11\.g[0-9a-f]\{8\}\.dirty'

commit "changed"
git -C "$history" tag --annotate --message 1.0.0 v1.0.0 HEAD~3
is '1\.0\.0+3\..*'
git -C "$history" tag --delete v1.0.0 >"$scratch/log"

sed -i '1i ## [1.1.0] - 2026-02-02' "$history/CHANGELOG.md"
commit "release 1.1.0"
rises '1\.1\.0' 1.1.0
git -C "$history" tag --annotate --message 1.1.0 v1.1.0
is '1\.1\.0' "$history" 1.1.0
commit "after it"
rises '1\.1\.0+1\..*' 1.1.0

git clone --quiet --depth 1 --no-tags "file://$history" "$scratch/shallow"
is '1\.1\.0+0\..*' "$scratch/shallow" 1.1.0
mkdir -p "$history/inner/packaging"
cp "$source/packaging/Version.cmake" "$history/inner/packaging"
is '1\.0\.0' "$history/inner"
export ZNORB_PACKAGE_VERSION=1.0.0+5.gabcdef01
is '1\.0\.0+5\.gabcdef01'
