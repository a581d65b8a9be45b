#!/usr/bin/env python3
"""A model hub on 127.0.0.1 for trying `orvid models download` without the network.

Serves the files under --dir at their paths (the hub's layout is
"/<owner>/<repo>/resolve/main/<file>"), honours "Range: bytes=N-" as the hub does
(206 with Content-Range; 416 past the end), and can be slowed down or made to drop
the first transfer, so that interrupted downloads and their resumption can be seen.
Point the tool at it with HF_ENDPOINT=<the printed URL>.

Prints "ready http://127.0.0.1:PORT" once it listens, then one line per request:
"GET <path> range=<Range header or ->  <status>".
"""
import argparse
import http.server
import os
import sys
import threading
import time


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--dir", required=True, help="folder whose files are served")
    parser.add_argument("--port", type=int, default=0, help="port on 127.0.0.1 (0: any free one)")
    parser.add_argument("--rate", type=int, default=0, help="bytes per second per transfer (0: unlimited)")
    parser.add_argument("--drop-at", type=float, default=0.0,
                        help="close the first transfer after this fraction of its file (0: never)")
    options = parser.parse_args()
    root = os.path.realpath(options.dir)
    dropped = threading.Event()

    class Handler(http.server.BaseHTTPRequestHandler):
        protocol_version = "HTTP/1.1"

        def log_message(self, *args):
            pass

        def answer(self, status, headers=(), length=0):
            self.send_response(status)
            for name, value in headers:
                self.send_header(name, value)
            self.send_header("Content-Length", str(length))
            self.end_headers()
            print(f"{self.command} {self.path} range={self.headers.get('Range', '-')}  {status}", flush=True)

        def do_HEAD(self):
            self.do_GET(body=False)

        def do_GET(self, body=True):
            path = os.path.realpath(os.path.join(root, self.path.split("?")[0].lstrip("/")))
            if not path.startswith(root + os.sep) or not os.path.isfile(path):
                self.answer(404)
                return
            size = os.path.getsize(path)
            offset = 0
            requested = self.headers.get("Range", "")
            if requested.startswith("bytes=") and requested.endswith("-") and requested[6:-1].isdigit():
                offset = int(requested[6:-1])
                if offset >= size:
                    self.answer(416, [("Content-Range", f"bytes */{size}")])
                    return
                self.answer(206, [("Content-Range", f"bytes {offset}-{size - 1}/{size}")], size - offset)
            else:
                self.answer(200, [("Accept-Ranges", "bytes")], size)
            if not body:
                return
            stop_at = size
            if options.drop_at > 0 and not dropped.is_set():
                dropped.set()
                stop_at = max(offset, int(size * options.drop_at))
            self.send_file(path, offset, stop_at)
            if stop_at < size:
                self.close_connection = True

        def send_file(self, path, offset, stop_at):
            chunk = 64 * 1024
            started = time.monotonic()
            sent = 0
            with open(path, "rb") as source:
                source.seek(offset)
                while offset + sent < stop_at:
                    data = source.read(min(chunk, stop_at - offset - sent))
                    if not data:
                        break
                    try:
                        self.wfile.write(data)
                    except (BrokenPipeError, ConnectionResetError):
                        return
                    sent += len(data)
                    if options.rate > 0:
                        ahead = sent / options.rate - (time.monotonic() - started)
                        if ahead > 0:
                            time.sleep(ahead)

    server = http.server.ThreadingHTTPServer(("127.0.0.1", options.port), Handler)
    server.daemon_threads = True
    print(f"ready http://127.0.0.1:{server.server_address[1]}", flush=True)
    try:
        server.serve_forever()
    except KeyboardInterrupt:
        pass
    return 0


if __name__ == "__main__":
    sys.exit(main())
