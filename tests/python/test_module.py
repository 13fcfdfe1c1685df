"""The package as such: its errors, its log, its types, and what its comments say."""

import ast
import copy
import doctest
import logging
import os
import pickle
import pkgutil
import re
import subprocess
import sys

import pytest

import tessel

#: Exit code, and the built-in exceptions by which each can be caught as well.
ERRORS = {
    tessel.UseError: (2, ValueError),
    tessel.ClosedError: (2, ValueError),
    tessel.ForkedError: (2, RuntimeError),
    tessel.NotFoundError: (3, LookupError),
    tessel.UnknownUrlError: (3, KeyError),
    tessel.MissingError: (3, FileNotFoundError),
    tessel.AccessError: (4, PermissionError),
    tessel.RefusedError: (5, ValueError),
    tessel.TypeRefusedError: (5, TypeError),
    tessel.TimedOutError: (6, TimeoutError),
    tessel.NotReliableError: (7, RuntimeError),
    tessel.LayoutMismatchError: (8, RuntimeError),
    tessel.FileError: (9, OSError),
}


@pytest.mark.parametrize("error", ERRORS, ids=lambda error: error.__name__)
def test_errors_have_the_exit_codes_of_the_tool(error):
    code, builtin = ERRORS[error]
    assert (error.exit_code, issubclass(error, builtin), issubclass(error, tessel.Error)) == (code, True, True)
    assert str(error("'a' is b")) == "'a' is b"


def test_no_error_is_forgotten():
    public = {getattr(tessel, name) for name in tessel.__all__}
    assert {one for one in public if isinstance(one, type) and issubclass(one, tessel.Error)} == {
        tessel.Error, *ERRORS}


def test_states_have_the_numbers_of_the_format(tool):
    assert [state.value for state in tessel.State] == list(range(10))
    assert tessel.State(42).name == "STATE_42" and not tessel.State(42).is_valid
    with pytest.raises(ValueError):
        tessel.State("timeout")


@pytest.mark.parametrize("state", [tessel.State.VALID, tessel.State.TIMEOUT, tessel.State(42), tessel.State(-1)])
def test_states_are_copied_and_sent(state):
    value = tessel.Value(None, state, "m")
    for copied in (copy.copy(state), copy.deepcopy(value).state, pickle.loads(pickle.dumps(value)).state):
        assert copied == state and copied.name == state.name and isinstance(copied, tessel.State)


@pytest.mark.parametrize("error", ERRORS, ids=lambda error: error.__name__)
def test_errors_are_sent(error):
    sent = pickle.loads(pickle.dumps(error("'a' is b")))
    assert type(sent) is error and str(sent) == "'a' is b"


def test_what_belongs_to_a_process_is_not_sent(plant):
    with tessel.create(plant) as region:
        region.publish({"count": 1})
        for one in (region, region.read(), region.watch(), region.write()):
            with pytest.raises(TypeError, match="cannot pickle 'tessel._native"):
                pickle.dumps(one)


def test_the_library_speaks_to_the_logger(write_description, caplog):
    path = write_description({"good": ("double", {}), "bad": ("double", {"sizeValue": 3})})
    with caplog.at_level(logging.DEBUG, logger="tessel"):
        tessel.create(path).close()
    told = [(record.name, record.levelno) for record in caplog.records if "No usable slot" in record.message]
    assert told == [("tessel", logging.WARNING)]


def test_the_reason_is_in_the_exception_and_not_in_the_log(tmp_path, caplog):
    path = tmp_path / "broken.process.json"
    path.write_text("{")
    with pytest.raises(tessel.FileError, match="cannot be parsed: .+; 'tessel validate' shows where"):
        tessel.attach(path)
    assert caplog.records == []


def test_a_handler_that_uses_the_package_is_no_trouble(write_description):
    path = write_description({"good": ("double", {}), "bad": ("double", {"sizeValue": 3})})
    good = tessel.create(write_description({"good": ("double", {})}, name="other"))

    class Handler(logging.Handler):
        def emit(self, record):
            told.append(good["good"].state)

    told, handler = [], Handler()
    logging.getLogger("tessel").addHandler(handler)
    try:
        tessel.create(path).close()
    finally:
        logging.getLogger("tessel").removeHandler(handler)
        good.close()
    assert told and set(told) == {tessel.State.NO_VALID_INPUT_VALUE}


def test_the_examples_in_the_comments_hold():
    failed = attempted = 0
    for module in pkgutil.iter_modules(tessel.__path__, "tessel."):
        __import__(module.name)
        result = doctest.testmod(sys.modules[module.name])
        failed, attempted = failed + result.failed, attempted + result.attempted
    assert failed == 0 and attempted >= 3


def test_everything_public_has_a_comment():
    bare = []
    for name in tessel.__all__:
        thing = getattr(tessel, name)
        bare += [] if thing.__doc__ else [name]
        if isinstance(thing, type) and not issubclass(thing, (tuple, Exception)):
            bare += [f"{name}.{member}" for member, what in vars(thing).items()
                     if not member.startswith("_") and (callable(what) or isinstance(what, property)) and not what.__doc__]
    assert bare == []


def test_the_stubs_are_those_of_the_native_part():
    allowed = os.path.join(os.path.dirname(__file__), "stubtest-allowed.txt")
    done = subprocess.run([sys.executable, "-m", "mypy.stubtest", "tessel._native", "--allowlist", allowed],
                          capture_output=True, text=True, cwd=os.path.dirname(tessel.__path__[0]),
                          env={**os.environ, "MYPYPATH": os.path.dirname(tessel.__path__[0])}, timeout=600)
    assert done.returncode == 0, done.stdout + done.stderr


def test_the_stubs_name_the_parameters_of_the_native_part():
    """Of a function of C++ stubtest sees that there is one; what it takes stands in its first line alone."""
    native = tessel._region._native
    with open(os.path.join(tessel.__path__[0], "_native.pyi")) as file:
        body = ast.parse(file.read()).body
    places = [(native, one) for one in body if isinstance(one, ast.FunctionDef)]
    places += [(getattr(native, kind.name), one) for kind in body if isinstance(kind, ast.ClassDef)
               for one in kind.body if isinstance(one, ast.FunctionDef) and not one.decorator_list]
    named = {(home, one.name): [argument.arg for argument in one.args.args] for home, one in places}
    taken = {(home, name): re.findall(r"(\w+): ", getattr(home, name).__doc__.splitlines()[0]) for home, name in named}
    assert named == taken and len(named) > 20


def test_the_types_of_the_package_fit(tmp_path):
    done = subprocess.run([sys.executable, "-m", "mypy", "--strict", f"--cache-dir={tmp_path}", "-p", "tessel"],
                          capture_output=True, text=True, cwd=os.path.dirname(tessel.__path__[0]), timeout=600)
    assert done.returncode == 0, done.stdout
