"""Opening regions, and what is read from them."""

import math
import subprocess
import sys
from pathlib import Path

import pytest

import tessel
from tessel import State, Value


def test_a_new_region_has_no_values_yet(plant):
    with tessel.create(plant) as region:
        assert region.urls == ("pump/speed", "pump/running", "count", "total", "small", "level", "name", "serial")
        assert region.generation == 1
        assert set(region.read().values()) == {
            Value(None, State.NO_VALID_INPUT_VALUE, unit) for unit in ("", "m", "1/s")}


def test_values_come_in_the_types_of_their_leaves(plant):
    given = {"pump/speed": 12.5, "pump/running": True, "count": -(2**53) - 1, "total": 2**64 - 1, "small": -128,
             "level": 0.5, "name": "grün", "serial": 65535}
    with tessel.create(plant) as region:
        region.publish(given)
        read = {url: value.value for url, value in region.read().items()}
    assert read == given
    assert [type(value) for value in read.values()] == [float, bool, int, int, int, float, str, int]


@pytest.mark.parametrize("number", [2**53 + 1, -(2**53) - 1, 2**63 - 1, -(2**63)])
def test_integers_are_exact(plant, number):
    with tessel.create(plant) as region:
        region.publish({"count": number})
        assert region["count"].value == number
        assert region.read()["count"].value == number
        assert region.read().records()["value"][2] == number


def test_an_attached_process_reads_what_the_tool_writes(plant, tool):
    with tessel.create(plant) as owner, tessel.attach(plant) as region:
        assert tool("set", plant, "pump/speed", "17.25").returncode == 0
        assert region["pump/speed"] == owner["pump/speed"] == Value(17.25, State.VALID, "1/s")
        assert tool("set", plant, "level", "--error", "sensor-breakage").returncode == 0
        assert region["level"] == Value(None, State.SENSOR_BREAKAGE, "m")


def test_urls_choose_leaves_and_nodes(plant):
    with tessel.create(plant) as region:
        assert region.read(["level", "pump"]).urls == ("level", "pump/speed", "pump/running")
        assert region.read("count").urls == ("count",)
        assert region.read("/pump//speed/").urls == ("pump/speed",)
        assert region.read([]).urls == ()
        assert region.read(["pump/speed", "pump"]).urls == ("pump/speed", "pump/running")
        assert "pump/speed" in region and "pump" not in region and 3 not in region


def test_a_set_is_a_mapping_of_one_generation(plant):
    with tessel.create(plant) as region:
        region.publish({"count": 1})
        former = region.read()
        region.publish({"count": 2})
        assert (former["count"].value, region.read()["count"].value) == (1, 2)
        assert (former.generation, region.read().generation) == (2, 3)
        assert len(former) == 8 and list(former)[0] == "pump/speed" and former["/count"] == former["count"]
        assert former.as_dict() == dict(former)
        with pytest.raises(KeyError, match="'cuont' is not in this set"):
            former["cuont"]
        assert repr(former) == "<tessel.Set of 8 values, generation 2>"


def test_a_set_outlives_its_region(plant):
    with tessel.create(plant) as region:
        region.publish({"count": 2**53 + 1, "name": "still"})
        kept = region.read()
        before = dict(kept)
    assert dict(kept) == before and kept.as_dict() == before
    assert kept["count"].value == 2**53 + 1
    assert kept.values_array()[2] == 2.0**53


def test_arrays_have_nan_where_nothing_is_valid(plant):
    with tessel.create(plant) as region:
        region.publish({"pump/speed": 1.5, "pump/running": True, "count": 7, "name": "text",
                        "level": State.TIMEOUT})
        taken = region.read(["pump", "count", "name", "level", "total"])
        numbers = taken.values_array()
        assert numbers.dtype == "float64"
        assert list(numbers[:3]) == [1.5, 1.0, 7.0] and all(math.isnan(number) for number in numbers[3:])
        assert list(taken.states_array()) == [0, 0, 0, 0, 9, 3]
        records = taken.records()
        assert records.dtype.names == ("url", "value", "number", "state", "unit")
        assert list(records["url"]) == list(taken.urls)
        assert list(records["value"]) == [1.5, True, 7, "text", None, None]
        assert list(records["unit"]) == ["1/s", "", "", "", "m", ""]


def test_an_array_of_nothing(plant):
    with tessel.create(plant) as region:
        assert len(region.read([]).values_array()) == 0 and len(region.read([]).records()) == 0


def test_numpy_is_imported_by_the_arrays_alone(plant):
    code = """
import sys
sys.modules["numpy"] = None
import tessel
with tessel.create(sys.argv[1]) as region:
    region.publish({"count": 3})
    assert region.read()["count"].value == 3
    try:
        region.read().values_array()
    except ImportError:
        print("no array")
"""
    done = subprocess.run([sys.executable, "-c", code, plant], capture_output=True, text=True, timeout=120)
    assert (done.stdout, done.stderr) == ("no array\n", "")


def test_a_description_is_told(plant):
    with tessel.create(plant) as region:
        assert region.describe("pump/speed") == tessel.Description(
            "pump/speed", "double", "1/s", "speed", 0.0, 50.0, None, None, False, ())
        assert region.describe("serial").read_only
        with pytest.raises(tessel.UnknownUrlError, match=r"no process value at 'pump/sped'; did you mean 'pump/speed'"):
            region.describe("pump/sped")


def test_a_single_buffer_is_read_but_nobody_waits_for_it(write_description):
    path = write_description({"value": ("double", {})}, double_buffer=False)
    with tessel.create(path) as region:
        region.publish({"value": 4.5})
        assert region["value"].value == 4.5 and region.generation == 0 and region.read().generation == 0
        for ask in (region.wait, region.fileno, region.watch):
            with pytest.raises(tessel.UseError, match="single buffer"):
                ask()


