expect 2 await
says "does not run"
expect 2 await $$
expect 2 await ""
: >/var/run/znorb.socket
expect 2 await
