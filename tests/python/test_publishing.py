"""What may be written, and that it is published whole or not at all."""

import math
import re

import pytest

import tessel
from tessel import State, Value


@pytest.fixture
def pair(plant):
    """A creator, and somebody who has attached."""
    with tessel.create(plant) as owner, tessel.attach(plant) as region:
        yield owner, region


@pytest.fixture
def region(pair):
    return pair[1]


@pytest.mark.parametrize("url, value, kind, text", [
    ("small", 128, ValueError, "'small': 128 is no int8; a whole number from -128 to 127 is"),
    ("small", -129, ValueError, "'small': -129 is no int8; a whole number from -128 to 127 is"),
    ("small", 2**70, ValueError, f"'small': {2**70} is no int8; a whole number from -128 to 127 is"),
    ("small", 1.5, ValueError, "'small': 1.5 is no int8; a whole number from -128 to 127 is"),
    ("small", math.nan, ValueError, "'small': nan is no int8; a whole number from -128 to 127 is"),
    ("small", True, TypeError, "'small': True is no int8; a whole number from -128 to 127 is"),
    ("small", "1", TypeError, "'small': '1' is no int8; a whole number from -128 to 127 is"),
    ("small", None, TypeError, "'small': None is no int8; a whole number from -128 to 127 is"),
    ("count", 2**63, ValueError,
     f"'count': {2**63} is no int64; a whole number from {-2**63} to {2**63 - 1} is"),
    ("total", -1, ValueError, f"'total': -1 is no uint64; a whole number from 0 to {2**64 - 1} is"),
    ("total", 2**64, ValueError, f"'total': {2**64} is no uint64; a whole number from 0 to {2**64 - 1} is"),
    ("pump/speed", 1 + 0j, TypeError, "'pump/speed': (1+0j) is no finite number of type double"),
    ("level", 1e39, ValueError, "'level': 1e+39 does not fit a float"),
    ("level", 1e-60, ValueError, "'level': 1e-60 does not fit a float"),
    ("level", math.inf, ValueError,
     "'level': inf is no finite number of type float; an error state is written as tessel.State"),
    ("pump/speed", math.nan, ValueError,
     "'pump/speed': nan is no finite number of type double; an error state is written as tessel.State"),
    ("pump/speed", 10**400, ValueError, "is no finite number of type double"),
    ("pump/speed", False, TypeError, "'pump/speed': False is no finite number of type double"),
    ("pump/speed", -0.5, ValueError,
     "'pump/speed': -0.5 is below the lower limit, 0; limits=False writes it all the same"),
    ("pump/speed", 50.5, ValueError,
     "'pump/speed': 50.5 is above the upper limit, 50; limits=False writes it all the same"),
    ("pump/running", 2, ValueError, "'pump/running': 2 is no boolean; True, False, 1 and 0 are"),
    ("pump/running", 1.0, TypeError, "'pump/running': 1.0 is no boolean; True, False, 1 and 0 are"),
    ("name", 5, TypeError, "'name': 5 is no text; a string takes a str"),
    ("name", "0123456789", ValueError, "'name': a text of 10 characters does not fit; 9 do"),
    ("name", "😀😀😀😀😀", ValueError, "'name': a text of 10 characters does not fit; 9 do"),
    ("name", "a\0b", ValueError, "'name': a text ends where its first zero character is"),
    ("name", "\ud800", TypeError, "a text holds half of a character (a lone surrogate)"),
    ("serial", 1, ValueError,
     "'serial': it is read-only; only the process that created the region writes it"),
    ("count", State.VALID, ValueError, "'count': State.VALID is no error; give a value instead"),
    ("count", State(77), ValueError, "'count': 77 is no error state; 1 to 9 are"),
])
def test_what_is_refused(region, url, value, kind, text):
    generation = region.generation
    with pytest.raises(kind, match=re.escape(text)) as caught:
        region.publish({"level": 1.0, url: value})
    assert issubclass(caught.type, tessel.RefusedError) and caught.value.exit_code == 5
    assert (caught.type is tessel.TypeRefusedError) == (kind is TypeError)
    assert region.generation == generation
    assert region["level"].state == State.NO_VALID_INPUT_VALUE


