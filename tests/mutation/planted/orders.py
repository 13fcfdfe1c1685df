"""Fails where the memory orders of src/ are others than docs/orders.txt has."""

import pathlib
import re
import sys

texts = [path.read_text(encoding="utf-8") for path in sorted(pathlib.Path("src").rglob("*.cpp"))]
sys.exit(re.findall(r"memory_order_\w+", "".join(texts)) != pathlib.Path("docs/orders.txt").read_text(encoding="utf-8").split())
