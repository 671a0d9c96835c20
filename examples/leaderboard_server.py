#!/usr/bin/env python3
"""The server of examples/leaderboard.lua: a leaderboard that is kept in memory.

    python3 examples/leaderboard_server.py [PORT]     on this machine only; 8080, or a free port for 0

    GET  /scores         {"scores": [{"name": "Ada", "points": 3100}, ...]}, the best first
    POST /scores         takes {"name": "Ada", "points": 3100} and the player's key in X-Player-Key, gives
                         {"rank": 2, "best": 3100}
    GET  /banner.txt     today's message, a file
    GET  /replay/NAME    the moves of a player's best game, a byte each: 0 up, 1 right, 2 down, 3 left

A player's name belongs to the key that it is first posted with. What is wrong is answered as {"error": "why"}.
"""

import json
import random
import sys
import threading
import urllib.parse
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

BANNER = "This week: double points in the Old Mine.\nThe board is cleared on Sunday.\n"
MAX_BODY = 1000
MAX_NAME = 20
MAX_POINTS = 1_000_000
MAX_PLAYERS = 1000


class Refused(Exception):
    """A request that is answered with a status and the reason."""

    def __init__(self, status, reason):
        super().__init__(reason)
        self.status = status


class Board:
    """Points and keys by player. Requests come on threads of their own."""

    def __init__(self):
        self._lock = threading.Lock()
        self._points = {"Grace": 4200, "Ada": 3100, "Alan": 2600, "Edsger": 1900}
        self._keys = {name: None for name in self._points}  # nobody's key

    def _ranked(self):
        return sorted(self._points.items(), key=lambda entry: (-entry[1], entry[0]))

    def scores(self):
        with self._lock:
            return [{"name": name, "points": points} for name, points in self._ranked()]

    def post(self, name, points, key):
        with self._lock:
            if name not in self._keys and len(self._keys) >= MAX_PLAYERS:
                raise Refused(503, "the board is full")
            if self._keys.setdefault(name, key) != key:
                raise Refused(403, f"{name} is another player's name")
            self._points[name] = max(points, self._points.get(name, 0))
            rank = 1 + [player for player, _ in self._ranked()].index(name)
            return {"rank": rank, "best": self._points[name]}

    def replay(self, name):
        with self._lock:
            if name not in self._points:
                raise Refused(404, "no such player")
            moves = random.Random(name)  # the same for a name every time
            return bytes(moves.randrange(4) for _ in range(self._points[name] // 50))


def entry_of(body):
    """Name and points of a posted text."""
    try:
        entry = json.loads(body)
        name, points = entry["name"], entry["points"]
    except (ValueError, TypeError, KeyError, RecursionError):
        raise Refused(400, 'the body is {"name": text, "points": number}') from None
    if not isinstance(name, str) or not name.isprintable() or not 1 <= len(name.strip()) <= len(name) <= MAX_NAME:
        raise Refused(400, f"a name has 1 to {MAX_NAME} printable characters")
    if type(points) not in (int, float) or not 0 <= points <= MAX_POINTS or points != int(points):
        raise Refused(400, f"points are a whole number from 0 to {MAX_POINTS}")
    return name, int(points)


class Handler(BaseHTTPRequestHandler):
    board = Board()
    protocol_version = "HTTP/1.1"
    timeout = 60  # seconds that a connection may be silent

    def do_GET(self):
        self.answer(self.get)

    def do_POST(self):
        self.answer(self.post)

    def get(self):
        path = urllib.parse.unquote(urllib.parse.urlsplit(self.path).path)
        if path == "/scores":
            return 200, "application/json", json.dumps({"scores": self.board.scores()}).encode()
        if path == "/banner.txt":
            return 200, "text/plain; charset=utf-8", BANNER.encode()
        if path.startswith("/replay/"):
            return 200, "application/octet-stream", self.board.replay(path[len("/replay/"):])
        raise Refused(404, "there is /scores, /banner.txt and /replay/NAME")

    def post(self):
        body = self.body()
        if self.path != "/scores":
            raise Refused(404, "only /scores takes a post")
        if self.headers.get_content_type() != "application/json":
            raise Refused(415, "the body is application/json")
        key = self.headers.get("X-Player-Key", "")
        if len(key) < 16:
            raise Refused(401, "X-Player-Key: a key of 16 characters or more")
        return 201, "application/json", json.dumps(self.board.post(*entry_of(body), key)).encode()

    def body(self):
        length = self.headers.get("Content-Length", "")
        if not (length.isascii() and length.isdigit() and len(length) < 10 and int(length) <= MAX_BODY):
            self.close_connection = True  # what follows is not read
            raise Refused(413 if length else 411, f"a body has at most {MAX_BODY} bytes, and says how many")
        return self.rfile.read(int(length))

    def answer(self, work):
        try:
            status, kind, data = work()
        except Refused as refusal:
            status, kind, data = refusal.status, "application/json", json.dumps({"error": str(refusal)}).encode()
        self.send_response(status)
        self.send_header("Content-Type", kind)
        self.send_header("Content-Length", str(len(data)))
        if self.close_connection:
            self.send_header("Connection", "close")
        self.end_headers()
        self.wfile.write(data)


def main():
    port = sys.argv[1] if len(sys.argv) == 2 else "8080"
    if len(sys.argv) > 2 or not (port.isascii() and port.isdigit() and int(port) <= 65535):
        sys.exit("usage: leaderboard_server.py [PORT]")
    try:
        server = ThreadingHTTPServer(("127.0.0.1", int(port)), Handler)
    except OSError as failure:
        sys.exit(f"cannot listen on port {port}: {failure.strerror}; name another one, or 0 for one that is free")
    print(f"The leaderboard is at http://127.0.0.1:{server.server_port}. Ctrl-C ends it.", flush=True)
    try:
        server.serve_forever()
    except KeyboardInterrupt:
        print()


if __name__ == "__main__":
    main()
