"""The inputs of script/sizes, written as fast as a file can be: no document of a million leaves is held."""

import os
import pathlib

SLOT = 12
PER_GROUP = 100


def process_root(key, size, is_double=True):
    return (f'{{"type":"treenode","keyProcessDataMemory":"{key}","doubleBuffer":{str(is_double).lower()},'
            f'"sizeOfSharedMemory":{size},"displayPosition":0,"value":{{')


def process_leaf(position):
    return (f'{{"type":"double","offsetSharedMemory":{position * SLOT},"sizeValue":8,"relativeOffsetMetadata":8,'
            f'"sizeMetadata":4,"displayPosition":{position},"unit":"bar","readOnly":false}}')


def configuration_leaf(position):
    return f'{{"type":"int32","value":{position},"displayPosition":{position},"unit":"bar"}}'


def write_leaves(file, count, leaf, per_group=PER_GROUP):
    """`count` leaves in nodes of `per_group` each, so that the depth is the same whatever the count."""
    for begin in range(0, count, per_group):
        end = min(begin + per_group, count)
        separator = "," if begin else ""
        children = ",".join(f'"leaf{position - begin}":{leaf(position)}' for position in range(begin, end))
        file.write(f'{separator}"group{begin // per_group}":{{"type":"treenode",'
                   f'"displayPosition":{begin // per_group},"value":{{{children}}}}}')


def process_file(path, key, count, per_group=PER_GROUP):
    with open(path, "w", encoding="ascii") as file:
        file.write(process_root(key, count * SLOT))
        write_leaves(file, count, process_leaf, per_group)
        file.write("}}")


def configuration_file(path, count, per_group=PER_GROUP):
    with open(path, "w", encoding="ascii") as file:
        file.write('{"type":"treenode","value":{')
        write_leaves(file, count, configuration_leaf, per_group)
        file.write("}}")


def nested_file(path, depth):
    """A leaf under so many nodes, the root among them."""
    node = '{"type":"treenode","displayPosition":0,"value":{"n":'
    path.write_text(node * depth + configuration_leaf(0) + "}}" * depth, encoding="ascii")


def nested_folders(path, depth, below):
    """A file of `below` nodes under so many folders: a path that long has to be walked from folder to folder."""
    path.mkdir()
    home = os.open(".", os.O_RDONLY)
    try:
        os.chdir(path)
        for _ in range(depth):
            os.mkdir("n")
            os.chdir("n")
        nested_file(pathlib.Path("n.config.json"), below)
    finally:
        os.chdir(home)
        os.close(home)


def text_file(path, size):
    with open(path, "w", encoding="ascii") as file:
        file.write('{"type":"treenode","value":{"text":{"type":"string","displayPosition":0,"value":"')
        file.write("x" * size)
        file.write('"}}}')


def slot_file(path, key, size):
    """A slot for a text of so many characters, each of two bytes, and the zero behind it."""
    room = 2 * (size + 1)
    path.write_text(process_root(key, room + 4) + f'"text":{{"type":"string","offsetSharedMemory":0,"sizeValue":{room},'
                    f'"relativeOffsetMetadata":{room},"sizeMetadata":4,"displayPosition":0,"readOnly":false}}}}}}',
                    encoding="ascii")


def table_file(path, rows):
    with open(path, "w", encoding="ascii") as file:
        file.write('{"type":"treenode","value":{"table":{"type":"array","displayPosition":0,'
                   f'"arrayHasDynamicRows":true,"arrayMinRows":1,"arrayMaxRows":{4 * rows},'
                   '"arrayInformation":[[],[{"type":"int32","value":0},{"type":"double","value":0.5}]],"value":[')
        file.write(",".join(f"[{row},{row}.5]" for row in range(rows)))
        file.write("]}}}")


def process_folder(path, files, leaves):
    """Ten files to a folder, which no build has laid out."""
    for number in range(files):
        folder = path / f"module{number // 10}"
        folder.mkdir(parents=True, exist_ok=True)
        with open(folder / f"channel{number}.process.json", "w", encoding="ascii") as file:
            file.write(process_root("", 0))
            file.write(",".join(f'"leaf{position}":{process_leaf(position)}' for position in range(leaves)))
            file.write("}}")


def configuration_folder(path, files, leaves):
    for number in range(files):
        folder = path / f"module{number // 10}"
        folder.mkdir(parents=True, exist_ok=True)
        configuration_file(folder / f"channel{number}.config.json", leaves)
