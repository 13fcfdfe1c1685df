"""The schemas of `tessel schema` and the rules of `tessel validate` say alike what a schema can say.

Usage: schema_agreement.py TOOL [--seed N] [--documents N]

Which rules are wholly in the schemas, and which in part, stands in docs/tool.md: it is held to it. Looked at
are the examples, the corpus of broken descriptions, and as many documents again and again changed at random.
"""

import argparse
import copy
import json
import pathlib
import random
import re
import subprocess
import sys
import tempfile

import jsonschema

PROJECT = pathlib.Path(__file__).resolve().parents[2]
KINDS = ("process", "config")
# Values of all kinds, at the borders of types and sizes.
VALUES = [
    None, True, False, 0, 1, -1, 2, 4, 8, 127, 128, -129, 255, 256, 65536, 1.5, 1e39, 1e300,
    3000000000, -3000000000, 5000000000, "", "x", "12", "-3", "true", "bit", "double", "string",
    "selector", "array", "treenode", "int64", "uint8", [], {}, [[1]], [1], [[1], [2]], [[1], 2],
    ["a", "a"], ["a", "b"], [[], [{}]], [[], [{"type": "double", "value": 1}]], [[], {}],
    {"a": {"type": "double"}}, {"a/b": {"type": "int8", "value": 1}}, {"": {"type": "int8"}},
    {"a#1,2": {"type": "int8", "value": 1}}, {"a": {"type": "treenode"}},
]  # fmt: skip
AT_ONCE = 200


def rules_of_documents():
    """The rules that are wholly in the schemas, and those that are in part."""
    text = (PROJECT / "docs/tool.md").read_text(encoding="utf-8")
    section = text.split("## tessel schema\n")[1].split("\n## ")[0]
    whole, part = re.search(r"these rules: (.*?)\. In part: (.*?)\.", section, re.S).groups()
    return tuple(set(re.findall(r"`([a-z-]+)`", names)) for names in (whole, part))


def kind_of(path):
    return next((kind for kind in KINDS if path.name.endswith(f".{kind}.json")), None)


def described(path):
    try:
        return json.loads(path.read_text(encoding="utf-8-sig"))
    except ValueError:
        return None


def documents_of_project():
    folders = (PROJECT / "examples", PROJECT / "tests/Validation/corpus")
    paths = (path for folder in folders for path in sorted(folder.rglob("*.json")))
    found = [(kind_of(path), described(path)) for path in paths if kind_of(path)]
    return [(kind, document) for kind, document in found if isinstance(document, dict)]


def keys_of(value):
    if isinstance(value, dict):
        for key, below in value.items():
            yield key
            yield from keys_of(below)
    elif isinstance(value, list):
        for below in value:
            yield from keys_of(below)


def places_of(value):
    if isinstance(value, (dict, list)):
        if value:
            yield value
        for below in value.values() if isinstance(value, dict) else value:
            yield from places_of(below)


class Changes:
    """Random changes of documents."""

    def __init__(self, seed, documents):
        self.random = random.Random(seed)
        self.documents = documents
        self.keys = sorted({key for _, document in documents for key in keys_of(document)})

    def value(self):
        return copy.deepcopy(self.random.choice(VALUES))

    def change_list(self, place):
        index = self.random.randrange(len(place))
        change = self.random.randrange(3)
        if change == 0:
            del place[index]
        elif change == 1:
            place.append(self.value())
        else:
            place[index] = self.value()

    def change_object(self, place):
        key = self.random.choice(list(place))
        change = self.random.randrange(4)
        if change == 0:
            del place[key]
        elif change == 1:
            place[self.random.choice(self.keys)] = self.value()
        elif change == 2:
            place[self.random.choice(self.keys)] = place.pop(key)
        else:
            place[key] = self.value()

    def document(self):
        kind, document = copy.deepcopy(self.random.choice(self.documents))
        for _ in range(self.random.choice((1, 1, 1, 2, 3))):
            places = list(places_of(document))
            if places:
                place = self.random.choice(places)
                (self.change_object if isinstance(place, dict) else self.change_list)(place)
        return kind, document


def problems_of(tool, documents, folder):
    """What the tool finds, a list for each document."""
    paths = [folder / f"{number}.{kind}.json" for number, (kind, _) in enumerate(documents)]
    for path, (_, document) in zip(paths, documents):
        path.write_text(json.dumps(document), encoding="utf-8")
    found = {str(path): [] for path in paths}
    for first in range(0, len(paths), AT_ONCE):
        command = [tool, "validate", "--json", *map(str, paths[first : first + AT_ONCE])]
        result = subprocess.run(command, capture_output=True, text=True, check=False)
        if result.returncode not in (0, 1):
            sys.exit(f"{command[:3]} ended with {result.returncode}: {result.stderr}")
        for problem in json.loads(result.stdout):
            found[problem["file"]].append(problem)
    return list(found.values())


def validator_of(tool, kind):
    text = subprocess.run([tool, "schema", kind], capture_output=True, text=True, check=True).stdout
    schema = json.loads(text)
    jsonschema.Draft202012Validator.check_schema(schema)
    return jsonschema.Draft202012Validator(schema)


def folder_files(tool):
    """Of folder.json, which no random change needs."""
    validator = validator_of(tool, "folder")
    wellformed = [{}, {"labelTextId": "a", "cpveVersion": "1", "configurationVersion": "2"}]
    refused = [[], 1, {"labelTextId": 1}, {"cpveVersion": None}, {"labeltextId": "a"}]
    wrong = [value for value in wellformed if not validator.is_valid(value)]
    wrong += [value for value in refused if validator.is_valid(value)]
    return [f"folder.json: {json.dumps(value)}" for value in wrong]


def disagreements(tool, documents, folder):
    whole, part = rules_of_documents()
    validators = {kind: validator_of(tool, kind) for kind in KINDS}
    judged = {True: 0, False: 0}
    seen = set()
    wrong = []
    for (kind, document), problems in zip(documents, problems_of(tool, documents, folder)):
        rules = {problem["rule"] for problem in problems}
        seen |= rules
        if "not-json" in rules or (rules & part and not rules & whole):
            continue
        errors = [error.json_path + ": " + error.message for error in validators[kind].iter_errors(document)]
        judged[bool(errors)] += 1
        if bool(errors) != bool(rules & whole):
            wrong.append(f"{kind}: {json.dumps(document)}\n  validate: {sorted(rules)}\n  schema: {errors[:3]}")
    unseen = whole - seen
    if unseen:
        wrong.append(f"rules that no document broke: {sorted(unseen)}")
    return wrong, judged


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("tool")
    parser.add_argument("--seed", type=int, default=random.randrange(1 << 30))
    parser.add_argument("--documents", type=int, default=600)
    options = parser.parse_args()
    documents = documents_of_project()
    changes = Changes(options.seed, documents)
    documents += [changes.document() for _ in range(options.documents)]
    documents += [(kind, []) for kind in KINDS]
    with tempfile.TemporaryDirectory() as folder:
        wrong, judged = disagreements(options.tool, documents, pathlib.Path(folder))
    wrong += folder_files(options.tool)
    print(f"seed {options.seed}: {judged[True]} documents refused, {judged[False]} accepted by both")
    print("\n".join(wrong[:10]))
    sys.exit(1 if wrong else 0)


if __name__ == "__main__":
    main()
