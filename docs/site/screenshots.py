"""Pictures of the site as a browser shows it on a wide and on a narrow screen."""
import pathlib
import subprocess
import tempfile

PAGES = ["index.html", "tutorial.html", "concepts.html", "performance.html", "troubleshooting.html",
         "api/wrapper/manager_wrapper.h.html", "search.html?q=ManagerWrapper"]
WIDTHS = [400, 1280]
HEIGHT = 1600

# A browser's window has a least width, which a frame has not.
FRAME = '<body style="margin: 0"><iframe src="{url}" style="border: 0; width: {width}px; height: {height}px">'


def take(site, directory):
    """Writes DIRECTORY/PAGE-WIDTH.png, and returns what is missing."""
    directory.mkdir(parents=True, exist_ok=True)
    faults = []
    for page in PAGES:
        path, _, query = page.partition("?")
        url = (site / path).as_uri() + (f"?{query}" if query else "")
        for width in WIDTHS:
            picture = directory / f"{pathlib.Path(path).stem}-{width}.png"
            with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as profile:
                frame = pathlib.Path(profile) / "frame.html"
                frame.write_text(FRAME.format(url=url, width=width, height=HEIGHT))
                subprocess.run(
                    ["chromium", "--headless", "--no-sandbox", "--disable-gpu", "--hide-scrollbars",
                     f"--user-data-dir={profile}", f"--window-size={width},{HEIGHT}",
                     "--virtual-time-budget=10000", f"--screenshot={picture}", frame.as_uri()],
                    stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=120, check=True)
            if not picture.exists() or picture.stat().st_size < 20000:  # An empty page is smaller.
                faults.append(f"{picture} shows nothing")
    return faults
