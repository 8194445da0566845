#!/usr/bin/env python3
"""A task without the library, over the socket that it is started with. TAVO_TEST_FAULT names what it
does wrong; without it nothing."""
import base64
import json
import os
import re
import signal
import socket
import subprocess
import sys
import threading

FAULT = os.environ.get("TAVO_TEST_FAULT", "")
KEYS = re.compile(rb"\x07\x02id\x07(?P<id>.)|\x07\x06method\x07(?P<method>.)", re.S)


def text(value):
    return b"\x07" + bytes([len(value)]) + value


def message(**members):
    members = {"jsonrpc": text(b"2.0"), **members}
    body = b"".join(text(key.encode()) + value for key, value in members.items())
    frame = base64.b64encode(b"\x0d" + bytes([len(members)]) + body).decode()
    return json.dumps({"data": frame}).encode() + b"\n"


def error(code):
    fields = text(b"code") + b"\x03" + code.to_bytes(4, "little", signed=True)
    return b"\x0d\x02" + fields + text(b"message") + text(b"no")


def read(line):
    """The id and the method of a message, as far as it has them. Bytes that are no message raise."""
    value = base64.b64decode(json.loads(line)["data"], validate=True)
    if not value.startswith(b"\x0d") or text(b"jsonrpc") not in value:
        raise ValueError
    found = {match.lastgroup: value[match.end():match.end() + match[match.lastgroup][0]]
             for match in KEYS.finditer(value)}
    return found.get("id"), found.get("method")


def answer(line):
    try:
        ident, method = read(line)
    except (ValueError, LookupError, TypeError, RecursionError):
        if FAULT == "dies":
            raise
        if FAULT == "number":
            return message(error=b"\x03\x05\0\0\0")
        return message(id=b"\0", error=error(-32600 if FAULT == "code" else -32700))
    if not method or (ident is None and FAULT != "notified"):
        return b""
    if method == b"flrpc.connected" and ident:
        return b"" if FAULT == "mute" else message(id=text(ident), result=b"\0")
    failure = error(-32600 if FAULT == "code" else -32601)
    return message(id=text(ident or b"none"), error=failure) * (2 if FAULT == "twice" else 1)


def serve(connection):
    for number, line in enumerate(connection.makefile("rb")):
        if FAULT == "endless":
            connection.sendall(b"x" * (33 << 20))
        if FAULT == "talks":
            connection.sendall(b"hello\n")
        if FAULT == "garbage":
            connection.sendall(b'{"data":"CAIB/w=="}\n')
        while FAULT == "flood":
            connection.sendall(message(method=text(b"tick")))
        result = answer(line)
        if FAULT == "late" and number == 0:
            threading.Timer(0.05, connection.sendall, [result]).start()
        connection.sendall(result)


def main():
    if FAULT == "pipe":
        signal.signal(signal.SIGPIPE, signal.SIG_DFL)
    if FAULT == "stays":
        signal.signal(signal.SIGTERM, signal.SIG_IGN)
    if FAULT == "spawns":
        daemon = subprocess.Popen(["sleep", "1000"], start_new_session=True)
        with open("daemon", "w") as file:
            file.write(f"{daemon.pid}\n")
    if FAULT == "vanishes":
        os.unlink(__file__)
    if FAULT == "binds":
        os.chdir("sockets")
        left = socket.socket(socket.AF_UNIX)
        left.bind("left")
        if os.fork() == 0:
            signal.pause()
        left.close()
    listener = socket.socket(fileno=3)
    while True:
        connection = listener.accept()[0]
        try:
            serve(connection)
        except OSError:
            pass
        if FAULT == "single":
            signal.pause()


main()
