#!/usr/bin/env python3
"""Compares docs/protocol/orders.txt with the atomic operations of the protocol that stand in src/.

The models of weak memory are worth what their steps have in common with the code. So the list names each
operation with its order and the step that stands for it; one that is gone, new, moved or of another order
fails here, and somebody has to look at the model.

With --print the operations as they are now, for the list.
"""

import difflib
import pathlib
import re
import sys

LIST = pathlib.Path("docs/protocol/orders.txt")

WORDS = r"swapCount|writeEpochs?|copiedEpoch|finishedCount|writerPid|word|wanted|armed|format|creatorPid|fingerprint"
# Calls and casts within the arguments.
ARGUMENTS = r"(?:[^()]|\((?:[^()]|\([^()]*\))*\))*"
OPERATION = re.compile(
    rf"\b(?P<word>{WORDS})\b(?:\[[^\]]*\])?\s*(?:\.|->)\s*"
    rf"(?P<call>load|store|exchange|compare_exchange_\w+|fetch_\w+)\s*\((?P<arguments>{ARGUMENTS})\)"
    r"|atomic_(?P<fence>thread|signal)_fence\(\s*std::memory_order_(?P<order>\w+)\s*\)"
    rf"|__atomic_(?P<value>\w+)_n\((?P<of_value>{ARGUMENTS})\)"
)
COMMENT = re.compile(r"//[^\n]*|/\*.*?\*/", re.DOTALL)


def operation(match):
    """The columns that the list shares with the code: what, how, and with which order."""
    if match["fence"]:
        return f"{match['fence']} | fence | {match['order']}"
    if match["value"]:
        orders = re.findall(r"__ATOMIC_(\w+)", match["of_value"])
        return f"value | {match['value']} | {' '.join(orders).lower()}"
    # Nothing said is the strongest.
    orders = re.findall(r"memory_order_(\w+)", match["arguments"]) or ["seq_cst"]
    return f"{match['word']} | {match['call']} | {' '.join(orders)}"


def in_code():
    files = sorted(path for path in pathlib.Path("src").rglob("*") if path.suffix in (".cpp", ".h"))
    for path in files:
        for match in OPERATION.finditer(COMMENT.sub("", path.read_text(encoding="utf-8"))):
            yield f"{path.relative_to('src')} | {operation(match)}"


def in_list():
    for line in LIST.read_text(encoding="utf-8").splitlines():
        if line and not line.startswith("#"):
            yield " | ".join(" ".join(column.split()) for column in line.split("|")[:4])


def main():
    if sys.argv[1:] == ["--print"]:
        print("\n".join(in_code()))
        return 0
    differences = list(difflib.unified_diff(list(in_list()), list(in_code()), str(LIST), "src", n=0, lineterm=""))
    if differences:
        print("\n".join(differences))
        print(
            "The atomic operations of the protocol are not those of the list any more. Look whether the models in"
            f" docs/protocol still have the same steps, and bring {LIST} up to date."
        )
    return 1 if differences else 0


sys.exit(main())
