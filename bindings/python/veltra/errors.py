"""The exceptions of failed calls, one class for each outcome of the library."""

from typing import Dict, Type


class Error(Exception):
    """A call failed. The subclasses say why; docs/errors.md says what to do about each.

    An outcome that a later library adds is raised as a plain Error with its number as outcome.
    """

    #: the library's number for the outcome
    outcome: int = 16

    def __init__(self, detail: str = "", *, attempts: int = 0, http_status: int = 0,
                 gateway_code: str = "", gateway_message: str = "", retryable: bool = False,
                 milliseconds: int = 0, trace_id: str = "") -> None:
        super().__init__(detail)
        #: the reason, in one line for a person; contains no key and no token
        self.detail = detail
        #: how many exchanges were made; 0 if nothing was sent
        self.attempts = attempts
        #: the HTTP status of the last answer; 0 if none came
        self.http_status = http_status
        #: the code of the gateway's last answer; empty if it gave none
        self.gateway_code = gateway_code
        #: the gateway's explanation of a refusal
        self.gateway_message = gateway_message
        #: whether the same call may succeed when it is simply repeated later
        self.retryable = retryable
        #: how long the call took
        self.milliseconds = milliseconds
        #: the trace id of a query or feedback
        self.trace_id = trace_id

    def __str__(self) -> str:
        return ": ".join(filter(None, [self.detail or type(self).__name__, self.gateway_message]))


class NotEnabled(Error):
    """The session is closed, or the process is a forked child or is ending."""
    outcome = 1


class NotUsable(Error):
    """The service was last found unusable."""
    outcome = 2


class BadArgument(Error):
    """An argument that the library doesn't accept."""
    outcome = 3


class Screened(Error):
    """A value contains a phrase of the list; nothing was sent."""
    outcome = 4


class Cancelled(Error):
    """Cancelled by a CancelToken, by cancel_all, or by the end of the session."""
    outcome = 5


class TimedOut(Error):
    """A time limit expired: the call's, or one of the exchange."""
    outcome = 6


class NotReached(Error):
    """No connection: name, address, port, proxy, or TLS version."""
    outcome = 7


class NotTrusted(Error):
    """The server's certificate isn't trusted."""
    outcome = 8


class CutOff(Error):
    """The connection ended before the answer did."""
    outcome = 9


class BadStatus(Error):
    """An answer with a status other than 200."""
    outcome = 10


class BadAnswer(Error):
    """An answer that is empty, too large or malformed."""
    outcome = 11


class Refused(Error):
    """The gateway refused, with a code."""
    outcome = 12


class TokenRejected(Error):
    """The gateway rejected the token, and the renewed one as well."""
    outcome = 13


class ForbiddenWords(Error):
    """The gateway found a forbidden word."""
    outcome = 14


class NotAllowed(Error):
    """The library refused to send: plain http, a malformed URL."""
    outcome = 15


class Failed(Error):
    """Anything else, such as running out of memory."""
    outcome = 16


BY_OUTCOME: Dict[int, Type[Error]] = {kind.outcome: kind for kind in Error.__subclasses__()}
