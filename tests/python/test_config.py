"""Configurations: values, tables, and the way back to the files."""

import json
import os
import shutil

import pytest

import tessel
from tessel import SetStatus


@pytest.fixture
def device(tmp_path, sources):
    return shutil.copytree(sources / "examples" / "device", tmp_path / "device")


def test_values_are_read_as_the_tool_reads_them(device, tool):
    config = tessel.Config(device)
    assert "device/tag" in config.urls
    shown = tool("config", "get", device, "device/tag").stdout.rstrip("\n")
    assert config.get("device/tag") == shown
    with pytest.raises(tessel.UnknownUrlError, match="no element at 'device/tga'; did you mean 'device/tag'"):
        config.get("device/tga")
    with pytest.raises(KeyError, match="is a tree node and has no value"):
        config.get("device")


def test_a_write_has_its_status_and_is_saved_with_a_stamp(device, tool):
    config = tessel.Config(device)
    assert config.set("device/tag", "PT-999") is SetStatus.CHANGED
    assert config.set("device/tag", "PT-999") is SetStatus.UNCHANGED
    before = tool("config", "get", device, "device/tag").stdout
    assert before != "PT-999\n"
    files = {path: path.read_bytes() for path in device.rglob("*.json")}
    stamps = config.save()
    assert [stamp.instance for stamp in stamps] == ["device/device"] and "T" in stamps[0].last_modified
    assert tool("config", "get", device, "device/tag").stdout == "PT-999\n"
    assert [path.name for path in files if path.read_bytes() != files[path]] == ["device.config.json"]
    assert config.save() == []
    assert tessel.Config(device / "device.config.json").get("tag") == "PT-999"


def test_what_is_refused(device):
    config = tessel.Config(device)
    former = config.get("device/tag")
    with pytest.raises(tessel.RefusedError, match="the text does not match the regular expression") as caught:
        config.set("device/tag", "pt 205")
    assert caught.value.exit_code == 5
    with pytest.raises(tessel.TypeRefusedError, match="'device/tag': 5 is no text"):
        config.set("device/tag", 5)
    with pytest.raises(tessel.TypeRefusedError, match="only a number or a selector can be without input"):
        config.set("device/tag", None)
    with pytest.raises(tessel.UnknownUrlError):
        config.set("device/tga", "PT-205")
    assert config.get("device/tag") == former and config.save() == []


def config_file(tmp_path, **leaves):
    path = tmp_path / "unit.config.json"
    path.write_text(json.dumps({"type": "treenode", "modifiedBy": "", "lastModified": "", "value": leaves}))
    return path


def test_limits_selections_and_empty_numbers(tmp_path):
    path = config_file(
        tmp_path,
        gain={"type": "double", "value": 1.5, "minLimit": 0, "maxLimit": 2},
        mode={"type": "selector", "value": 0, "selectionList": ["off", "on"]},
        fixed={"type": "int32", "value": 1, "readOnly": True},
        large={"type": "uint64", "value": 1})
    config = tessel.Config(path)
    for url, value, words in (("gain", 2.5, "2.5 is above the upper limit, 2"), ("mode", "auto", "off (0), on (1)"),
                              ("mode", 2, "is none of the selection"), ("fixed", 2, "'fixed': it is read-only")):
        with pytest.raises(tessel.RefusedError) as caught:
            config.set(url, value)
        assert words in str(caught.value)
    config.set("gain", None)
    config.set("mode", "on")
    assert (config.get("gain"), config.get("mode")) == (None, 1)
    assert config.describe("mode").choices == ("off", "on")
    assert config.describe("gain").maximum == 2 and config.describe("fixed").read_only
    config.set("mode", 0)
    config.save()
    again = tessel.Config(path)
    assert (again.get("gain"), again.get("mode")) == (None, 0)


def test_tables_are_lists_or_arrays(device, tool):
    config = tessel.Config(device)
    url = next(url for url in config.urls if config.describe(url).type == "array")
    rows = config.table(url)
    assert config.get(f"{url}#0,0") == rows[0][0]
    assert json.loads(tool("config", "table", device, url, "--json").stdout)["rows"] == rows
    array = config.table_array(url)
    assert [list(row) for row in array.tolist()] == rows
    assert config.set_table(url, rows) is SetStatus.UNCHANGED
    with pytest.raises(tessel.UnknownUrlError, match="no cell 999,0"):
        config.get(f"{url}#999,0")
    with pytest.raises(tessel.RefusedError, match="it is an array; set a cell"):
        config.set(url, rows)


def test_tables_are_replaced_whole_or_not_at_all(device):
    config = tessel.Config(device)
    url = next(url for url in config.urls if config.describe(url).type == "array")
    rows = config.table(url)
    with pytest.raises(tessel.RefusedError, match="row 0 has 0 cells"):
        config.set_table(url, [[] for _ in rows])
    with pytest.raises(tessel.RefusedError, match="rows are too many"):
        config.set_table(url, rows * 1000)
    wrong = [list(row) for row in rows]
    wrong[-1][0] = "x"
    with pytest.raises(tessel.TypeRefusedError, match=f"'{url}#{len(rows) - 1},0'"):
        config.set_table(url, wrong)
    assert config.table(url) == rows
    changed = [list(row) for row in rows]
    changed[0][0] = rows[0][0] + 1
    assert config.set_table(url, changed) is SetStatus.CHANGED
    assert config.set(f"{url}#1,0", rows[1][0] + 1) is SetStatus.CHANGED
    changed[1][0] += 1
    config.save()
    assert tessel.Config(device).table(url) == changed


def test_what_cannot_be_opened_or_saved(tmp_path, device):
    with pytest.raises(tessel.MissingError, match="no such file or folder"):
        tessel.Config(tmp_path / "none.config.json")
    (tmp_path / "empty").mkdir()
    with pytest.raises(tessel.FileError):
        tessel.Config(tmp_path / "empty")
    broken = tmp_path / "broken.config.json"
    broken.write_text("{")
    with pytest.raises(tessel.FileError, match="cannot be parsed"):
        tessel.Config(broken)
    if os.geteuid() != 0:
        config = tessel.Config(device)
        config.set("device/tag", "PT-999")
        device.chmod(0o500)
        with pytest.raises(tessel.AccessError, match="no permission to write the file or its folder"):
            config.save()
        device.chmod(0o700)