def test_a_leaf_without_a_usable_slot_is_left_out(write_description, caplog):
    path = write_description({"good": ("double", {}), "bad": ("double", {"sizeValue": 3})})
    with tessel.create(path) as region:
        assert region.urls == ("good",) and list(region.read()) == ["good"]
        assert any("No usable slot, left out:" in record.message for record in caplog.records)
        for ask in (lambda: region["bad"], lambda: region.read("bad"), lambda: region.publish({"bad": 1.0})):
            with pytest.raises(tessel.FileError, match="'bad' has no usable slot"):
                ask()


def test_a_folder_is_laid_out_and_gets_the_prefix(tmp_path, write_description):
    folder = tmp_path / "device"
    folder.mkdir()
    for name in ("first", "second"):
        write_description({"value": ("int32", {"relativeOffsetMetadata": 4})}, name=f"device/{name}", key="other")
    from conftest import OWN_KEYS

    with tessel.create(folder, prefix=OWN_KEYS) as region:
        assert region.key.startswith(OWN_KEYS)
        assert sorted(region.urls) == ["first/value", "second/value"]
        region.publish({"first/value": 1, "second/value": 2})
        with tessel.attach(folder) as attached:
            assert [attached[url].value for url in sorted(attached.urls)] == [1, 2]


def test_a_prefix_goes_with_a_folder(plant):
    with pytest.raises(tessel.UseError, match="a prefix goes with a folder, a file has its key"):
        tessel.create(plant, prefix="mine")


def test_what_cannot_be_opened_says_why(plant, tmp_path, write_description):
    with pytest.raises(FileNotFoundError, match="no such file or folder") as caught:
        tessel.attach(tmp_path / "none.process.json")
    assert caught.type is tessel.MissingError and caught.value.exit_code == 3
    with pytest.raises(tessel.MissingError, match="start the process that creates it"):
        tessel.attach(plant)
    broken = tmp_path / "broken.process.json"
    broken.write_text("{")
    with pytest.raises(OSError, match="cannot be parsed") as caught:
        tessel.attach(broken)
    assert caught.type is tessel.FileError and caught.value.exit_code == 9
    for name, text in (("x.json", "{}"), ("x.process.json", '{"type": "treenode", "value": {}}')):
        (tmp_path / name).write_text(text)
        with pytest.raises(tessel.FileError):
            tessel.attach(tmp_path / name)
    with tessel.create(plant):
        text = plant.read_text()
        plant.write_text(text.replace('"sizeOfSharedMemory": 256', '"sizeOfSharedMemory": 512'))
        with pytest.raises(tessel.LayoutMismatchError, match="its creator uses another description") as caught:
            tessel.attach(plant)
        assert caught.value.exit_code == 8
        plant.write_text(text.replace('"offsetSharedMemory": 160', '"offsetSharedMemory": 164'))
        with pytest.raises(tessel.LayoutMismatchError, match="has another layout, from 'level' on"):
            tessel.attach(plant)


@pytest.mark.parametrize("opening", [tessel.attach, tessel.create, tessel.Config])
def test_paths_of_any_kind(opening, tmp_path):
    missing = str(tmp_path / "none.process.json")
    for path in (missing, missing.encode(), Path(missing)):
        with pytest.raises(tessel.MissingError, match="none.process.json: no such"):
            opening(path)
    # A zero character is part of the name, and of what is said of it.
    with pytest.raises(tessel.MissingError) as caught:
        opening("plant\0.process.json")
    assert str(caught.value).startswith("plant\0.process.json: no such ")


def test_a_closed_region_says_so(plant):
    region = tessel.create(plant)
    attached = tessel.attach(plant)
    assert not attached.closed
    attached.close()
    attached.close()
    assert attached.closed
    for ask in (attached.read, attached.wait, attached.fileno, attached.watch, lambda: attached["count"],
                lambda: attached.publish({"count": 1}), lambda: attached.generation):
        with pytest.raises(tessel.ClosedError, match="was closed; attach again"):
            ask()
    region.close()
    with pytest.raises(tessel.MissingError):
        tessel.attach(plant)


def access_of_mappings(key):
    """How this process has mapped the region of a key, such as `rw-s`."""
    with open("/proc/self/maps") as maps:
        return {line.split()[1] for line in maps if f"/dev/shm/{key}SharedMemory" in line}


def test_a_region_is_attached_for_reading_alone(plant, other):
    creator = other("""
        import sys, tessel
        with tessel.create(sys.argv[1]) as region:
            region.publish({"count": 2**53 + 1})
            print("created", flush=True)
            for line in sys.stdin:
                region.publish({"count": int(line)})
        """, plant)
    assert creator.line() == "created"
    with tessel.attach(plant) as region:
        assert access_of_mappings(region.key) == {"rw-s"}
    with tessel.attach(plant, read_only=True) as region:
        assert access_of_mappings(region.key) == {"r--s"}
        assert region["count"].value == 2**53 + 1
        seen = region.generation
        creator.tell("7")
        assert region.wait(seen, timeout=120) == seen + 1 and region["count"].value == 7
        assert next(region.watch("count"))["count"].value == 7
        told = "attached for reading alone; attach without read_only to write"
        with region.write() as values:
            with pytest.raises(PermissionError, match=told) as caught:
                values["count"] = 8
        assert caught.value.exit_code == 4
        for writes in ({"count": 8}, {}):
            with pytest.raises(tessel.AccessError, match=told):
                region.publish(writes)
        assert region["count"].value == 7
    creator.process.stdin.close()
    creator.process.stdin = None
    assert creator.end() == (0, "", "")
