"""Veltra for Python: queries a gateway in front of language models.

    with veltra.connect("https://gateway.example", [("app key", "secret key")]) as session:
        print(session.query("greeting", {"name": "Ada", "place": "the library"}).text)
"""

from ._calls import CancelToken
from ._records import set_log_level
from ._version import __version__
from .errors import (BadAnswer, BadArgument, BadStatus, Cancelled, CutOff, Error, Failed,
                     ForbiddenWords, NotAllowed, NotEnabled, NotReached, NotTrusted, NotUsable,
                     Refused, Screened, TimedOut, TokenRejected)
from .session import (Answer, Filter, Session, connect, convert_time, library_version, phrase_key,
                      set_first_day_of_week, set_phrase_keys, set_phrases)

__all__ = [
    "Answer", "BadAnswer", "BadArgument", "BadStatus", "CancelToken", "Cancelled", "CutOff", "Error",
    "Failed", "Filter", "ForbiddenWords", "NotAllowed", "NotEnabled", "NotReached", "NotTrusted",
    "NotUsable", "Refused", "Screened", "Session", "TimedOut", "TokenRejected", "__version__",
    "connect", "convert_time", "library_version", "phrase_key", "set_first_day_of_week",
    "set_log_level", "set_phrase_keys", "set_phrases",
]
