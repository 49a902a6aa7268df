import inspect

import pytest

import tundrel
from tundrel import _tundrel


def documented(doc):
    """A pybind11 docstring that says more than the generated signature."""
    lines = [line for line in (doc or "").strip().splitlines() if line.strip()]
    return len(lines) > 1 and not all(line.lstrip().startswith(("1.", "2.", "Overloaded")) for line in lines[1:])


def public_functions():
    for name, obj in vars(_tundrel).items():
        if name.startswith("_"):
            continue
        if inspect.isclass(obj):
            if issubclass(obj, int) or hasattr(obj, "__members__"):  # enums
                continue
            for member, f in vars(obj).items():
                if not member.startswith("_") and callable(f) and not isinstance(f, type):
                    yield f"{name}.{member}", f.__doc__
        elif callable(obj):
            yield name, obj.__doc__
    for name in ("read", "write"):
        yield name, "\n" + (getattr(tundrel, name).__doc__ or "")


@pytest.mark.parametrize("name, doc", list(public_functions()), ids=lambda v: v if isinstance(v, str) and "\n" not in v else "")
def test_every_function_is_documented(name, doc):
    assert documented(doc), f"{name} has no docstring"

