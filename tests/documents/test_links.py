"""Every link and picture of the documents leads somewhere, on a Git page and among the pages."""

import re
import unittest
from xml.etree import ElementTree

from documents import Document, all_documents
from sources import PROJECT

SVG = "{http://www.w3.org/2000/svg}"


class Links(unittest.TestCase):
    def test_lead_somewhere(self):
        checked = 0
        for document in all_documents():
            for link in document.links():
                if re.match(r"[a-z]+:", link):
                    continue
                with self.subTest(document=document.name, link=link):
                    self.check(document, link)
                    checked += 1
        self.assertGreater(checked, 100)

    def check(self, document, link):
        path, _, anchor = link.partition("#")
        target = (document.path.parent / path).resolve() if path else document.path
        self.assertTrue(target.exists(), f"{link} does not exist")
        self.assertTrue(target.is_relative_to(PROJECT), f"{link} leads out of the project")
        if anchor and target.suffix == ".md":
            self.assertIn(anchor, Document(target).anchors())

    def test_every_picture_is_shown(self):
        texts = "".join(document.text for document in all_documents())
        for picture in (PROJECT / "docs/pictures").iterdir():
            self.assertIn(f"pictures/{picture.name}", texts)

    def test_every_photograph_is_small_and_lets_no_page_shine_through(self):
        for picture in (PROJECT / "docs/pictures").glob("*.png"):
            content = picture.read_bytes()
            colour_type, with_alpha = content[25], (4, 6)
            with self.subTest(picture=picture.name):
                self.assertLess(len(content), 150_000)
                self.assertNotIn(colour_type, with_alpha)

    def test_every_drawing_reads_on_light_and_dark_pages(self):
        """It has a panel of its own over its whole size, and a title for those who do not see it."""
        for picture in (PROJECT / "docs/pictures").glob("*.svg"):
            root = ElementTree.parse(picture).getroot()
            panel = root.find(f"{SVG}rect")
            with self.subTest(picture=picture.name):
                self.assertTrue(root.find(f"{SVG}title").text)
                self.assertGreaterEqual(int(panel.get("width")), int(root.get("width")) - 2)
                self.assertGreaterEqual(int(panel.get("height")), int(root.get("height")) - 2)


if __name__ == "__main__":
    unittest.main()
