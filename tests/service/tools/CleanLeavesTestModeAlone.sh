start_test_mode "$daemon"
mark=$(inode $table)
expect 2 clean
[ "$(inode $table)" = "$mark" ] || fail "the table is another one"
