"""A server that fails: prints two ports of 127.0.0.1. One reads a request and resets the connection, every second time
in the middle of an answer. The other never answers."""

import selectors
import socket
import struct

RESET = struct.pack("ii", 1, 0)  # a linger of no time
HALF_AN_ANSWER = b"HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n" + b"x" * 100

selector = selectors.DefaultSelector()
resets = 0


def reset(connection):
    global resets
    resets += 1
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, RESET)
    if resets % 2:
        connection.send(HALF_AN_ANSWER)
    close(connection)


def close(connection):
    selector.unregister(connection)
    connection.close()


def read(connection, answer):
    try:
        if connection.recv(4096):
            answer(connection)
        else:
            close(connection)
    except ConnectionError:
        close(connection)


def listen(answer):
    def accept(listener, _):
        connection, _ = listener.accept()
        connection.setblocking(False)
        selector.register(connection, selectors.EVENT_READ, (read, answer))

    listener = socket.create_server(("127.0.0.1", 0), backlog=256)
    selector.register(listener, selectors.EVENT_READ, (accept, answer))
    return listener.getsockname()[1]


print(listen(reset), listen(lambda connection: None), flush=True)
while True:
    for key, _ in selector.select():
        handle, answer = key.data
        handle(key.fileobj, answer)
