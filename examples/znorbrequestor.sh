#!/bin/sh
# A requester in the shell, and a tutorial for authors of scripts: sends one request to the running responder and
# prints the reply.
#
#     znorbrequestor.sh REQUEST [SECONDS]
#
# REQUEST is "GET|en" or the like, "PRINT" or "QUIT"; SECONDS is how long to wait for the reply, 120 by default.
# Exit status: 0 with a reply, 1 without one, 2 for a wrong command line.
#
# Needs nc, the one that knows -U: OpenBSD's (in Debian netcat-openbsd). The shell alone cannot open a socket.
socket=/var/run/znorb.socket

case $# in
1 | 2) ;;
*) set -- '' ;;
esac
if [ -z "$1" ] || [ "$(printf %s "$1" | wc -c)" -gt 1024 ]; then
    printf 'usage: znorbrequestor.sh REQUEST [SECONDS]\n' >&2
    exit 2
fi

# printf %s sends the bytes of the request and nothing else. echo would add a newline, and the responder takes
# "QUIT" with a newline for an unknown request, which it answers "0" like many others.
# nc waits for the reply, since its end comes when the responder closes; -w bounds the wait.
reply=$(printf %s "$1" | nc -U -w "${2:-120}" "$socket")
if [ -z "$reply" ]; then
    printf 'znorbrequestor.sh: no reply: is the responder running?\n' >&2
    exit 1
fi
printf '%s\n' "$reply"
