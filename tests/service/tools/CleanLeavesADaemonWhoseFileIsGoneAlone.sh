start
marks=$(marks)
rm "$daemon"
expect 2 clean
cp "$elsewhere" "$daemon"
expect 2 clean
unchanged "$marks"
answers || fail "no reply"
