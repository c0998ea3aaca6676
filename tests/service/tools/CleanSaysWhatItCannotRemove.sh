mkdir $table
expect 1 clean
says "cannot remove $table"
rmdir $table
