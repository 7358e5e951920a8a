"""Manages the custom ringtones of early iPhones (firmware 1.0.x and 1.1.x).

    import krlvesk

    with krlvesk.Phones() as phones:
        phone = phones.find()
        plan = phone.plan(add=["Marimba.mp3"])
        print(plan)
        plan.sync(progress=print)

All that it refuses, and says, is what the command line ``vesk`` refuses and says: both ask the same engine.
"""
from __future__ import annotations

from ._core import version as __version__
from ._errors import (BadNameError, CancelledError, CannotBeginError, CannotKeepError, CannotOpenError,
                      CatalogueUnreadableError, ChangedByOthersError, EmptyFileError, Error, FileTooLargeError,
                      NameNotFoundError, NameTakenError, NeedsYesError, NoDeviceLayerError, NoPhoneError,
                      NoSpaceError, NotACatalogueError, NotAnIphoneError, NotAsWantedError, NotPairedError,
                      NothingKeptError, PairingFailedError, PhoneGoneError, PhoneStateError, RequestError,
                      SameNameTwiceError, SeveralPhonesError, SyncError, SyncFailedError, UnknownFirmwareError,
                      UnreadableFileError, UnsupportedTypeError, WhichPhoneError, WouldLoseRingtonesError)
from ._phones import (Event, Phone, PhoneFacts, Phones, Plan, PlanFacts)
from ._songs import (inspect, prepare)
from ._values import (CancelFlag, Changes, FetchedRingtone, Inspection, Operation, PastJob, PhoneInfo, PlannedSong,
                      PreparedRingtone, Progress, ProgressCallback, Ringtone, SongLike, Stage, StrPath, SyncResult,
                      UnusableSong, printable)

__all__ = ["BadNameError", "CancelFlag", "CancelledError", "CannotBeginError", "CannotKeepError", "CannotOpenError",
           "CatalogueUnreadableError", "ChangedByOthersError", "Changes", "EmptyFileError", "Error", "Event",
           "FetchedRingtone", "FileTooLargeError", "Inspection", "NameNotFoundError", "NameTakenError",
           "NeedsYesError", "NoDeviceLayerError", "NoPhoneError", "NoSpaceError", "NotACatalogueError",
           "NotAnIphoneError", "NotAsWantedError", "NotPairedError", "NothingKeptError", "Operation",
           "PairingFailedError", "PastJob", "Phone", "PhoneFacts", "PhoneGoneError", "PhoneInfo", "PhoneStateError",
           "Phones", "Plan", "PlanFacts", "PlannedSong", "PreparedRingtone", "Progress", "ProgressCallback",
           "RequestError", "Ringtone", "SameNameTwiceError", "SeveralPhonesError", "SongLike", "Stage", "StrPath",
           "SyncError", "SyncFailedError", "SyncResult", "UnknownFirmwareError", "UnreadableFileError",
           "UnsupportedTypeError", "UnusableSong", "WhichPhoneError", "WouldLoseRingtonesError", "__version__",
           "inspect", "prepare", "printable"]
