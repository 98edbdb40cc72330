#!/usr/bin/env python3
"""compare-minutes.py [--counts] [--seconds N] JOURNAL... SERVICE
Compares what orvana-minutes --json says (a file for each user) with what orvana-localservice has
accepted (a file, or the URL of its /minutes), minute by minute, and prints what differs. The moments of
a minute may be N seconds apart, 5 when not given; with --counts they do not matter, as where a clock
runs faster than the other. Exit code 1: something differs; 2: wrong arguments or unreadable input."""
import argparse
import bisect
import collections
import datetime
import json
import math
import ssl
import sys
import urllib.request


def load(source):
    if source.startswith("https://"):
        # The service makes its certificate at each start.
        context = ssl._create_unverified_context()
        opener = urllib.request.build_opener(urllib.request.ProxyHandler({}),
                                             urllib.request.HTTPSHandler(context=context))
        with opener.open(source) as reply:
            return json.load(reply)
    with open(source, encoding="utf-8") as file:
        return json.load(file)


def moment(text):
    return datetime.datetime.fromisoformat(text).timestamp()


def key(user, minute):
    return user, minute["team_id"], minute["task_id"], minute["active"]


def take(moments, at, seconds):
    """Removes the moment that is nearest, if it is near enough, from a sorted list."""
    after = bisect.bisect_left(moments, at)
    nearest = min(range(max(0, after - 1), min(after + 1, len(moments))),
                  key=lambda i: abs(moments[i] - at), default=None)
    if nearest is None or abs(moments[nearest] - at) > seconds:
        return False
    del moments[nearest]
    return True


def differences(journals, service, seconds):
    periods = {journal["user"]: (journal["from"], journal["to"]) for journal in journals}
    arrived = collections.defaultdict(list)
    for minute in service["minutes"]:
        first, last = periods.get(minute["user"], ("", ""))
        if first and (seconds == math.inf or first <= minute["made"][:10] <= last):
            bisect.insort(arrived[key(minute["user"], minute)], moment(minute["made"]))
    if service["count"] > len(service["minutes"]):
        yield "the service shows only its latest minutes"
    minutes = [(journal["user"], minute) for journal in journals for minute in journal["minutes"]]
    # What must have arrived has the first choice.
    for user, minute in sorted(minutes, key=lambda each: each[1]["state"] != "accepted"):
        here = take(arrived[key(user, minute)], moment(minute["at"]), seconds)
        if here != (minute["state"] == "accepted") and (here or minute["state"] != "waiting"):
            yield (f"{'the service has' if here else 'the service lacks'} a minute that is {minute['state']}: "
                   f"{user} {minute['at']} {minute['team_id']} {minute['task_id']} {minute['active']}")
        elif minute["state"] == "missing":
            yield f"neither side has accepted it: {user} {minute['at']}"
    for (user, team, task, active), moments in arrived.items():
        for at in moments:
            yield f"only the service has: {user} {datetime.datetime.fromtimestamp(at).isoformat()} {team} {task} {active}"


def main():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("--counts", action="store_true")
    parser.add_argument("--seconds", type=float, default=5)
    parser.add_argument("journal", nargs="+")
    parser.add_argument("service")
    arguments = parser.parse_args()
    try:
        journals = [load(name) for name in arguments.journal]
        found = list(differences(journals, load(arguments.service), math.inf if arguments.counts else arguments.seconds))
    except (OSError, ValueError, KeyError) as problem:
        print(f"compare-minutes.py: {problem!r}", file=sys.stderr)
        return 2
    print("\n".join(found) or f"{sum(len(journal['minutes']) for journal in journals)} minutes agree")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