@pytest.mark.parametrize("url, text", [("count", "no int64"), ("total", "no uint64"), ("pump/running", "no boolean"),
                                       ("pump/speed", "no finite number of type double")])
@pytest.mark.parametrize("sign", [1, -1])
def test_an_integer_without_a_text_is_refused_like_any_other(region, url, text, sign):
    """Python has no text for one of more than 4,300 digits."""
    with pytest.raises(tessel.RefusedError, match=f"'{url}': this int is {text}"):
        region.publish({url: sign * 10**5000})
    assert region.generation == 1


@pytest.mark.parametrize("url, value, read", [
    ("small", 5.0, 5), ("small", -128, -128), ("small", 127, 127), ("total", 2**64 - 1, 2**64 - 1),
    ("pump/speed", 7, 7.0), ("pump/speed", 0, 0.0), ("pump/speed", 50, 50.0), ("pump/running", 0, False),
    ("name", "", ""), ("name", "012345678", "012345678"), ("name", "😀", "😀"),
])
def test_what_is_let_in(region, url, value, read):
    region.publish({url: value})
    assert region[url].value == read and region[url].state == State.VALID


def test_numbers_of_numpy_are_numbers(region):
    numpy = pytest.importorskip("numpy")
    region.publish({"small": numpy.int64(-3), "total": numpy.uint64(2**64 - 1), "level": numpy.float32(0.5),
                    "pump/running": numpy.bool_(True)})
    assert [region[url].value for url in ("small", "total", "level", "pump/running")] == [-3, 2**64 - 1, 0.5, True]
    with pytest.raises(tessel.RefusedError):
        region.publish({"small": numpy.int64(128)})
    for url in ("small", "level"):
        with pytest.raises(tessel.TypeRefusedError):
            region.publish({url: numpy.bool_(True)})


def test_scalars_of_numpy_are_what_they_hold(region):
    numpy = pytest.importorskip("numpy")
    region.publish({"small": numpy.float32(-3), "total": numpy.array(7), "level": numpy.array(0.5),
                    "pump/running": numpy.array(True), "count": numpy.array(4.0), "name": numpy.str_("a"),
                    "pump/speed": numpy.float16(1.5)})
    urls = ("small", "total", "level", "pump/running", "count", "name", "pump/speed")
    assert [region[url].value for url in urls] == [-3, 7, 0.5, True, 4, "a", 1.5]


@pytest.mark.parametrize("url", ["small", "total", "level", "pump/speed", "pump/running", "name"])
@pytest.mark.parametrize("value", ["array([1, 2])", "array([1.5, 2])", "array([True, False])", "array([])",
                                   "complex64(1)", "array(1j)", "datetime64('2020-01-01')"])
@pytest.mark.filterwarnings("error")
def test_what_is_no_scalar_of_numpy_is_refused(region, url, value):
    numpy = pytest.importorskip("numpy")
    with pytest.raises(tessel.TypeRefusedError, match=f"'{url}': .* is no "):
        region.publish({url: eval(f"numpy.{value}")})
    assert region.generation == 1


@pytest.mark.parametrize("url, method", [("small", "__index__"), ("total", "__index__"), ("pump/running", "__index__"),
                                         ("level", "__float__"), ("small", "__repr__"), ("level", "__repr__")])
@pytest.mark.parametrize("error", [ZeroDivisionError, KeyboardInterrupt])
def test_what_a_number_raises_itself_is_not_lost(region, url, method, error):
    def fail(_):
        raise error("of its own")

    odd = type("Odd", (), {method: fail})()
    with pytest.raises(error, match="of its own"):
        region.publish({url: odd})
    assert region.generation == 1


