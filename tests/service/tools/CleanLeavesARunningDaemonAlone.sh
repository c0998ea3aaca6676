start
marks=$(marks)
expect 2 clean
says "a responder runs (process $(processes "$daemon"))"
unchanged "$marks"
answers || fail "no reply"
