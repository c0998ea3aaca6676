expect 2 await
says "does not run"
(exit 0) &
ended=$!
wait $ended
expect 2 await "$ended"
expect 2 await ""
: >/var/run/znorb.socket
expect 2 await
