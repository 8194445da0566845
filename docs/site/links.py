"""Checks the links of the site, and those of README.md and docs/ in the tree."""
import html.parser
import re
import urllib.parse

# Attributes whose file a browser fetches by itself: they must not name another host.
FETCHED = {("img", "src"), ("script", "src"), ("link", "href"), ("iframe", "src")}
# What a style sheet takes from files.
STYLE = re.compile(r"""url\((["']?)(?!data:)(?P<path>[^)"']+)\1\)""")


class Page(html.parser.HTMLParser):
    """The links and the anchors of a page."""

    def __init__(self, text):
        super().__init__()
        self.links, self.anchors, self.fetched = set(), set(), set()
        self.feed(text)

    def handle_starttag(self, tag, attributes):
        for name, value in attributes:
            if name == "id":
                self.anchors.add(value)
            if name in ("href", "src") and value:
                self.links.add(value)
                if (tag, name) in FETCHED:
                    self.fetched.add(value)


def check_site(output):
    pages = {path: Page(path.read_text()) for path in output.rglob("*.html")}
    for path, page in pages.items():
        place = path.relative_to(output)
        for link in page.links:
            url = urllib.parse.urlsplit(link)
            if url.scheme or url.netloc:
                if link in page.fetched and url.scheme != "data":
                    yield f"{place}: {link}: it is fetched from another host"
                continue
            target = (path.parent / urllib.parse.unquote(url.path)).resolve() if url.path else path
            anchor = urllib.parse.unquote(url.fragment)
            if not target.is_file():
                yield f"{place}: {link}: there is no such page or picture"
            elif anchor and target in pages and anchor not in pages[target].anchors:
                yield f"{place}: {link}: there is no such anchor"
    for style in output.rglob("*.css"):
        for found in STYLE.finditer(style.read_text()):
            path = found["path"]
            if path.startswith("/") or not (style.parent / path).is_file():
                yield f"{style.relative_to(output)}: {path}: there is no such file"


def slugs(text):
    """The anchors that a repository's view gives the headings of a document."""
    titles = re.findall(r"^#+ (.*)$", re.sub(r"^```.*?^```", "", text, flags=re.M | re.S), re.M)
    return {re.sub(r"[^\w\- ]", "", title.lower()).replace(" ", "-") for title in titles}


def check_tree(root):
    for document in [root / "README.md", root / "CHANGELOG.md", *(root / "docs").glob("*.md")]:
        for path, anchor in re.findall(r"\]\(([^)#:\s]*)(?:#([^)\s]*))?\)", document.read_text()):
            target = (document.parent / path).resolve() if path else document
            place = f"{document.relative_to(root)}: {path}"
            if not target.exists():
                yield f"{place}: there is no such file"
            elif anchor and anchor not in slugs(target.read_text()):
                yield f"{place}#{anchor}: there is no such heading"


def check(root, output):
    """What is wrong."""
    return sorted({*check_site(output), *check_tree(root)})
