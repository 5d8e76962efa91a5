# SPDX-License-Identifier: MIT
"""The stub and the module name the same things, with the same parameters; everything has a docstring."""

import ast
import inspect
import pathlib
import re
import subprocess
import sys
import textwrap

import zephly

STUB = pathlib.Path(zephly.__file__).with_name("__init__.pyi")


def stub_names():
    """Name -> parameters (of functions), of everything public, class members as Class.member."""
    found = {}

    def visit(body, prefix):
        for node in body:
            if isinstance(node, ast.ClassDef):
                found[prefix + node.name] = None
                visit(node.body, prefix + node.name + ".")
            elif isinstance(node, ast.FunctionDef):
                is_property = any(isinstance(mark, ast.Name) and mark.id == "property" for mark in node.decorator_list)
                arguments = node.args.args + node.args.kwonlyargs
                found[prefix + node.name] = None if is_property else [argument.arg for argument in arguments]
            elif isinstance(node, ast.AnnAssign):
                found[prefix + node.target.id] = None

    visit(ast.parse(STUB.read_text()).body, "")
    return {name: parameters for name, parameters in found.items() if not re.search(r"(^|\.)_[^_]", name)}


def parameters_of(function):
    """Those that pybind11 writes into the first line of a docstring."""
    signature = function.__doc__.splitlines()[0]
    if ") ->" not in signature:
        return []  # a class that cannot be made: object's own __init__
    inside = signature[signature.index("(") + 1 : signature.rindex(") ->")]
    parts = re.split(r", (?=\*|\w+:)", inside)
    return [part.split(":")[0] for part in parts if part and part != "*"]


def module_names():
    found = {"__version__": None}
    for name, value in vars(zephly).items():
        if name.startswith("_") or inspect.ismodule(value):
            continue
        found[name] = parameters_of(value) if callable(value) and not inspect.isclass(value) else None
        if not inspect.isclass(value):
            continue
        for member, content in vars(value).items():
            if member.startswith("_") and member not in ("__init__", "__eq__"):
                continue
            if isinstance(value, type) and hasattr(value, "__members__") and member == "__eq__":
                continue
            found[f"{name}.{member}"] = parameters_of(content) if callable(content) and not isinstance(content, value) else None
    return found


def test_same_names_and_parameters():
    stub, module = stub_names(), module_names()
    # pybind11 gives every class an __init__, also those that cannot be made; and it does not name what __eq__ takes.
    for name in ("Timer.__init__", "Host.__init__", "CaptureEvent.__init__", "Beat.__init__", "Breath.__init__", "Second.__init__"):
        module.pop(name, None)
    assert sorted(stub) == sorted(module)
    for name, parameters in stub.items():
        if not name.endswith("__eq__"):
            assert module[name] == parameters, name


def test_everything_says_what_it_is():
    for name, value in vars(zephly).items():
        if inspect.isclass(value):
            assert value.__doc__, name
            for member, content in vars(value).items():
                if not member.startswith("_") and not hasattr(value, "__members__"):
                    lines = content.__doc__.strip().splitlines()
                    assert isinstance(content, property) or len(lines) > 1, f"{name}.{member}"


# Any object may be a delegate.
DELEGATES = ("Zephly.__init__", "Zephly.startWorkoutDetection", "SignalProcessor.delegate", "SignalProcessor.setDelegate")


def test_signatures_have_types():
    """The first line of a docstring names types, not `object`, and none of C++."""
    signatures = {}
    for name, value in vars(zephly).items():
        if name.startswith("_") or not inspect.isclass(value) or hasattr(value, "__members__"):
            continue
        for member, content in vars(value).items():
            if callable(content) and (not member.startswith("_") or member == "__init__"):
                signatures[f"{name}.{member}"] = content.__doc__.splitlines()[0]
    assert "samples: float | numpy.ndarray[numpy.float32]" in signatures["Engine.processECG"]
    for name, signature in signatures.items():
        assert "::" not in signature and "function" not in signature, signature
        if name not in DELEGATES:
            assert ": object" not in signature and "-> object" not in signature, signature


def test_stub_is_accepted_by_a_type_checker(tmp_path):
    use = tmp_path / "use.py"
    use.write_text(textwrap.dedent("""
        import numpy
        import zephly

        samples: numpy.typing.NDArray[numpy.float32] = zephly.Engine().processECG(numpy.zeros(3, numpy.float32))
        number: float = zephly.MedianFilter(5).process(1.0)
        contact: bool = zephly.LeadoffDetector().process(1.0)
        session = zephly.Zephly(object(), zephly.SimulatedStrap(zephly.MainQueue(), speed=None))
    """))
    wrong = tmp_path / "wrong.py"
    wrong.write_text("import zephly\nzephly.MedianFilter('five')\nzephly.NoSuchThing\n")
    environment = {"MYPYPATH": str(STUB.parent.parent), "PATH": "/usr/bin:/bin"}

    def mypy(path):
        command = [sys.executable, "-m", "mypy", "--cache-dir", str(tmp_path / "cache"), "--follow-imports=silent", str(path)]
        return subprocess.run(command, capture_output=True, text=True, env=environment)

    accepted = mypy(use)
    assert accepted.returncode == 0, accepted.stdout
    refused = mypy(wrong)
    assert "incompatible type" in refused.stdout and "no attribute" in refused.stdout, refused.stdout
