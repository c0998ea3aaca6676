# CPack writes the umask into the frame around the two archives; what they hold must not depend on it.
umask 077
quietly cpack --config "$build/CPackConfig.cmake" -B "$scratch/other"
for part in --fsys-tarfile --ctrl-tarfile; do
    [ "$(dpkg-deb $part "$package" | sha256sum)" = \
        "$(dpkg-deb $part "$scratch/other/$(basename "$package")" | sha256sum)" ] || fail "$part differs"
done
