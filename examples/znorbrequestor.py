#!/usr/bin/env python3
"""How a Python program asks the running responder for a client: znorbrequestor.c, which has the reasons, in Python.

    znorbrequestor.py [-wait SECONDS] [-reply SECONDS] REQUEST
"""

import os
import re
import socket
import sys
import time

SOCKET = "/var/run/znorb.socket"
LONGEST = 1024  # bytes of a request, and of a reply
LONGEST_WAIT = 24 * 3600
RETRY = 0.1


def parse(words):
    """Seconds to connect, seconds to wait for the reply, and the request; None for a wrong command line."""
    seconds = {"-wait": 5, "-reply": 120}
    while len(words) > 2 and words[0] in seconds and re.fullmatch("[0-9]{1,9}", words[1], re.ASCII):
        if int(words[1]) > LONGEST_WAIT:
            return None
        seconds[words[0]] = int(words[1])
        words = words[2:]
    request = os.fsencode(words[0]) if len(words) == 1 else b""
    if not 0 < len(request) <= LONGEST or request.startswith(b"-"):
        return None
    return seconds["-wait"], seconds["-reply"], request


def connect(seconds):
    """Without blocking: a blocking connect waits without a bound while the responder's queue is full."""
    until = time.monotonic() + seconds
    while True:
        connection = socket.socket(socket.AF_UNIX)
        connection.setblocking(False)
        try:
            connection.connect(SOCKET)
            return connection
        except OSError:
            connection.close()
            if time.monotonic() >= until:
                return None
            time.sleep(RETRY)


def receive(connection, seconds):
    """Up to the end of the connection: nothing else marks the end of a reply."""
    until = time.monotonic() + seconds
    reply = b""
    while len(reply) < LONGEST:
        left = until - time.monotonic()
        if left <= 0:
            break
        connection.settimeout(left)
        try:
            piece = connection.recv(LONGEST - len(reply))
        except OSError:
            break
        if not piece:
            break
        reply += piece
    return reply


def fail(what):
    print("znorbrequestor: " + what, file=sys.stderr)
    return 1


def main():
    options = parse(sys.argv[1:])
    if options is None:
        print("usage: znorbrequestor.py [-wait SECONDS] [-reply SECONDS] REQUEST\n"
              "REQUEST has 1 to 1024 bytes: GET|<language>[|<seconds>], PRINT or QUIT", file=sys.stderr)
        return 2
    connectSeconds, replySeconds, request = options
    connection = connect(connectSeconds)
    if connection is None:
        return fail("the responder cannot be reached: is it running?")
    try:
        sent = connection.send(request)  # at once: the request is what the responder's one receive gets
    except OSError:
        sent = 0
    if sent != len(request):
        return fail("the request cannot be sent")
    reply = receive(connection, replySeconds)
    if not reply:
        return fail("no reply")
    try:
        os.write(sys.stdout.fileno(), reply + b"\n")
    except OSError:
        return fail("the reply cannot be printed")
    return 0


sys.exit(main())
