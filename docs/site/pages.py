"""Adapts the documents of the tree to the site, where each is a page beside the others."""
import re

# A block of commands and what they print.
CONSOLE = re.compile(r"^```\n(?=\$ )", re.M)
# The name of a document as the text of a link; the site shows the title in its place.
NAME = re.compile(r"\[[\w/-]+\.md\](?=\()")
LINK = re.compile(r"\]\((?P<path>[^)#:\s]+)")
# The name of a header or an example in a text; the site links it.
FILE = re.compile(r"(?<!\[)`(?P<path>[\w/]+\.h|examples/\w+)`")
FENCE = re.compile(r"(^```.*?^```$)", re.M | re.S)
CONTENTS = re.compile(r"(?<=^```\{toctree\}\n).*?(?=^```$)", re.M | re.S)


def site_path(root, stage, target):
    """The page for a file of the tree, within the site; None when it has none."""
    if not target.exists() or not target.is_relative_to(root):
        return None
    name = target.relative_to(root).as_posix()
    pages = {"CHANGELOG.md": "changelog.md", "README.md": "index.md", "platform": "api.md",
             "examples": "examples.md"}
    candidates = [pages.get(name), name.removeprefix("docs/").removeprefix("site/"),
                  f"api/{name}.rst", f"{name}.md", f"{name.rpartition('/')[0]}.md"]
    return next((page for page in candidates if page and (stage / page).is_file()), None)


def adapt(root, stage, source):
    """The document `source` for the site; links to files of the tree lead to their pages."""

    def link(found):
        path = site_path(root, stage, (source.parent / found["path"]).resolve())
        return f"]({path or found['path']}"

    def file(found):
        path = site_path(root, stage, root / found["path"])
        return f"[{found[0]}]({path})" if path else found[0]

    def contents(found):
        """Without the pages that are not there (yet); Sphinx tells of pages that no list has."""
        lines = found[0].splitlines()
        known = [line for line in lines if not re.fullmatch(r"[\w/.-]+", line) or
                 any((stage / (line + suffix)).exists() for suffix in (".md", ".rst"))]
        return "".join(line + "\n" for line in known)

    text = NAME.sub("[]", CONSOLE.sub("```console\n", source.read_text()))
    parts = FENCE.split(LINK.sub(link, text))
    parts[::2] = [FILE.sub(file, part) for part in parts[::2]]
    return CONTENTS.sub(contents, "".join(parts))
