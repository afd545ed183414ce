#!/usr/bin/python3
"""Prints the accessibility tree of one running application, as a screen reader reads it
through AT-SPI, as JSON: a list of its top-level windows, each node with its role, name,
description, states and children.

    atspi-tree.py PID

Exits with 1 when no application with that process id is on the accessibility bus.
"""
import json
import sys

import pyatspi


def node(accessible, depth=0):
    states = accessible.getState().getStates()
    children = []
    if depth < 60:
        for index in range(accessible.childCount):
            child = accessible.getChildAtIndex(index)
            if child is not None:
                children.append(node(child, depth + 1))
    return {
        "role": accessible.getRoleName(),
        "name": accessible.name or "",
        "description": accessible.description or "",
        "states": sorted(pyatspi.stateToString(state) for state in states),
        "children": children,
    }


def main():
    pid = int(sys.argv[1])
    desktop = pyatspi.Registry.getDesktop(0)
    for index in range(desktop.childCount):
        application = desktop.getChildAtIndex(index)
        try:
            if application is None or application.get_process_id() != pid:
                continue
        except Exception:
            continue
        windows = [node(application.getChildAtIndex(i)) for i in range(application.childCount)]
        json.dump(windows, sys.stdout)
        return 0
    return 1


if __name__ == "__main__":
    sys.exit(main())
