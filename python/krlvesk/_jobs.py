"""Work under way on the phones' thread, and who waits for it."""
from __future__ import annotations

from typing import Any

from . import _core
from ._errors import error_of, value_of
from ._values import CancelFlag, Progress, ProgressCallback


def hear(job: _core.Job, progress: ProgressCallback | None) -> bool:
    """Hands on the report of work that waits to be heard. The work still waits afterwards.

    :return: whether there was one
    """
    report = job.report()
    if report is None:
        return False
    if progress is not None:
        _core.begin_hearing()
        try:
            progress(Progress(**report))
        finally:
            _core.end_hearing()
    return True


def note_outcome(error: BaseException, job: _core.Job) -> None:
    """Who catches the exception wants to know what has become of the phone, too."""
    if not job.is_done() or not hasattr(error, "add_note"):  # before Python 3.11
        return
    failure = job.outcome()[1]
    error.add_note("it was too late to cancel: what was asked for is done" if failure is None
                   else str(error_of(failure)))


class Wait:
    """Waits for work, and calls with its reports. What is raised meanwhile, by a signal's handler too, cancels the
    work; it is raised once that has ended, with a note of what came of it."""

    def __init__(self, job: _core.Job, progress: ProgressCallback | None, cancel: CancelFlag | None) -> None:
        self._job = job
        self._progress = progress
        self._cancel = cancel
        self._error: BaseException | None = None
        self._is_over = False

    def result(self) -> Any:
        while not self._is_over:
            try:
                while not self._is_over:
                    self._look()
            except BaseException as error:
                self._fail(error)
        raised, self._error = self._error, None
        if raised is not None:
            note_outcome(raised, self._job)
            try:
                raise raised
            finally:
                del raised  # which leads back to here: what it holds would wait for the collector
        return value_of(self._job.outcome())

    def _look(self) -> None:
        is_done = self._job.wait()
        if self._error is not None:
            self._job.cancel()  # again: it may wait for something else by now
        hear(self._job, self._progress if self._error is None else None)
        if not is_done and self._cancel is not None and self._cancel.is_set():
            self._job.cancel()
        self._job.heard()
        self._is_over = is_done

    def _fail(self, error: BaseException) -> None:
        self._job.cancel()
        if self._error is None:
            self._error = error
