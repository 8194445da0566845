# The settings of the documentation's site, which script/docs builds.
import pathlib
import re

ROOT = next(folder for folder in pathlib.Path(__file__).resolve().parents
            if (folder / "CMakePresets.json").exists())

project = "tavo"
version = re.search(r'define TAVO_VERSION "(.*)"', (ROOT / "src/tavo_version.h").read_text())[1]
html_title = f"tavo {version}"
html_theme = "furo"
html_static_path = ["_static"]
html_css_files = ["site.css"]
html_show_sphinx = False
html_show_copyright = False
html_copy_source = False

extensions = ["myst_parser", "breathe"]
exclude_patterns = ["readme.md"]  # A part of the first page.
myst_heading_anchors = 4
highlight_language = "none"
primary_domain = "cpp"

breathe_projects = {"tavo": str(ROOT / "build/docs/xml")}
breathe_default_project = "tavo"
breathe_show_include = False
breathe_domain_by_extension = {"h": "cpp"}
