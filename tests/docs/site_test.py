#!/usr/bin/env python3
"""Looks at the documentation's site in a browser: each page at a width of 400 pixels, and the search.

A page must not be wider than the window, and its pictures must have loaded.

Usage: site_test.py DIRECTORY
"""
import functools
import http.server
import json
import pathlib
import queue
import subprocess
import sys
import tempfile
import threading

DEADLINE = 120  # Seconds.

# Loads one page after the other into a frame, which is of the same origin, and posts what is wrong.
CHECK = """<!doctype html><iframe id="frame" style="width: 400px; height: 800px; border: 0"></iframe>
<script>
const frame = document.getElementById('frame');
const load = url => new Promise(done => { frame.onload = done; frame.src = url; });
const until = async condition => {
  for (let i = 0; i < 200 && !condition(); ++i) await new Promise(done => setTimeout(done, 50));
  return condition();
};
(async () => {
  const faults = [];
  for (const page of PAGES) {
    await load(page);
    const root = frame.contentDocument.documentElement;
    if (root.scrollWidth > 400) faults.push(`${page}: ${root.scrollWidth} pixels wide`);
    for (const image of frame.contentDocument.images) {
      image.loading = 'eager';
      if (!await until(() => image.complete && image.naturalWidth)) faults.push(`${page}: ${image.src}`);
    }
  }
  await load('search.html?q=ManagerWrapper');
  const found = () => [...frame.contentDocument.querySelectorAll('#search-results a')];
  if (!await until(() => found().some(link => link.href.includes('manager_wrapper.h')))) {
    faults.push('The search does not find ManagerWrapper.');
  }
  await fetch('/faults', {method: 'POST', body: JSON.stringify(faults)});
})();
</script>"""


class Handler(http.server.SimpleHTTPRequestHandler):
    """Serves the site, the page above, and takes the faults."""

    faults = queue.Queue()

    def do_GET(self):
        if self.path != "/check":
            return super().do_GET()
        pages = sorted(str(path.relative_to(self.directory))
                       for path in pathlib.Path(self.directory).rglob("*.html"))
        body = CHECK.replace("PAGES", json.dumps(pages)).encode()
        self.send_response(200)
        self.send_header("Content-Type", "text/html; charset=utf-8")
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def do_POST(self):
        self.faults.put(json.loads(self.rfile.read(int(self.headers["Content-Length"]))))
        self.send_response(204)
        self.end_headers()

    def log_message(self, *_):
        pass


def main():
    directory = sys.argv[1]
    handler = functools.partial(Handler, directory=directory)
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), handler)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as profile:
        browser = subprocess.Popen(
            ["chromium", "--headless", "--no-sandbox", "--disable-gpu", "--window-size=800,900",
             f"--user-data-dir={profile}", "--remote-debugging-port=0",
             f"http://127.0.0.1:{server.server_port}/check"],
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        try:
            faults = Handler.faults.get(timeout=DEADLINE)
        except queue.Empty:
            faults = [f"no answer of the browser within {DEADLINE} s"]
        finally:
            browser.terminate()
            browser.wait()
    sys.exit("\n".join(faults) or 0)


if __name__ == "__main__":
    main()
