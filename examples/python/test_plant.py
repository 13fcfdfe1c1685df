"""An acceptance test: does what stands behind a plant see to its alarms?

Instead of the plant a simulation publishes: python3 -m pytest test_plant.py
"""

import json
import subprocess
import uuid

import pytest

import tessel

LIMIT = 60.0  # °C
CELLS = [f"cell{number}" for number in range(1, 9)]


def cell(offset):
    def leaf(kind, start, size, **more):
        return {"type": kind, "offsetSharedMemory": offset + start, "sizeValue": size,
                "relativeOffsetMetadata": 4, "sizeMetadata": 4, **more}

    return {"type": "treenode", "value": {
        "temperature": leaf("float", 0, 4, unit="°C", minLimit=20, maxLimit=95),
        "alarm": leaf("boolean", 8, 1)}}


#! [simulated]
@pytest.fixture
def plant(tmp_path):
    """The region of eight cells that warm up and cool down, from `tessel sim`."""
    path = tmp_path / "plant.process.json"
    path.write_text(json.dumps({
        "type": "treenode", "keyProcessDataMemory": f"plant{uuid.uuid4().hex[:8]}",
        "sizeOfSharedMemory": 16 * len(CELLS), "doubleBuffer": True,
        "value": {name: cell(16 * place) for place, name in enumerate(CELLS)}}))
    simulation = subprocess.Popen(["tessel", "sim", path, "*/temperature", "--seed", "7"],
                                  stdout=subprocess.PIPE, text=True)
    simulation.stdout.readline()  # the region is there
    with tessel.attach(path) as region:
        yield region
    simulation.terminate()
    simulation.communicate()


#! [simulated]


def see_to_alarms(region, taken):
    """What is tested here: an alarm is on while its cell is too hot, or its sensor broken."""
    with region.write() as values:
        for name in CELLS:
            temperature = taken[f"{name}/temperature"]
            values[f"{name}/alarm"] = not temperature.is_valid or temperature.value > LIMIT


#! [test]
def test_the_alarms_follow_the_temperatures(plant):
    seen = set()
    for taken in plant.watch():
        if not taken["cell1/temperature"].is_valid:
            continue  # the first set has no values
        see_to_alarms(plant, taken)
        alarms = plant.read()
        for name in CELLS:
            assert alarms[f"{name}/alarm"].value == (taken[f"{name}/temperature"].value > LIMIT)
            seen.add(alarms[f"{name}/alarm"].value)
        if seen == {True, False}:
            return


#! [test]


def test_a_broken_sensor_is_an_alarm_too(plant):
    taken = dict(plant.read())
    taken["cell3/temperature"] = tessel.Value(None, tessel.State.SENSOR_BREAKAGE, "°C")
    see_to_alarms(plant, taken)
    assert plant["cell3/alarm"].value is True
