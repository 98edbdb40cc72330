#!/usr/bin/env python3
"""kwin.py ACTION...: input for KWin, its screenshots, its scale, and a window that keeps the screen on.

move X Y, click N, key KEY (such as super+F9), type TEXT, wait SECONDS; shot FILE writes a PPM image; scale FACTOR
sets that of the screen; film shows a window with an idle inhibitor until it is ended.
"""
import array
import os
import socket
import struct
import sys
import threading
import time

LETTERS = {2: "1234567890-=", 16: "qwertyuiop[]", 30: "asdfghjkl;'", 44: "zxcvbnm,./"}
KEYS = {letter: code + i for code, row in LETTERS.items() for i, letter in enumerate(row)}
KEYS.update(Escape=1, Tab=15, Return=28, shift=42, space=57, F9=67, Up=103, Down=108, super=125)
LEFT_BUTTON = 0x110


def fixed(number):
    return int(float(number) * 256)


class Wayland:
    """A connection of few requests; objects are numbers that it counts."""

    def __init__(self):
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.connect(os.path.join(os.environ["XDG_RUNTIME_DIR"], os.environ["WAYLAND_DISPLAY"]))
        self.received = b""
        self.last = 1
        self.names = {}
        self.registry = self.new(1, 1)
        self.roundtrip()

    def send(self, target, request, *arguments, descriptors=()):
        body = b""
        for argument in arguments:
            if isinstance(argument, str):
                text = argument.encode() + b"\0"
                body += struct.pack("=I", len(text)) + text + bytes(-len(text) % 4)
            else:
                body += struct.pack("=i", argument)
        message = struct.pack("=II", target, (8 + len(body)) << 16 | request) + body
        rights = [(socket.SOL_SOCKET, socket.SCM_RIGHTS, array.array("i", descriptors))] if descriptors else []
        self.socket.sendmsg([message], rights)

    def new(self, target, request, *arguments, descriptors=()):
        self.last += 1
        self.send(target, request, self.last, *arguments, descriptors=descriptors)
        return self.last

    def bind(self, interface, version):
        if interface not in self.names:
            sys.exit("KWin does not offer " + interface)
        self.last += 1
        self.send(self.registry, 0, self.names[interface], interface, version, self.last)
        return self.last

    def event(self):
        while len(self.received) < 8 or len(self.received) < struct.unpack_from("=I", self.received, 4)[0] >> 16:
            data = self.socket.recv(65536)
            if not data:
                sys.exit("KWin has ended")
            self.received += data
        source, head = struct.unpack_from("=II", self.received)
        body, self.received = self.received[8 : head >> 16], self.received[head >> 16 :]
        if source == 1 and head & 0xFFFF == 0:
            sys.exit(f"KWin reports an error: {body!r}")
        if source == self.registry and head & 0xFFFF == 0:
            name, length = struct.unpack_from("=II", body)
            self.names[body[8 : 7 + length].decode()] = name
        return source, head & 0xFFFF, body

    def roundtrip(self):
        callback = self.new(1, 0)
        while self.event()[0] != callback:
            pass


def give_input(actions):
    wayland = Wayland()
    device = wayland.bind("org_kde_kwin_fake_input", 4)
    wayland.send(device, 0, "trial", "trial")

    def press(request, codes):
        for code in codes:
            wayland.send(device, request, code, 1)
            wayland.roundtrip()
        time.sleep(0.03)
        for code in reversed(codes):
            wayland.send(device, request, code, 0)
            wayland.roundtrip()
        time.sleep(0.03)

    while actions:
        action, argument = actions.pop(0), actions.pop(0)
        if action == "move":
            wayland.send(device, 9, fixed(argument), fixed(actions.pop(0)))
        elif action == "click":
            for _ in range(int(argument)):
                press(2, [LEFT_BUTTON])
        elif action == "key":
            press(10, [KEYS[name] for name in argument.split("+")])
        elif action == "type":
            for letter in argument:
                press(10, [KEYS["shift"], KEYS["2"]] if letter == "@" else [KEYS[letter]])
        elif action == "wait":
            time.sleep(float(argument))
        wayland.roundtrip()


def save_screenshot(name):
    from gi.repository import Gio, GLib

    bus = Gio.bus_get_sync(Gio.BusType.SESSION)
    ours, theirs = os.pipe()
    pixels = bytearray()

    def read():
        while data := os.read(ours, 1 << 20):
            pixels.extend(data)

    reader = threading.Thread(target=read, daemon=True)
    reader.start()
    descriptors = Gio.UnixFDList.new()
    index = descriptors.append(theirs)
    os.close(theirs)
    options = {"native-resolution": GLib.Variant("b", True)}
    reply, _ = bus.call_with_unix_fd_list_sync(
        "org.kde.KWin.ScreenShot2",
        "/org/kde/KWin/ScreenShot2",
        "org.kde.KWin.ScreenShot2",
        "CaptureWorkspace",
        GLib.Variant("(a{sv}h)", (options, index)),
        None,
        Gio.DBusCallFlags.NONE,
        10000,
        descriptors,
        None,
    )
    del descriptors
    reader.join(10)
    width, height = (reply.unpack()[0][key] for key in ("width", "height"))
    image = bytearray(width * height * 3)
    for channel in range(3):
        image[channel::3] = pixels[2 - channel :: 4]
    with open(name, "wb") as file:
        file.write(b"P6 %d %d 255\n" % (width, height) + image)


def set_scale(scale):
    wayland = Wayland()
    output = wayland.bind("kde_output_device_v2", 1)
    change = wayland.new(wayland.bind("kde_output_management_v2", 1), 0)
    wayland.roundtrip()
    wayland.send(change, 4, output, fixed(scale))
    wayland.send(change, 5)
    wayland.roundtrip()


def show_film():
    side = 300
    wayland = Wayland()
    compositor = wayland.bind("wl_compositor", 1)
    memory = os.memfd_create("film")
    os.ftruncate(memory, side * side * 4)
    pool = wayland.new(wayland.bind("wl_shm", 1), 0, side * side * 4, descriptors=[memory])
    buffer = wayland.new(pool, 0, 0, side, side, side * 4, 1)
    surface = wayland.new(compositor, 0)
    shell = wayland.bind("xdg_wm_base", 1)
    window = wayland.new(shell, 2, surface)
    wayland.send(wayland.new(window, 1), 2, "film")
    wayland.new(wayland.bind("zwp_idle_inhibit_manager_v1", 1), 1, surface)
    wayland.send(surface, 6)
    while True:
        source, event, body = wayland.event()
        if source == shell:
            wayland.send(shell, 3, *struct.unpack("=i", body))
        elif source == window and event == 0:
            wayland.send(window, 4, *struct.unpack("=i", body))
            wayland.send(surface, 1, buffer, 0, 0)
            wayland.send(surface, 6)


if sys.argv[1] == "shot":
    save_screenshot(sys.argv[2])
elif sys.argv[1] == "scale":
    set_scale(sys.argv[2])
elif sys.argv[1] == "film":
    show_film()
else:
    give_input(sys.argv[1:])
