"""What is measured: of each case the inputs, and the programs that get them."""

import dataclasses
import os
import pathlib
import typing

import inputs

TOOL = os.environ["TESSEL_TOOL"]
SIZES = os.environ["TESSEL_SIZES"]

LEAVES_PER_FILE = 10


@dataclasses.dataclass
class Program:
    """`name` None: a part of tests/sizes, which tells of its steps. `live`: what keeps the region meanwhile, a program
    that says a line when it is there and ends with its input."""

    name: typing.Optional[str]
    command: list
    live: typing.Optional[list] = None
    codes: tuple = (0,)
    has_many_words: bool = False


@dataclasses.dataclass
class Case:
    name: str
    what: str
    size: int
    make: typing.Callable[[pathlib.Path, int, str], list]
    smallest: int = 10


def part(name, *words):
    return Program(None, [SIZES, name, *words])


def tool(*words, live=None, name=None, codes=(0,)):
    said = [word for word in map(str, words) if "/" not in word or word.startswith("group")]
    return Program(name or "tessel " + " ".join(said), [TOOL, *words], live, codes)


def held(path):
    return [TOOL, "hold", path]


def process_leaves(folder, count, key):
    file = folder / "plant.process.json"
    inputs.process_file(file, key, count)
    live = held(file)
    return [part("region", file), tool("info", "--json", file), tool("validate", file), tool("layout", file),
            tool("diff", file, file), tool("get", "-t", file, live=live),
            tool("get", file, "group0/leaf0", live=live), tool("snapshot", file, "-o", folder / "snapshot", live=live),
            tool("explain", file, "group0/leaf0", live=live)]


def configuration_leaves(folder, count, _key):
    file = folder / "plant.config.json"
    inputs.configuration_file(file, count)
    return [part("tree", file), tool("config", "show", file), tool("config", "get", file, "group0/leaf0"),
            tool("config", "set", file, "group0/leaf0", "-1", name="tessel config set"), tool("validate", file)]


def one_node(folder, count, key):
    process = folder / "wide.process.json"
    configuration = folder / "wide.config.json"
    inputs.process_file(process, key, count, count)
    inputs.configuration_file(configuration, count, count)
    return [part("tree", configuration), part("region", process), tool("validate", process), tool("layout", process)]


def depth_of_nodes(folder, depth, _key):
    file = folder / "deep.config.json"
    inputs.nested_file(file, depth)
    return [part("tree", file), tool("validate", file), tool("config", "show", file)]


def depth_of_folders(folder, depth, _key):
    below = depth // 2
    inputs.nested_folders(folder / "deep", depth - below, below)
    return [part("tree", folder / "deep"), tool("validate", folder / "deep"), tool("config", "show", folder / "deep")]


def text(folder, size, _key):
    file = folder / "text.config.json"
    inputs.text_file(file, size)
    return [part("text", file), tool("config", "get", file, "text"), tool("validate", file)]


def slot_text(folder, size, key):
    file = folder / "text.process.json"
    inputs.slot_file(file, key, size)
    return [part("slotText", file), tool("get", "-t", file, live=held(file))]


def table(folder, rows, _key):
    file = folder / "table.config.json"
    inputs.table_file(file, rows)
    return [part("table", file), tool("config", "table", file, "table"), tool("validate", file)]


def process_files(folder, count, key):
    device = folder / "device"
    inputs.process_folder(device, count, LEAVES_PER_FILE)
    tool_device = folder / "another"
    inputs.process_folder(tool_device, count, LEAVES_PER_FILE)
    return [part("build", device, key), part("region", device, key),
            tool("build", tool_device, "--prefix", key, name="tessel build"),
            tool("info", "--json", device), tool("validate", device), tool("layout", device),
            tool("get", "-t", device, live=held(device))]


def configuration_files(folder, count, _key):
    device = folder / "device"
    inputs.configuration_folder(device, count, LEAVES_PER_FILE)
    return [part("tree", device), tool("config", "show", device), tool("validate", device),
            tool("config", "set", device, "module0/channel0/group0/leaf0", "-1", name="tessel config set")]


def urls(folder, count, key):
    """By name, and not by their node."""
    file = folder / "plant.process.json"
    inputs.process_file(file, key, count)
    asked = [f"group{position // inputs.PER_GROUP}/leaf{position % inputs.PER_GROUP}" for position in range(count)]
    live = held(file)
    return [part("region", file), tool("get", "-t", file, "**", live=live, name="tessel get '**'"),
            Program("tessel get URL...", [TOOL, "get", "-t", file, *asked], live, has_many_words=True)]


def processes(folder, count, key):
    file = folder / "plant.process.json"
    inputs.process_file(file, key, 1000)
    live = [SIZES, "hold", count, file]
    return [part("processes", file, count), tool("regions", "--json", live=live),
            tool("doctor", live=live, codes=(0, 1)), tool("get", file, "group0/leaf0", live=live)]


def regions(folder, count, key):
    files = [folder / f"plant{number}.process.json" for number in range(count)]
    for number, file in enumerate(files):
        inputs.process_file(file, f"{key}{number}r", 100)
    live = [SIZES, "hold", 1, *files]
    return [part("regions", count, *files), tool("regions", "--json", live=live),
            tool("doctor", live=live, codes=(0, 1)), tool("get", files[0], "group0/leaf0", live=live)]


CASES = [
    Case("leaf", "one leaf of a process description", 1, process_leaves, 1),
    Case("process", "leaves of a process description, one file", 1_000_000, process_leaves, 1),
    Case("configuration", "leaves of a configuration, one file", 1_000_000, configuration_leaves, 1),
    Case("node", "leaves below one node", 100_000, one_node),
    Case("depth", "nodes below each other, one file", 500, depth_of_nodes),
    Case("folders", "nodes below each other, half of them folders", 1000, depth_of_folders),
    Case("text", "characters in a text of a configuration", 100_000_000, text),
    Case("slot", "characters in a text of a region", 100_000_000, slot_text),
    Case("table", "rows of a table", 100_000, table),
    Case("urls", "URLs, asked for one by one", 100_000, urls),
    Case("build", "files of process descriptions", 2000, process_files),
    Case("files", "files of configurations", 2000, configuration_files),
    Case("processes", "processes that follow one region", 500, processes),
    Case("regions", "regions in one process", 200, regions),
]


def planted(_folder, count, _key):
    return [part("planted", count)]


PLANTED = Case("planted", "a fault", 100_000, planted)
