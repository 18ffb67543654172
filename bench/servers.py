"""Servers on loopback that the benchmarks measure against."""

import contextlib
import os
import re
import socket
import subprocess
import sys
import threading
import time


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def wait_for(port):
    for _ in range(100):
        try:
            socket.create_connection(("127.0.0.1", port)).close()
            return
        except OSError:
            time.sleep(0.05)
    sys.exit(f"no server answers on port {port}")


@contextlib.contextmanager
def running(port, command):
    server = subprocess.Popen(command)
    try:
        wait_for(port)
        yield port
    finally:
        server.terminate()
        server.wait()


@contextlib.contextmanager
def nginx(directory):
    """Serves `directory`/root over HTTP until the block ends; gives the port."""
    port = free_port()
    configuration = directory / "nginx.conf"
    configuration.write_text(
        f"""daemon off; pid {directory}/nginx.pid; error_log {directory}/error.log;
        events {{}}
        http {{
            access_log off; sendfile on;
            client_body_temp_path {directory}/t1; proxy_temp_path {directory}/t2;
            fastcgi_temp_path {directory}/t3; uwsgi_temp_path {directory}/t4;
            scgi_temp_path {directory}/t5;
            server {{ listen 127.0.0.1:{port}; root {directory}/root; }}
        }}
        """
    )
    with running(port, ["nginx", "-c", configuration, "-p", directory]):
        yield port


@contextlib.contextmanager
def vsftpd(directory):
    """Serves `directory`/root over FTP for everybody until the block ends; gives the port."""
    port = free_port()
    (directory / "empty").mkdir()
    configuration = directory / "vsftpd.conf"
    launching_user = "NO" if os.getuid() == 0 else "YES"
    configuration.write_text(
        f"""background=NO
listen=YES
listen_address=127.0.0.1
listen_port={port}
anonymous_enable=YES
local_enable=NO
anon_root={directory}/root
secure_chroot_dir={directory}/empty
run_as_launching_user={launching_user}
seccomp_sandbox=NO
"""
    )
    os.chmod(directory / "root", 0o555)
    try:
        with running(port, ["vsftpd", configuration]):
            yield port
    finally:
        os.chmod(directory / "root", 0o755)


class Sink(threading.Thread):
    """Takes posted bodies and forgets them."""

    def __init__(self):
        super().__init__(daemon=True)
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        self.start()

    def run(self):
        room = bytearray(1 << 20)
        while True:
            connection, _ = self.listener.accept()
            with connection:
                head = b""
                while b"\r\n\r\n" not in head:
                    head += connection.recv(1 << 16)
                head, _, body = head.partition(b"\r\n\r\n")
                left = int(re.search(rb"(?i)content-length: *(\d+)", head)[1]) - len(body)
                while left > 0:
                    left -= connection.recv_into(room, min(left, len(room)))
                connection.sendall(b"HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok")
