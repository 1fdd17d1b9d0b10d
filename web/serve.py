#!/usr/bin/env python3
"""Serves a folder on this machine with the headers that let its pages share memory between workers.

    serve.py FOLDER PORT        port 0 takes a free one; the address is printed
"""
import functools
import http.server
import sys


class Handler(http.server.SimpleHTTPRequestHandler):
    extensions_map = {**http.server.SimpleHTTPRequestHandler.extensions_map,
                      ".mjs": "text/javascript", ".wasm": "application/wasm"}

    def end_headers(self):
        self.send_header("Cross-Origin-Opener-Policy", "same-origin")
        self.send_header("Cross-Origin-Embedder-Policy", "require-corp")
        # The page says the same in its head; workers go by the header of their own file.
        self.send_header("Content-Security-Policy", "default-src 'self'; script-src 'self' 'wasm-unsafe-eval'; "
                         "img-src 'self' blob:")
        self.send_header("Cache-Control", "no-cache")
        super().end_headers()

    def log_message(self, *arguments):
        pass


def main():
    folder, port = sys.argv[1], int(sys.argv[2])
    with http.server.ThreadingHTTPServer(("127.0.0.1", port), functools.partial(Handler, directory=folder)) as server:
        print(f"http://127.0.0.1:{server.server_address[1]}/", flush=True)
        try:
            server.serve_forever()
        except KeyboardInterrupt:
            pass


if __name__ == "__main__":
    main()
