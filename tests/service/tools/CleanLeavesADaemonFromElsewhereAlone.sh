start "$elsewhere"
marks=$(marks)
expect 2 clean
says "uses $lock"
unchanged "$marks"
