# Clean paths, of the prefix that was given however it was written, and of the place to which all of it was moved.
command -v pkg-config >/dev/null || skip "pkg-config is not installed"
says() { # says <answer> <question>...: of the file that was installed last
    wanted=$1
    shift
    answer=$(PKG_CONFIG_PATH='' PKG_CONFIG_LIBDIR="$folder" pkg-config "$@" znorb | sed 's/ *$//')
    [ "$answer" = "$wanted" ] || fail "pkg-config $* says '$answer', not '$wanted'"
}
tells() { # tells <usr> <opt> [<option>]
    says "-I$1/include" --keep-system-cflags ${3:-} --cflags
    says "$1" ${3:-} --variable=prefix
    says "$1/include" ${3:-} --variable=includedir
    says "$2/zn/znorb/bin" ${3:-} --variable=programdir
    says "" ${3:-} --libs
}
place=$scratch/place
for prefix in "$place" "$scratch//elsewhere/..//place/"; do
    rm -rf "$place"
    quietly cmake --install "$build" --prefix "$prefix"
    folder=$place/lib/pkgconfig
    tells "$place" "$place/opt"
done
mv "$place" "$scratch/moved"
folder=$scratch/moved/lib/pkgconfig
tells "$scratch/moved" "$scratch/moved/opt" --define-prefix

quietly cmake --install "$build" --prefix "$scratch/all/usr"
folder=$scratch/all/usr/share/pkgconfig
tells "$scratch/all/usr" "$scratch/all/opt"

unpack
folder=$scratch/root/usr/share/pkgconfig
tells /usr /opt
says "" --cflags # which the compiler knows
