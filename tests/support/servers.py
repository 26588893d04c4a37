"""Servers that the Python-driven tests start on 127.0.0.1 (nginx also inside a network namespace):
Debian's nginx over a folder, and a scripted server that answers each request with the bytes a
test chose."""
import os
import shutil
import socket
import subprocess
import tempfile
import threading
import time

from netns import in_namespace
from veytest import PATIENCE

NGINX = shutil.which("nginx") or "/usr/sbin/nginx"


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


class Nginx:
    """nginx serving `root` on 127.0.0.1, or on an address inside a network namespace; the access
    log records every request path (and whatever else `log_format` adds, such as "$bytes_sent")."""

    def __init__(self, root, address="127.0.0.1", namespace=None, log_format="$request $status"):
        self.root = os.path.abspath(root)
        self.address = address
        self.port = free_port()
        self.folder = tempfile.mkdtemp(prefix="vey-nginx-")
        self.access_log = os.path.join(self.folder, "access.log")
        config = os.path.join(self.folder, "nginx.conf")
        with open(config, "w") as f:
            f.write(f"""daemon off;
master_process off;
pid {self.folder}/nginx.pid;
error_log {self.folder}/error.log;
events {{ worker_connections 64; }}
http {{
    types {{ }}
    default_type application/octet-stream;
    client_body_temp_path {self.folder}/body;
    proxy_temp_path {self.folder}/proxy;
    fastcgi_temp_path {self.folder}/fastcgi;
    uwsgi_temp_path {self.folder}/uwsgi;
    scgi_temp_path {self.folder}/scgi;
    log_format plain '{log_format}';
    access_log {self.access_log} plain;
    server {{
        listen {address}:{self.port};
        root {self.root};
    }}
}}
""")
        command = [NGINX, "-p", self.folder, "-c", config]
        if namespace:
            command = ["ip", "netns", "exec", namespace, *command]
        self.process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                        stderr=subprocess.DEVNULL)

        def connect():
            socket.create_connection((address, self.port), timeout=1).close()

        deadline = time.monotonic() + PATIENCE
        while time.monotonic() < deadline:
            try:
                in_namespace(namespace, connect) if namespace else connect()
                return
            except OSError:
                time.sleep(0.02)
        self.stop()
        raise RuntimeError("nginx did not start")

    @property
    def domain(self):
        return f"{self.address}:{self.port}"

    def requests(self):
        """The logged request lines, such as "GET /m.json HTTP/1.1 200"."""
        try:
            with open(self.access_log) as log:
                return log.read().splitlines()
        except FileNotFoundError:
            return []

    def stop(self):
        self.process.terminate()
        try:
            self.process.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            self.process.kill()
        shutil.rmtree(self.folder, ignore_errors=True)


class ScriptedServer:
    """Answers every connection with `answer(request_head)` (bytes, or an iterable of bytes sent piece
    by piece) and closes; records the heads. One connection at a time, unless `concurrent`: then
    each has a thread of its own, so that a client killed mid-answer, whose connection may stay open
    unread for a while, does not hold up the next one.
    Listens on 127.0.0.1 unless given a listening socket opened elsewhere (in a namespace)."""

    def __init__(self, answer, listener=None, concurrent=False):
        self.answer = answer
        self.heads = []
        self.listener = listener
        self.concurrent = concurrent
        if not listener:
            self.listener = socket.socket()
            self.listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
            self.listener.bind(("127.0.0.1", 0))
            self.listener.listen(16)
        self.port = self.listener.getsockname()[1]
        self.thread = threading.Thread(target=self.serve, daemon=True)
        self.thread.start()

    @property
    def domain(self):
        return f"127.0.0.1:{self.port}"

    def serve(self):
        while True:
            try:
                connection, _ = self.listener.accept()
            except OSError:
                return
            if self.concurrent:
                threading.Thread(target=self.handle, args=(connection,), daemon=True).start()
            else:
                self.handle(connection)

    def handle(self, connection):
        with connection:
            head = b""
            connection.settimeout(PATIENCE)
            try:
                while b"\r\n\r\n" not in head:
                    data = connection.recv(65536)
                    if not data:
                        break
                    head += data
                self.heads.append(head)
                reply = self.answer(head)
                # An answer is bytes, or pieces (a generator may pause between them).
                for piece in [reply] if isinstance(reply, bytes) else reply:
                    connection.sendall(piece)
            except OSError:
                pass

    def paths(self):
        return [head.split(b" ")[1].decode() for head in self.heads if head.count(b" ") >= 2]

    def stop(self):
        # Shutting down wakes the waiting accept, so the port is free once this returns.
        try:
            self.listener.shutdown(socket.SHUT_RDWR)
        except OSError:
            pass
        self.thread.join()
        self.listener.close()
