# With the 17 bytes of /opt/zn/znorb/bin 79, and then 80.
prefix=$scratch/$(printf "%$((79 - ${#scratch} - 1 - 17))s" | tr ' ' x)
for long in no yes; do
    [ $long = no ] || prefix=${prefix}x
    rm -rf "$scratch"/x*
    cmake --install "$build" --prefix "$prefix" >"$scratch/log" 2>&1 || fail "$(cat "$scratch/log")"
    warned=no
    ! tr -s ' \n' ' ' <"$scratch/log" | grep -q 'fewer than 80 bytes' || warned=yes
    [ $warned = $long ] || fail "a warning for ${#prefix} bytes of the prefix: $warned"
done
