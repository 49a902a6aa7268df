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
parameters in a dialog take them as keyword arguments instead, with the
dialog's defaults; a field the operation needs and the container lacks raises
``KeyError`` naming it.

Every call that reads, writes or computes releases the GIL, so threads run
side by side; calls on the same object from two threads take turns.  Ctrl-C
stops a running ``self_illumination`` or ``pressure_ports`` at its next
progress step with ``KeyboardInterrupt``, the container unchanged.

``formats()`` lists the file formats (name, extensions, what each holds);
``to_meshio`` / ``from_meshio`` exchange models with meshio and through it
with every format meshio knows.
"""

from . import errors
from ._tundrel import *  # noqa: F401,F403 - the bindings
from ._tundrel import (  # noqa: F401
    __version__, export_data, file_extension, find_format, formats, import_data, region, region_fe, render,
    write_safely)
from .errors import FileError, GenericError, IndexError, MessageError, MessageWarning, StateError  # noqa: A004
from .mesh_exchange import from_meshio, to_meshio


def _unknown_format(file):
    known = ", ".join(e for f in formats() for e in f.extensions)
    return ValueError(f"{file}: unknown file format ({known})")


def read(*files, transpose=False):
    """Reads one or more model files into a new ``(region, region_fe)`` pair.

    Raises :class:`MessageError` when a reader fails, and ``ValueError`` for a
    file whose extension chooses no format (see ``formats()``).
    """
    reg, reg_fe = region(), region_fe()
    for f in files:
        if not import_data(f, transpose, reg, reg_fe):
            raise _unknown_format(f)
    return reg, reg_fe


def write(file, reg, reg_fe=None, *, precision=6, split=False, scientific=False, binary=False):
    """Writes a model; the format follows the extension of ``file``.

    The file is written beside its name and moved onto it only when complete,
    so a failed write leaves an earlier file as it was. ``binary`` writes
    binary data where the format has them (VTK). Returns the files written.
    Raises :class:`MessageError` when the writer fails (the library's text, the
    file and the system's reason), and ``ValueError`` for an extension that
    chooses no format (see ``formats()``).
    """
    if find_format(file_extension(str(file))) is None:
        raise _unknown_format(file)
    return write_safely(file, reg, reg_fe if reg_fe is not None else region_fe(), precision=precision, split=split,
                        scientific=scientific, binary=binary)
