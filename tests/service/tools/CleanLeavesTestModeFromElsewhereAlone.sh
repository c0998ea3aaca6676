start_test_mode "$elsewhere"
mark=$(inode $table)
expect 2 clean
says "listens on"
[ "$(inode $table)" = "$mark" ] || fail "the table is another one"
