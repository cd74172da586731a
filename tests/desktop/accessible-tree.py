#!/usr/bin/python3
"""Prints Deckwright's windows as a screen reader finds them over AT-SPI: each
object's role and name, a value where it has one, and whether the keyboard can
reach it (focusable) and act on it (its actions).

Needs python3-pyatspi, a session bus with the accessibility bus on it, and the
program started with QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1, for example:

    dbus-run-session -- sh -c '/usr/libexec/at-spi-bus-launcher --launch-immediately &
        QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1 deckwright & sleep 5;
        tests/desktop/accessible-tree.py'

Usage: accessible-tree.py [APPLICATION_NAME]   (default: deckwright)
"""
import sys

import pyatspi


def describe(node):
    parts = [node.getRoleName(), '"%s"' % node.name]
    try:
        value = node.queryValue()
        parts.append("value=%g [%g..%g]" % (value.currentValue, value.minimumValue, value.maximumValue))
    except NotImplementedError:
        pass
    states = node.getState()
    parts += [name for state, name in ((pyatspi.STATE_FOCUSABLE, "focusable"), (pyatspi.STATE_FOCUSED, "focused"))
              if states.contains(state)]
    try:
        action = node.queryAction()
        names = [action.getName(i) for i in range(action.nActions)]
        if names:
            parts.append("actions=" + ",".join(names))
    except NotImplementedError:
        pass
    try:
        text = node.queryHypertext()
        for i in range(text.getNLinks()):
            link = text.getLink(i)
            parts.append("link %d..%d" % (link.startIndex, link.endIndex))
    except NotImplementedError:
        pass
    return " ".join(parts)


def dump(node, depth):
    if node is None:
        return
    states = node.getState()
    if depth > 1 and not states.contains(pyatspi.STATE_SHOWING):
        return  # hidden widgets say nothing to a listener
    print("  " * depth + describe(node))
    for i in range(node.childCount):
        dump(node.getChildAtIndex(i), depth + 1)


def main():
    wanted = sys.argv[1] if len(sys.argv) > 1 else "deckwright"
    found = False
    for app in pyatspi.Registry.getDesktop(0):
        if app is not None and app.name.lower() == wanted.lower():
            found = True
            dump(app, 0)
    if not found:
        sys.exit("no application named %s on the accessibility bus" % wanted)


main()
