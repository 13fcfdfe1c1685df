"""The files of the page: all compiled in, nothing from elsewhere, and what is not ours as its makers have left it."""

import hashlib
import pathlib
import re
import unittest
import xml.etree.ElementTree

HERE = pathlib.Path(__file__).parent
PAGE = HERE.parent.parent.parent / "exits" / "web" / "page"
OWN = [file for file in PAGE.iterdir() if file.suffix in (".html", ".css", ".js", ".svg")]


class PageFiles(unittest.TestCase):
    def test_what_is_not_ours_is_as_it_was_published(self):
        for folder in [PAGE / "uplot", HERE / "axe"]:
            lines = (folder / "SHA256SUMS").read_text(encoding="ascii").splitlines()
            sums = {name: digest for digest, name in (line.split(maxsplit=1) for line in lines)}
            others = {"SHA256SUMS"}
            self.assertEqual(set(sums), {file.name for file in folder.iterdir()} - others)
            for name, digest in sums.items():
                self.assertEqual(hashlib.sha256((folder / name).read_bytes()).hexdigest(), digest, folder / name)

    def test_every_file_is_compiled_in_under_its_name(self):
        listed = xml.etree.ElementTree.parse(PAGE / "page.qrc").findall(".//file")
        names = {entry.get("alias") or entry.text for entry in listed}

        self.assertEqual(names, {file.name for file in OWN} | {"uPlot.esm.js", "uPlot.min.css"})
        for entry in listed:
            self.assertTrue((PAGE / entry.text).is_file(), entry.text)

    def test_nothing_is_loaded_from_elsewhere(self):
        self.assertGreater(len(OWN), 20)
        for file in OWN:
            text = file.read_text(encoding="utf-8").replace("http://www.w3.org/2000/svg", "")
            self.assertIsNone(re.search(r"https?:|url\(|@import|//\w+\.\w+/", text), file)

    def test_no_text_is_read_as_html_or_as_script(self):
        forbidden = r"innerHTML|outerHTML|insertAdjacentHTML|document\.write|DOMParser|\beval\b|new Function|srcdoc"
        for file in OWN:
            self.assertIsNone(re.search(forbidden, file.read_text(encoding="utf-8")), file)

    def test_every_module_that_is_imported_is_there(self):
        names = {file.name for file in OWN} | {"uPlot.esm.js"}
        for file in PAGE.glob("*.js"):
            for name in re.findall(r"from '\./([^']+)'", file.read_text(encoding="utf-8")):
                self.assertIn(name, names, file)


if __name__ == "__main__":
    unittest.main()
