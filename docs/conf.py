"""How script/docs makes the pages out of the Markdown in this folder and the comments of src/."""

import os
import pathlib
import re

from pygments.lexers.c_cpp import CLexer
from sphinx.errors import ExtensionError

PROJECT = pathlib.Path(__file__).resolve().parent.parent

project = "Tessel"
author = "the Tessel developers"
version = release = re.search(
    r"project\(Tessel VERSION ([0-9.]+)", (PROJECT / "CMakeLists.txt").read_text(encoding="utf-8")
)[1]

extensions = ["myst_parser", "breathe"]
root_doc = "index"
exclude_patterns = ["_static"]

# Headings are link targets by the names that Git pages give them.
myst_heading_anchors = 4
# Lists of options and states, which only the manual pages have.
myst_enable_extensions = ["deflist"]

breathe_projects = {"Tessel": str(PROJECT / "build/docs/xml")}
breathe_default_project = "Tessel"
breathe_default_members = ("members",)
primary_domain = "cpp"
highlight_language = "none"

html_theme = "furo"
html_title = f"Tessel {release}"
html_static_path = ["_static"]
html_css_files = ["tessel.css"]
html_copy_source = False
html_show_sphinx = False
html_show_copyright = False
html_use_index = True


def _manual_page(file):
    """What the man builder wants to know of docs/man/NAME.SECTION.md."""
    name, section = file.stem.rsplit(".", 1)
    summary = re.search(rf"^{name} - (.*)$", file.read_text(encoding="utf-8"), re.M)[1]
    return (f"man/{file.stem}", name, summary, [], section)


man_pages = [_manual_page(file) for file in sorted((PROJECT / "docs/man").glob("*.[1-9].md"))]
man_show_urls = False
if tags.has("man"):  # noqa: F821, a name that Sphinx gives
    # Nothing but the manual pages is read, so that they need neither Doxygen nor the theme.
    root_doc = "man/index"
    include_patterns = ["man/*.md"]
    extensions = ["myst_parser"]
    html_theme = "basic"

_LINK = re.compile(r"(!?)\[([^\]]*)\]\(([^)\s]+)\)")
# Fenced blocks and code between backticks hold no links.
_CODE = re.compile(r"(^```.*?^```|`[^`\n]*`(?!\]))", re.S | re.M)


def _target_for_pages(folder, picture, label, target):
    """A link as the pages need it. On a Git page it leads into the tree, where folders and sources
    can be shown; among the pages there are only pages."""
    unchanged = f"{picture}[{label}]({target})"
    if picture or re.match(r"[a-z]+:|#", target):
        return unchanged
    path, _, anchor = target.partition("#")
    file = (folder / path).resolve()
    docs = PROJECT / "docs"
    if file.is_dir() and (file / "README.md").is_file() and docs in file.parents:
        return f"[{label}]({path.rstrip('/')}/README.md)"
    if file.is_file() and (docs in file.parents or file.suffix != ".md"):
        return unchanged
    if not file.exists():
        return unchanged  # which is then reported
    inside = file.relative_to(PROJECT)
    if inside.parts[0] == "examples" and len(inside.parts) > 1:
        return f"[{label}]({os.path.relpath(docs / 'examples.md', folder)}#{inside.parts[1]})"
    return label


def _leave_name_to_builder(application, document, source):
    """The man builder makes the section NAME by itself, out of what stands in man_pages."""
    if application.builder.format == "man":
        source[0] = re.sub(r"^## NAME\n.*?(?=^## )", "", source[0], flags=re.S | re.M)


def _leave_font_of_blocks(application, exception):
    """Blocks are indented; their typewriter font is one that not every man knows."""
    if exception or application.builder.format != "man":
        return
    for page in pathlib.Path(application.outdir).glob("*.[1-9]"):
        text = page.read_text(encoding="utf-8")
        text = re.sub(r"^\.ft [CP]\n", "", text, flags=re.M)
        page.write_text(re.sub(r"^(\.SH .*\n)\.sp\n", r"\1", text, flags=re.M), encoding="utf-8")


def _adapt_links(application, document, source):
    folder = (PROJECT / "docs" / document).parent
    pieces = _CODE.split(source[0])
    for index in range(0, len(pieces), 2):
        pieces[index] = _LINK.sub(
            lambda match: _target_for_pages(folder, *match.groups()), pieces[index]
        )
    source[0] = "".join(pieces)


_NORMALIZE = pathlib.Path("/usr/share/javascript/normalize.css/normalize.css")


def _make_self_contained(application, exception):
    """Debian's theme counts on a web server, for one file of its style and for modules of scripts.
    Here everything has to lie beside the pages, which are opened from the disk."""
    if exception or application.builder.format != "html":
        return
    static = pathlib.Path(application.outdir) / "_static"
    style = static / "styles/furo.css"
    text = style.read_text(encoding="utf-8")
    normalize = _NORMALIZE.read_text(encoding="utf-8")
    text = text.replace("@import url(/javascript/normalize.css/normalize.css);", normalize)
    style.write_text(text, encoding="utf-8")

    script = static / "scripts/furo.js"
    spy = (static / "scripts/gumshoe-patched.js").read_text(encoding="utf-8")
    code = script.read_text(encoding="utf-8")
    code = code.replace('import Gumshoe from "./gumshoe-patched.js";', spy)
    script.write_text(code, encoding="utf-8")

    foreign = re.compile(r"@import|url\([\"']?(?:/|https?:)|^import ", re.M)
    for path in (style, script):
        if foreign.search(path.read_text(encoding="utf-8")):
            raise ExtensionError(f"{path.name} needs something that is not beside the pages")


def setup(application):
    # The language of the models of protocols, near enough to C.
    application.add_lexer("promela", CLexer)
    application.connect("source-read", _leave_name_to_builder)
    application.connect("source-read", _adapt_links)
    application.connect("build-finished", _leave_font_of_blocks)
    application.connect("build-finished", _make_self_contained)
