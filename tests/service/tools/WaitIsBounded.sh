start_sleeper
expect 3 await -t 0
says "does not listen yet"
expect 3 await -t 1 "$sleeper"
# A process that has not executed the responder yet.
expect 3 await -t 0 $$
says "does not listen yet"
