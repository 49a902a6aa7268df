"""Exceptions of the tundrel module.

Errors of the library's containers (a checked index out of range, an empty
slot, a file that failed) arrive as :class:`GenericError` and its subclasses,
with the library's four fields: ``message``, ``code``, ``file`` (the source
header of the failed check) and ``line``.  Texts that an operation showed to
the user (a message box in a desktop host) arrive as :class:`MessageError`,
carrying the texts exactly as the library wrote them.
"""

import builtins

__all__ = ["GenericError", "IndexError", "StateError", "FileError", "MessageError", "MessageWarning"]


class GenericError(Exception):
    """An error of the library: ``message``, ``code``, ``file``, ``line``.

    ``messages`` holds what the failing call had shown before the error (for
    example the report of an XML parser), possibly empty.
    """

    def __init__(self, message, code, file, line, messages=()):
        super().__init__(message, code, file, line)
        self.message = message
        self.code = code
        self.file = file
        self.line = line
        self.messages = list(messages)

    def __str__(self):
        text = f"{self.message} (code {self.code}, {self.file}, line {self.line})"
        if self.messages:
            text += "\n" + "\n".join(self.messages)
        return text


class IndexError(GenericError, builtins.IndexError):  # noqa: A001 - the library's own name
    """An index outside the bounds of a container ("Index error!", code 1)."""


class StateError(GenericError):
    """A slot that holds nothing, or an object in the wrong state ("State error!", code 5)."""


class FileError(GenericError):
    """A file that could not be read or written ("File error!", code 4)."""


class MessageError(Exception):
    """An operation failed and said why: ``messages`` are the library's texts, in order."""

    def __init__(self, messages):
        self.messages = list(messages)
        super().__init__("\n".join(self.messages))


class MessageWarning(UserWarning):
    """An operation succeeded but showed a text (an XML parser's warning, say)."""
