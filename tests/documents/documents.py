"""What the documents say, for the tests that compare them with the sources."""

import re

from sources import PROJECT

_FENCE = re.compile(r"^(```+|~~~+)([^\n]*)\n(.*?)^\1[ \t]*$", re.S | re.M)
_LINK = re.compile(r"!?\[[^\]]*\]\(([^)\s]+)\)")


class Document:
    """A Markdown file of the project."""

    def __init__(self, path):
        self.path = path
        self.text = path.read_text(encoding="utf-8")
        self.name = str(path.relative_to(PROJECT))

    def blocks(self, language):
        """The contents of the fenced blocks in @p language."""
        return [
            content for _, word, content in _FENCE.findall(self.text) if word.strip() == language
        ]

    def prose(self):
        """The text without its fenced blocks."""
        return _FENCE.sub("", self.text)

    def links(self):
        prose = re.sub(r"`[^`\n]*`(?!\])", "", self.prose())
        return _LINK.findall(prose)

    def anchors(self):
        """The link targets that a Git page makes of the headings."""
        anchors = []
        for heading in re.findall(r"^#+ (.*)$", self.prose(), re.M):
            anchor = re.sub(r"[^\w\- ]", "", heading.strip().lower()).replace(" ", "-")
            repeated = anchors.count(anchor)
            anchors.append(f"{anchor}-{repeated}" if repeated else anchor)
        return anchors


def document(name):
    return Document(PROJECT / name)


def all_documents():
    paths = [PROJECT / name for name in ("README.md", "CONTRIBUTING.md", "CHANGELOG.md")]
    return [Document(path) for path in paths + sorted((PROJECT / "docs").rglob("*.md"))]
