"""TundrelApi for Python: surface geometry, fields and file formats of
wind-tunnel measurements.

The names are those of the C++ library: ``region`` and ``region_fe`` with
their ``StructPatch`` / ``FacePatch`` patches and ``NodeVariable`` arrays,
``import_data`` / ``export_data``, the field container ``FieldMaster`` and the
operations on it; ``render`` draws a field on the model (a NumPy image or a
PNG file).  Variable values, face index lists and field functions are
NumPy arrays that view the library's memory: writing to them changes the
model, and they keep what they view alive.

Errors of the library's containers raise :class:`GenericError` (subclasses
``IndexError``, ``StateError``, ``FileError``) with the library's message,
code, file and line.  An operation that fails and shows a text raises
:class:`MessageError` carrying that text; an operation that succeeds but
shows a text issues a :class:`MessageWarning`.  Operations that ask for
parameters in a dialog take them as keyword arguments instead.
"""

from . import errors
from ._tundrel import *  # noqa: F401,F403 - the bindings
from ._tundrel import export_data, import_data, region, region_fe, render  # noqa: F401 - render: pictures
from .errors import FileError, GenericError, IndexError, MessageError, MessageWarning, StateError  # noqa: A004


def read(*files, transpose=False):
    """Reads one or more model files into a new ``(region, region_fe)`` pair.

    Raises :class:`MessageError` when a reader fails, and ``ValueError`` for a
    file whose extension chooses no format (apt, fld, dat, wrl).
    """
    reg, reg_fe = region(), region_fe()
    for f in files:
        if not import_data(f, transpose, reg, reg_fe):
            raise ValueError(f"{f}: unknown file format (apt, fld, dat, wrl)")
    return reg, reg_fe


def write(file, reg, reg_fe=None, *, precision=6, split=False, scientific=False):
    """Writes a model; the format follows the extension of ``file``.

    Raises :class:`MessageError` when the writer fails, and ``ValueError`` for
    an extension that chooses no format.
    """
    if not export_data(file, precision, split, scientific, reg, reg_fe if reg_fe is not None else region_fe()):
        raise ValueError(f"{file}: unknown file format (apt, fld, dat, wrl)")
