#!/usr/bin/env python3
"""The PUT peer of the interoperability test.

An http.server that stores each PUT body under the directory given as its
one argument, named by the last part of the request path.  Bodies come
chunked (the client's only form) or with a Content-Length.  The file appears
under its name only once it is complete (written aside, then renamed), so the
test may poll for it.  The server binds 127.0.0.1 at a port of the system's
choice and prints "PORT <n>" as its first line of output.
"""
import http.server
import os
import sys


class PutHandler(http.server.BaseHTTPRequestHandler):
    def read_chunked(self):
        body = bytearray()
        while True:
            line = self.rfile.readline(1024)
            if not line.endswith(b"\n"):
                return None  # cut short, or a size line beyond reason
            size = int(line.split(b";")[0].strip(), 16)
            if size == 0:
                # The last chunk; the empty trailer behind it is not read:
                # the client closes behind it.
                return bytes(body)
            data = self.rfile.read(size)
            if len(data) != size or self.rfile.readline(3) not in (b"\r\n", b"\n"):
                return None
            body += data

    def do_PUT(self):
        if self.headers.get("Transfer-Encoding", "").lower() == "chunked":
            body = self.read_chunked()
        else:
            body = self.rfile.read(int(self.headers.get("Content-Length", "0")))
        name = os.path.basename(self.path) or "upload"
        if body is not None:
            aside = os.path.join(self.server.root, "." + name + ".part")
            with open(aside, "wb") as out:
                out.write(body)
            os.replace(aside, os.path.join(self.server.root, name))
        try:
            self.send_response(201 if body is not None else 400)
            self.send_header("Content-Length", "0")
            self.end_headers()
        except OSError:
            pass  # the client never reads the answer and may be gone

    def log_message(self, *args):
        pass


class PutServer(http.server.HTTPServer):
    def handle_error(self, request, client_address):
        pass  # a client that closed early is no error here


def main():
    server = PutServer(("127.0.0.1", 0), PutHandler)
    server.root = sys.argv[1]
    print("PORT", server.server_address[1], flush=True)
    server.serve_forever()


if __name__ == "__main__":
    main()
