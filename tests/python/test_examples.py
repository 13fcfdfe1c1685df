"""The programs of examples/python and the notebook of the documents do what is said of them."""

import csv
import doctest
import os
import re
import signal
import subprocess
import sys
from pathlib import Path

import pytest

import tessel
from conftest import LONGEST, OWN_KEYS


@pytest.fixture
def examples(sources):
    return sources / "examples" / "python"


@pytest.fixture
def tank(tmp_path, sources):
    """The tank of the examples, with a key of its own."""
    text = (sources / "examples" / "publish" / "tank.process.json").read_text()
    path = tmp_path / "tank.process.json"
    path.write_text(text.replace("tesselTank", f"{OWN_KEYS}Tank"))
    return path


def run(*command, **options):
    return subprocess.run([sys.executable, *map(str, command)], capture_output=True, text=True, timeout=LONGEST, **options)


def test_publish(examples, tank):
    done = run(examples / "publish.py", tank)
    assert done.stderr == ""
    lines = done.stdout.splitlines()
    assert lines[0] == "('tank/level', Value(value=1.5, state=<State.VALID: 0>, unit='m'))"
    assert lines[1].startswith("('tank/temperature', Value(value=21.0, ")
    levels = [line for line in lines if line.startswith("level ")]
    # Of several sets at once only the newest is seen, and the last one is always seen.
    assert levels[-1] == "level 3.0" and levels == sorted(set(levels), key=levels.index)


def test_display(examples, tank):
    with tessel.create(tank) as region:
        region.publish({"tank/level": 1.25})
        shown = subprocess.Popen([sys.executable, examples / "display.py", tank, "tank"], stdout=subprocess.PIPE,
                                 text=True)
        lines = [shown.stdout.readline().split() for _ in range(3)]
        shown.send_signal(signal.SIGINT)
        shown.communicate(timeout=LONGEST)
    assert lines == [["---", "set", "2"], ["tank/level", "1.25", "m"],
                     ["tank/temperature", "NO_VALID_INPUT_VALUE", "°C"]]
    assert shown.returncode == 0


def test_logger_to_csv(examples, tank, tmp_path):
    with tessel.create(tank) as region:
        region.publish({"tank/level": 1.25, "tank/temperature": tessel.State.TIMEOUT})
        done = run(examples / "logger.py", tank, tmp_path / "log.csv", "--count", 1)
    assert (done.returncode, done.stderr) == (0, "")
    rows = list(csv.reader((tmp_path / "log.csv").open(encoding="utf-8")))
    assert rows[0] == ["time", "generation", "url", "value", "state", "unit"]
    assert [row[1:] for row in rows[1:]] == [["2", "tank/level", "1.25", "VALID", "m"],
                                             ["2", "tank/temperature", "", "TIMEOUT", "°C"]]


def test_logger_to_arrays(examples, tank, tmp_path):
    numpy = pytest.importorskip("numpy")
    with tessel.create(tank) as region:
        region.publish({"tank/level": 1.25, "tank/temperature": tessel.State.TIMEOUT})
        done = run(examples / "logger.py", tank, tmp_path / "log.npz", "tank/temperature", "tank/level", "--count", 1)
    assert (done.returncode, done.stderr) == (0, "")
    with numpy.load(tmp_path / "log.npz") as log:
        assert list(log["url"]) == ["tank/temperature", "tank/level"]
        assert numpy.isnan(log["value"][0, 0]) and log["value"][0, 1] == 1.25
        assert log["state"].tolist() == [[9, 0]] and log["time"].shape == (1,)


def test_plot(examples, tank, tmp_path):
    pytest.importorskip("matplotlib")
    with tessel.create(tank) as region:
        region.publish({"tank/level": 1.25, "tank/temperature": 20.0})
        done = run(examples / "plot.py", tank, tmp_path / "plot.png", 0, "tank/level", "tank/temperature",
                   env={**os.environ, "MPLCONFIGDIR": str(tmp_path)})
    # On a slow machine matplotlib has something to say of its fonts.
    assert done.returncode == 0, done.stderr
    assert (tmp_path / "plot.png").read_bytes()[:4] == b"\x89PNG"


def test_the_acceptance_test(examples, tmp_path):
    path = f"{Path(os.environ['TESSEL_TOOL']).parent}:{os.environ['PATH']}"
    done = run("-B", "-m", "pytest", "-q", "-p", "no:cacheprovider", f"--basetemp={tmp_path / 'inner'}",
               examples / "test_plant.py",
               env={**os.environ, "PATH": path})
    assert done.returncode == 0 and "2 passed" in done.stdout, done.stdout


def test_the_notebook(sources, tank, monkeypatch):
    pytest.importorskip("numpy")
    monkeypatch.chdir(tank.parent)
    # The fences are no part of what Python answers.
    text = re.sub(r"^```.*$", "", (sources / "docs" / "python-notebook.md").read_text(encoding="utf-8"), flags=re.M)
    runner = doctest.DocTestRunner(optionflags=doctest.ELLIPSIS)
    result = runner.run(doctest.DocTestParser().get_doctest(text, {}, "python-notebook.md", None, 0))
    assert result.failed == 0 and result.attempted > 15
