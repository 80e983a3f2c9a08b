#!/usr/bin/env python3
"""Runs queries in both ways, with a time limit, and submits feedback on an answer:

    VELTRA_APP_KEY=... VELTRA_SECRET_KEY=... ask.py GATEWAY-URL [CA-FILE]
"""

import asyncio
import logging
import os
import sys
from typing import List

import veltra

NAMES = ["Grace", "Katherine", "Dorothy"]


async def greet_all(session: veltra.Session) -> List[str]:
    """Queries for all at once; whoever isn't greeted within two seconds is left out."""
    questions = [session.aquery("greeting", {"name": name, "place": "the team"}, timeout=2) for name in NAMES]
    answers = await asyncio.gather(*questions, return_exceptions=True)
    return [answer.text if isinstance(answer, veltra.Answer) else str(answer) for answer in answers]


def main() -> int:
    app_key, secret_key = (os.environ.get(f"VELTRA_{name}_KEY") for name in ("APP", "SECRET"))
    if len(sys.argv) not in (2, 3) or not app_key or not secret_key:
        print("usage: VELTRA_APP_KEY=... VELTRA_SECRET_KEY=... ask.py GATEWAY-URL [CA-FILE]", file=sys.stderr)
        return 2
    logging.basicConfig(level=logging.WARNING)  # the library's records go there, under "veltra"
    try:
        with veltra.connect(sys.argv[1], [(app_key, secret_key)], ca_file="".join(sys.argv[2:])) as session:
            answer = session.query("greeting", {"name": "Ada", "place": "the library"}, timeout=10)
            print(answer.text)
            feedback = session.feedback(answer.trace_id, satisfaction=2, comments='I said "no"')
            session.withdraw(feedback)  # on second thoughts
            print("\n".join(asyncio.run(greet_all(session))))
    except veltra.Error as error:
        print(f"{type(error).__name__}: {error}", file=sys.stderr)
        return 1
    return 0


sys.exit(main())
