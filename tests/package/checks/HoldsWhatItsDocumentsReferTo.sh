unpack
found=0
for document in "$scratch"/root/usr/share/doc/znorb/*.md "$scratch"/root/usr/share/doc/znorb/docs/*.md; do
    for target in $(grep -oE '\]\([^)#]+' "$document" | sed -e 's/^](//' | grep -v '^https\?:'); do
        [ -e "$(dirname "$document")/$target" ] || fail "$(basename "$document") refers to $target"
        found=$((found + 1))
    done
done
[ "$found" -gt 10 ] || fail "$found references were found"
