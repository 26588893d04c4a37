"""A test peer of the local network: it hears query datagrams on a UDP port, answers for the files
it offers, and serves files over HTTP (with Content-Length) on the same port number. It records
every datagram it hears (raw bytes, sender, arrival time) and every HTTP request path. Its sockets
are opened inside a network namespace, at the peer's own address there."""
import socket
import struct
import threading
import time

from netns import in_namespace
from servers import ScriptedServer


def prefix_for(port):
    return b"wHttpShare%d" % port


def query_names(data, port):
    """The names asked for in a query datagram; empty for anything else."""
    prefix = prefix_for(port)
    at = len(prefix) + 6
    if not data.startswith(prefix) or len(data) < at or data[len(prefix) + 1] != 1:
        return []
    names = []
    # Record: 1, name length and name, hash length and hash, 1, 8-byte size; 0 ends the datagram.
    while at + 2 <= len(data) and data[at] == 1:
        name = data[at + 2:at + 2 + data[at + 1]]
        at += 2 + data[at + 1]
        if at >= len(data):
            break
        at += 1 + data[at] + 1 + 8
        names.append(name.decode("utf-8", "replace"))
    return names


def answer_datagram(port, version, records):
    """An answer: records are (name, hash bytes, size); version 1 sends the names only."""
    body = struct.pack(">I", len(records))
    for name, digest, size in records:
        if version >= 2:
            body += bytes([len(digest)]) + digest
        encoded = name.encode("utf-8")
        body += bytes([len(encoded)]) + encoded
        if version >= 2:
            body += struct.pack(">Q", size)
    head = prefix_for(port) + bytes([version, 2])
    return head + struct.pack(">I", len(head) + 4 + len(body)) + body


class Peer:
    """offers: {name as the updater sends it: (1,) or (2, SHA-1 hex, size)}, answered when asked.
    files: {URL path: bytes} served over HTTP; http=False leaves the TCP port closed."""

    def __init__(self, namespace, address, port, offers=None, files=None, http=True):
        self.port = port
        self.offers = offers or {}
        self.files = files or {}
        self.datagrams = []  # (time.monotonic(), (address, port), bytes)
        self.stopping = False

        def open_sockets():
            udp = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
            udp.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
            udp.bind(("", port))  # the wildcard address hears broadcasts
            udp.settimeout(0.05)
            tcp = None
            if http:
                tcp = socket.socket()
                tcp.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
                tcp.bind((address, port))
                tcp.listen(16)
            return udp, tcp

        self.udp, tcp = in_namespace(namespace, open_sockets)
        self.http = ScriptedServer(self.respond, tcp) if tcp else None
        self.hearing = threading.Thread(target=self.hear, daemon=True)
        self.hearing.start()

    def hear(self):
        while not self.stopping:
            try:
                data, sender = self.udp.recvfrom(65536)
            except socket.timeout:
                continue
            self.datagrams.append((time.monotonic(), sender, data))
            for answer in self.answers(query_names(data, self.port)):
                self.udp.sendto(answer, sender)

    def answers(self, names):
        by_version = {}
        for name in names:
            offer = self.offers.get(name)
            if offer:
                digest = bytes.fromhex(offer[1]) if offer[0] >= 2 else b""
                size = offer[2] if offer[0] >= 2 else 0
                by_version.setdefault(offer[0], []).append((name, digest, size))
        return [answer_datagram(self.port, version, records) for version, records in sorted(by_version.items())]

    def respond(self, head):
        path = head.split(b" ")[1].decode() if head.count(b" ") >= 2 else ""
        body = self.files.get(path)
        status = "200 OK" if body is not None else "404 Not Found"
        body = body if body is not None else b""
        return f"HTTP/1.1 {status}\r\nContent-Length: {len(body)}\r\nConnection: close\r\n\r\n".encode() + body

    @property
    def paths(self):
        """The paths of the HTTP requests, in order."""
        return self.http.paths() if self.http else []

    def stop(self):
        self.stopping = True
        self.hearing.join()
        self.udp.close()
        if self.http:
            self.http.stop()