def test_limits_can_be_left_out(region):
    region.publish({"pump/speed": 99.0}, limits=False)
    assert region["pump/speed"].value == 99.0
    with pytest.raises(tessel.RefusedError):
        region.publish({"small": 128}, limits=False)


def test_a_value_that_was_read_can_be_written(region):
    region.publish({"level": State.OVERRANGE, "pump/speed": Value(3.5, State.VALID, "1/s")})
    region.publish({"pump/speed": region["level"]})
    assert region["pump/speed"].state == State.OVERRANGE


def test_a_slot_without_metadata_takes_no_state(write_description):
    path = write_description({"plain": ("int32", {"sizeMetadata": 0}), "number": ("float", {"sizeMetadata": 0})})
    with tessel.create(path) as region:
        with pytest.raises(tessel.RefusedError, match="a int32 without metadata cannot carry an error state"):
            region.publish({"plain": State.TIMEOUT})
        region.publish({"number": State.TIMEOUT})
        assert region["number"].state == State.TIMEOUT
        with pytest.raises(tessel.RefusedError, match="would read back as an error state"):
            region.publish({"number": 9e37})


def test_the_creator_writes_what_is_read_only(pair):
    owner, region = pair
    owner.publish({"serial": 4711})
    assert region["serial"].value == 4711


def test_a_set_is_published_with_one_swap(region):
    generation = region.generation
    region.publish({"count": 1, "total": 2, "name": "three"})
    assert region.generation == generation + 1
    region.publish({"total": 5})
    assert [region[url].value for url in ("count", "total", "name")] == [1, 5, "three"]


def test_writes_are_gathered_and_published_at_the_end(region):
    generation = region.generation
    with region.write() as values:
        values["count"] = 1
        values["count"] = 2
        values["level"] = State.UNDERRANGE
        assert region.generation == generation
    assert region.generation == generation + 1
    assert (region["count"].value, region["level"].state) == (2, State.UNDERRANGE)
    with region.write():
        pass
    assert region.generation == generation + 1
    with pytest.raises(tessel.UseError, match="this block of writes is over"):
        values["count"] = 3


def test_an_exception_publishes_nothing(region):
    region.publish({"count": 1})
    generation = region.generation
    with pytest.raises(ZeroDivisionError):
        with region.write() as values:
            values["count"] = 2
            values["total"] = 1 // 0
    with pytest.raises(tessel.RefusedError):
        with region.write() as values:
            values["count"] = 3
            values["small"] = 1000
    assert region.generation == generation and region["count"].value == 1
    # Nor does it hang about for the next one.
    region.publish({"total": 9})
    assert region["count"].value == 1


def test_an_unknown_url_publishes_nothing(region):
    generation = region.generation
    with pytest.raises(tessel.UnknownUrlError, match="no process value at 'cuont'; did you mean 'count'"):
        region.publish({"count": 1, "cuont": 2})
    with pytest.raises(tessel.UnknownUrlError, match="no process value at 'pump'"):
        region.publish({"pump": 2})
    assert region.generation == generation


@pytest.mark.parametrize("url, text, value, words", [
    ("small", "128", 128, "is no int8; a whole number from -128 to 127 is"),
    ("total", "-1", -1, "is no uint64; a whole number from 0 to 18446744073709551615 is"),
    ("level", "1e39", 1e39, "does not fit a float"),
    ("name", "0123456789", "0123456789", "a text of 10 characters does not fit; 9 do"),
    ("serial", "1", 1, "is read-only; only the process that created the region"),
    ("pump/running", "2", 2, "is no boolean"),
    ("count", "1.5", 1.5, "is no int64; a whole number from -9223372036854775808 to 9223372036854775807 is"),
])
def test_the_tool_refuses_the_same(plant, region, tool, url, text, value, words):
    done = tool("set", plant, url, text)
    with pytest.raises(tessel.Error, match=re.escape(words)) as caught:
        region.publish({url: value})
    assert done.returncode == caught.value.exit_code == 5
    assert words in done.stderr
