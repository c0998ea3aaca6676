start
kill_all KILL
marks=$(marks)
expect 0 clean -n
says "would remove the stale lock"
says "would remove the stale table"
unchanged "$marks"
start_sleeper
expect 2 clean -n
