#!/usr/bin/env python3
"""A stand-in for the client program in Python: znorbclient.c, which has the reasons, in another language.

Installed as "znorbclient", executable, into the responder's own directory.
"""

import ctypes
import mmap
import os
import re
import select
import signal
import socket
import sys
import time

TABLE = "/dev/shm/znorb.shvars"
CAPACITY = 64
IDENTIFIER_SIZE = 117
LIFE = 600  # seconds
LONGEST_LIFE = 366 * 24 * 3600
CONNECTION = 2  # seconds that one connection may hold the client
LINGER = 1  # seconds to wait for the other side to close
LONGEST_REQUEST = 8192


class Entry(ctypes.Structure):
    """One entry of the table, as it lies in memory."""

    _fields_ = [
        ("inUse", ctypes.c_uint8),
        ("identifier", ctypes.c_char * IDENTIFIER_SIZE),
        ("reserved", ctypes.c_uint32),
        ("port", ctypes.c_uint16),
    ]


class Table(ctypes.Structure):
    _fields_ = [("count", ctypes.c_uint32), ("entries", Entry * CAPACITY)]


assert ctypes.sizeof(Entry) == 128 and ctypes.sizeof(Table) == 8196


class Ended(Exception):
    """A signal has come."""


def numberOr(text, lowest, highest, otherwise):
    isNumber = re.fullmatch("[0-9]+", text, re.ASCII) and len(text) < 20
    return int(text) if isNumber and lowest <= int(text) <= highest else otherwise


def parse(words):
    """Words that this client does not know are skipped: it may be older than the responder."""
    options = {"-lang": "", "-index": "", "-timeout": ""}
    isVerbose = False
    words = iter(words)
    for word in words:
        if word in options:
            options[word] = next(words, "")
        isVerbose = isVerbose or word == "-v"
    return (isVerbose, os.fsencode(options["-lang"]), numberOr(options["-index"], 0, CAPACITY - 1, -1),
            numberOr(options["-timeout"], 1, LONGEST_LIFE, LIFE))


def openTable():
    """None when there is no table, or it is too small to be one. Without creating it."""
    try:
        descriptor = os.open(TABLE, os.O_RDWR | os.O_CLOEXEC)
    except OSError:
        return None
    try:
        if os.fstat(descriptor).st_size < ctypes.sizeof(Table):
            return None
        return Table.from_buffer(mmap.mmap(descriptor, ctypes.sizeof(Table)))
    finally:
        os.close(descriptor)


def fillIn(entry, language, port):
    """Identifier first, then the port: until that is there nobody takes the entry for filled in.

    The port is written by one assignment to a field of two bytes, which is one store. struct.pack_into writes byte by
    byte: whoever looks between the two sees another port.
    """
    identifier = b"znorbclient-%d %s" % (os.getpid(), language)
    entry.identifier = re.sub(rb"[\x00-\x1f\x7f]", b"?", identifier)[:IDENTIFIER_SIZE - 1]
    entry.port = port


def openListener():
    listener = socket.socket(socket.AF_INET)
    listener.setblocking(False)  # a connection may be gone before it is accepted
    listener.bind(("127.0.0.1", 0))
    listener.listen(16)
    return listener


def receiveHead(connection, until):
    """Up to the empty line that ends the headers; None for a peer that is too slow, sends too much or goes away."""
    request = b""
    while len(request) < LONGEST_REQUEST and time.monotonic() < until:
        connection.settimeout(max(until - time.monotonic(), 0.001))
        piece = connection.recv(LONGEST_REQUEST - len(request))
        if not piece:
            return None
        request += piece
        if b"\r\n\r\n" in request.split(b"\0")[0]:
            return request
    return None


def hangUp(connection):
    """Reads away what still comes: a socket that is closed with unread bytes is reset, and the answer may be lost."""
    connection.shutdown(socket.SHUT_WR)
    until = time.monotonic() + LINGER
    for _ in range(64):
        connection.settimeout(max(until - time.monotonic(), 0.001))
        if not connection.recv(1024):
            break


def serve(connection, endOfLife):
    """One request, one response. True when it was the request to exit."""
    isExit = False
    until = min(time.monotonic() + CONNECTION, endOfLife)
    try:
        request = receiveHead(connection, until)
        if request is not None:
            isExit = request.startswith(b"POST /ExitApplication.json HTTP/1.")
            status, body = (("200 OK", '{"result":"exiting"}\n') if isExit else
                            ("404 Not Found", '{"result":"not found"}\n'))
            connection.settimeout(max(until - time.monotonic(), 0.001))
            # Status line, headers and body in one piece, and a true length: the responder waits for as much.
            connection.sendall((f"HTTP/1.0 {status}\r\nContent-Type: application/json\r\n"
                                f"Content-Length: {len(body)}\r\n\r\n{body}").encode())
            hangUp(connection)
    except OSError:
        pass
    connection.close()
    return isExit


def serveUntilTheEnd(listener, lifeSeconds):
    """True when the client was asked to exit, False when its time is up."""
    # Python attends to a signal between two steps of its own: one that comes right before select() would wait for the
    # end of that, if there were nothing to read.
    signals, toldOfSignals = os.pipe()
    os.set_blocking(toldOfSignals, False)
    signal.set_wakeup_fd(toldOfSignals)
    endOfLife = time.monotonic() + lifeSeconds
    while True:
        left = endOfLife - time.monotonic()
        if left <= 0:
            return False
        if listener not in select.select([listener, signals], [], [], left)[0]:
            continue
        try:
            connection, _ = listener.accept()
        except OSError:
            time.sleep(0.1)
            continue
        if serve(connection, endOfLife):
            return True


def onSignal(number, frame):
    raise Ended


def fail(what):
    print("znorbclient: " + what, file=sys.stderr)
    return 1


def main():
    os.umask(0o022)  # it was 0
    signal.signal(signal.SIGCHLD, signal.SIG_DFL)  # it was ignored
    isVerbose, language, index, lifeSeconds = parse(sys.argv[1:])
    if index < 0:
        return fail("no entry of the table is named by -index")
    table = openTable()
    if table is None:
        return fail("the table /znorb.shvars cannot be opened: is the responder running?")
    entry = table.entries[index]
    if entry.inUse == 0:
        return fail("the entry named by -index was not claimed for a client")

    listener = None
    try:
        for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
            signal.signal(number, onSignal)
        listener = openListener()
        fillIn(entry, language, listener.getsockname()[1])
        if isVerbose:
            print(f"znorbclient: entry {index}, port {entry.port}", file=sys.stderr, flush=True)
        if serveUntilTheEnd(listener, lifeSeconds) and isVerbose:
            print(f"znorbclient: entry {index}, asked to exit over HTTP", file=sys.stderr, flush=True)
    except Ended:
        pass
    except OSError:
        return fail("no port of 127.0.0.1 can be opened")
    finally:
        # Whatever the end: the port first, then the entry, and nothing of it after that.
        for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
            signal.signal(number, signal.SIG_IGN)
        if listener is not None:
            listener.close()
        entry.inUse = 0
    return 0


sys.exit(main())
