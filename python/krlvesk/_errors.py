"""What can stand in the way: one hierarchy, with the numbers and names that vesk has."""
from __future__ import annotations

import re
from typing import Any, ClassVar, Sequence

from . import _core


class Error(Exception):
    """Why something was not done. What is raised is the class of its kind, and of a group of kinds."""

    code: ClassVar[int] = 1
    """What ``vesk`` exits with for the same reason."""

    name: ClassVar[str] = "unexpected"
    """What it is called in the JSON of ``vesk``."""

    message: str
    """What happened, on which phone or file: a sentence without its full stop."""

    advice: str
    """What to do next; may be empty."""

    details: tuple[str, ...]
    """The phones or names that it is about, as they are."""

    def __init__(self, message: str, advice: str = "", details: Sequence[str] = ()) -> None:
        super().__init__(message, advice, tuple(details))
        self.message = message
        self.advice = advice
        self.details = tuple(details)

    def __str__(self) -> str:
        """The message, safe for a terminal whatever a phone or a file is called."""
        return _core.printable(_core_text(self.message))


_NO_BYTES = re.compile("[\ud800-\udc7f\udd00-\udfff]")
"""Surrogates that stand for no byte."""


def _core_text(text: str) -> str:
    """What is no text, which file names may hold, as U+FFFD."""
    rest = _NO_BYTES.sub("\ufffd", text)
    return rest.encode(errors="surrogateescape").decode(errors="replace")


class WhichPhoneError(Error):
    """Which phone is meant, or whether it can be reached."""


class NoPhoneError(WhichPhoneError):
    """No phone is attached."""

    code = 10
    name = "no-phone"


class SeveralPhonesError(WhichPhoneError):
    """Several phones are attached, and none was chosen."""

    code = 11
    name = "several-phones"


class NotPairedError(WhichPhoneError):
    """The phone is not paired with this computer."""

    code = 12
    name = "not-paired"


class CannotOpenError(WhichPhoneError):
    """The phone cannot be opened or read."""

    code = 13
    name = "cannot-open"


class NotAnIphoneError(WhichPhoneError):
    """The device is not an iPhone."""

    code = 14
    name = "not-an-iphone"


class NoDeviceLayerError(WhichPhoneError):
    """The device layer or its daemon is missing."""

    code = 15
    name = "no-device-layer"


class PairingFailedError(WhichPhoneError):
    """Pairing or unpairing did not succeed."""

    code = 16
    name = "pairing-failed"


class RequestError(Error):
    """What was asked for cannot be done."""


class UnsupportedTypeError(RequestError):
    """The type of a file is not supported."""

    code = 20
    name = "unsupported-type"


class UnreadableFileError(RequestError):
    """A file or folder is not readable."""

    code = 21
    name = "unreadable-file"


class EmptyFileError(RequestError):
    """A file is empty."""

    code = 22
    name = "empty-file"


class FileTooLargeError(RequestError):
    """A file is too large."""

    code = 23
    name = "file-too-large"


class BadNameError(RequestError):
    """A name cannot be used."""

    code = 24
    name = "bad-name"


class NameTakenError(RequestError):
    """A name is on the phone already, or a file in its place."""

    code = 25
    name = "name-taken"


class SameNameTwiceError(RequestError):
    """Files have the same name."""

    code = 26
    name = "same-name-twice"


class NameNotFoundError(RequestError):
    """The phone has no ringtone of that name."""

    code = 27
    name = "name-not-found"


class NeedsYesError(RequestError):
    """Everything would be removed, and nobody has said yes."""

    code = 28
    name = "needs-yes"


class NotACatalogueError(RequestError):
    """A file is no ringtone catalogue."""

    code = 51
    name = "not-a-catalogue"


class PhoneStateError(Error):
    """The phone's state forbids it."""


class NoSpaceError(PhoneStateError):
    """There is too little space on the phone."""

    code = 30
    name = "no-space"


class CatalogueUnreadableError(PhoneStateError):
    """The phone's catalogue cannot be read."""

    code = 31
    name = "catalogue-unreadable"


class WouldLoseRingtonesError(PhoneStateError):
    """Ringtones would be lost that cannot be put right."""

    code = 32
    name = "would-lose-ringtones"


class UnknownFirmwareError(PhoneStateError):
    """The firmware is neither 1.0.x nor 1.1.x."""

    code = 33
    name = "unknown-firmware"


class CannotKeepError(PhoneStateError):
    """There is no room here to keep what the phone holds."""

    code = 34
    name = "cannot-keep"


class NothingKeptError(PhoneStateError):
    """Nothing is kept that could be put back, or it is damaged."""

    code = 35
    name = "nothing-kept"


class ChangedByOthersError(PhoneStateError):
    """Others have changed the phone since."""

    code = 36
    name = "changed-by-others"


class SyncError(Error):
    """How a sync went."""


class SyncFailedError(SyncError):
    """The sync failed half-way."""

    code = 40
    name = "sync-failed"


class PhoneGoneError(SyncError):
    """The phone was pulled out."""

    code = 41
    name = "phone-gone"


class NotAsWantedError(SyncError):
    """The phone does not hold what it should."""

    code = 42
    name = "not-as-wanted"


class CannotBeginError(SyncError):
    """The sync could not begin."""

    code = 43
    name = "cannot-begin"


class CancelledError(Error):
    """It was cancelled, and the message says what state the phone is in."""

    code = 130
    name = "cancelled"


def _kinds(base: type[Error]) -> dict[int, type[Error]]:
    """The class of each kind, by its number. Groups have the number of what is unexpected."""
    kinds = {base.code: base} if base.code != Error.code else {}
    for one in base.__subclasses__():
        kinds.update(_kinds(one))
    return kinds


_KINDS = {Error.code: Error, **_kinds(Error)}


def error_of(failure: _core.Failure) -> Error:
    """The exception of a failure of the engine."""
    code, message, advice, details = failure
    return _KINDS[code](message, advice, details)


def value_of(outcome: _core.Outcome) -> Any:
    """What has come of a call of the extension.

    :raise Error: why nothing has
    """
    value, failure = outcome
    if failure is not None:
        raise error_of(failure)
    return value
