#!/usr/bin/env python3
"""gnome-input.py PIPE ANSWERS: real keys and clicks for GNOME, one command a line of the pipe, one
answer a command: move X Y, click COUNT, keys NAME..., type TEXT.
"""
import os
import sys
import time

import dbus
import gi

gi.require_version("Gdk", "3.0")
from gi.repository import Gdk  # noqa: E402

NAME = "org.gnome.Mutter.RemoteDesktop"
LEFT_BUTTON = 0x110

bus = dbus.SessionBus()
service = dbus.Interface(bus.get_object(NAME, "/org/gnome/Mutter/RemoteDesktop"), NAME)
session = dbus.Interface(bus.get_object(NAME, service.CreateSession()), NAME + ".Session")
session.Start()


def press(symbols):
    for is_down, order in ((True, symbols), (False, symbols[::-1])):
        for symbol in order:
            session.NotifyKeyboardKeysym(dbus.UInt32(symbol), is_down)
            time.sleep(0.02)


def obey(command, *words):
    if command == "move":
        # From the corner, because it knows only differences.
        session.NotifyPointerMotionRelative(-9999.0, -9999.0)
        session.NotifyPointerMotionRelative(float(words[0]), float(words[1]))
        time.sleep(0.05)
    elif command == "click":
        for is_down in [True, False] * int(words[0]):
            session.NotifyPointerButton(dbus.Int32(LEFT_BUTTON), is_down)
            time.sleep(0.05)
    elif command == "keys":
        for word in words:
            names = word.replace("super+", "Super_L+").split("+")
            press([Gdk.keyval_from_name(name) for name in names])
    elif command == "type":
        for character in " ".join(words):
            press([Gdk.unicode_to_keyval(ord(character))])


# The first key of a new keyboard gets lost.
press([Gdk.KEY_Shift_L])
time.sleep(0.3)
# Open for both, neither ever ends.
pipe = os.fdopen(os.open(sys.argv[1], os.O_RDWR))
answers = os.open(sys.argv[2], os.O_RDWR)
while True:
    obey(*pipe.readline().rstrip("\n").split(" "))
    os.write(answers, b"done\n")
