#!/usr/bin/env python3
"""pattern.py PICTURE...: a window that shows the pictures in turn, a third of a second each.

With PATTERN_FULLSCREEN=1 it fills the screen; otherwise the caller sees to that.
"""
import os
import sys

import gi

gi.require_version("Gtk", "3.0")
gi.require_version("GdkPixbuf", "2.0")
from gi.repository import GdkPixbuf, GLib, Gtk  # noqa: E402

pictures = [GdkPixbuf.Pixbuf.new_from_file(name) for name in sys.argv[1:]]
shown = 0


def show_next():
    global shown
    shown += 1
    image.set_from_pixbuf(pictures[shown % len(pictures)])
    return True


GLib.set_prgname("pattern")
window = Gtk.Window(title="pattern", decorated=False)
image = Gtk.Image.new_from_pixbuf(pictures[0])
# The window may be smaller than the picture, whose upper left corner stays where it is.
layout = Gtk.Layout()
layout.put(image, 0, 0)
window.add(layout)
window.set_default_size(pictures[0].get_width(), pictures[0].get_height())
window.connect("destroy", Gtk.main_quit)
if os.environ.get("PATTERN_FULLSCREEN") == "1":
    window.fullscreen()
window.show_all()
GLib.timeout_add(350, show_next)
Gtk.main()
