import inspect

import pytest

import tundrel
from tundrel import _tundrel


def public_functions():
    for name, obj in vars(_tundrel).items():
        enum = inspect.isclass(obj) and (issubclass(obj, int) or hasattr(obj, "__members__"))
        if name.startswith("_") or enum:
            continue
        if inspect.isclass(obj):
            yield from ((f"{name}.{m}", f.__doc__) for m, f in vars(obj).items()
                        if not m.startswith("_") and callable(f) and not isinstance(f, type))
        elif callable(obj):
            yield name, obj.__doc__
    yield from ((name, "\n" + (getattr(tundrel, name).__doc__ or "")) for name in ("read", "write"))


@pytest.mark.parametrize("name, doc", list(public_functions()), ids=lambda v: v if isinstance(v, str) and "\n" not in v else "")
def test_every_function_is_documented(name, doc):
    """A docstring that says more than the generated signature."""
    lines = [line for line in (doc or "").strip().splitlines() if line.strip()]
    assert len(lines) > 1, f"{name} has no docstring"
    assert not all(line.lstrip().startswith(("1.", "2.", "Overloaded")) for line in lines[1:]), name
