for line in "-x" "-e relative" "-e" "word"; do
    # shellcheck disable=SC2086 # words
    expect 1 "$bin/znorb-clean" $line
    says "usage:"
done
for line in "-n" "-e relative" "-t" "-t x" "-t -1" "-t 86401" "-t 99999999999999999999" "1 2"; do
    # shellcheck disable=SC2086 # words
    expect 1 "$bin/znorb-wait" $line
    says "usage:"
done
for process in 0 4x 99999999999; do
    expect 1 "$bin/znorb-wait" "$process"
    says "no process id"
done
