#!/usr/bin/env python3
"""Writes every SVG source below svg/ from the few shapes the artwork is made of.

Each file is named after the picture it becomes, so that the states of a button
and the sizes of a tray icon can only differ where they are meant to.
"""

from pathlib import Path

OUT = Path(__file__).resolve().parent / "svg"

INK = "#646464"
INK_DARK = "#4a4a4a"
INK_HOVER = "#a86600"
INK_PRESSED = "#7d4c00"
ACCENT = "#f99c00"
GREEN = "#3fa559"
RED = "#d2423c"
WARM_GREY = "#9b9792"
PANEL = "#fcfbf9"
STRIP = "#f5f2ed"
EDGE = "#3a332b"
STROKE = 1.5
RADIUS = 8


def write(name, width, height, body):
    path = OUT / f"{name}.svg"
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(
        f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" '
        f'viewBox="0 0 {width} {height}">\n{body.strip()}\n</svg>\n',
        encoding="utf-8",
    )


def lines(colour, content, width=STROKE, extra=""):
    return (
        f'<g fill="none" stroke="{colour}" stroke-width="{width}" stroke-linecap="round" '
        f'stroke-linejoin="round"{extra}>{content}</g>\n'
    )


def knock_out(ident, size, hole):
    """A mask that keeps everything but `hole`, so that overlaid marks get a clear gap."""
    return (
        f'<mask id="{ident}" maskUnits="userSpaceOnUse" x="0" y="0" width="{size}" height="{size}">'
        f'<rect width="{size}" height="{size}" fill="#fff"/>{hole}</mask>\n'
    )


# --- the mark: a dial whose two hands make a V -------------------------------

HANDS = "M33 39L46.5 60L64.5 29"
HANDS_HEAVY = "M34 40L46.5 60L63 32"


def mark(x, y, size, ring=ACCENT, hands=INK_DARK, face="#fff", heavy=False):
    ring_width, hand_width, hand_path = (13, 11, HANDS_HEAVY) if heavy else (9, 9, HANDS)
    radius = 46 - ring_width / 2
    return (
        f'<g transform="translate({x} {y}) scale({size / 96:.5f})">'
        f'<circle cx="48" cy="48" r="{radius}" fill="{face}" stroke="{ring}" stroke-width="{ring_width}"/>'
        + lines(hands, f'<path d="{hand_path}"/>', hand_width).strip()
        + "</g>\n"
    )


# --- panels ------------------------------------------------------------------

GLASS = 0.93
DENSE_GLASS = 0.975


def glass(x, y, w, h, strip=0, clip_id="panel", opacity=GLASS):
    """Pane, lighter title strip, hairlines and the accent line, without shadow."""
    out = (
        f'<clipPath id="{clip_id}"><rect x="{x}" y="{y}" width="{w}" height="{h}" rx="{RADIUS}"/></clipPath>\n'
        f'<g clip-path="url(#{clip_id})">\n'
    )
    if strip:
        out += f'<rect x="{x}" y="{y}" width="{w}" height="{strip}" fill="{STRIP}" fill-opacity="{opacity + 0.02}"/>\n'
        out += (
            f'<rect x="{x}" y="{y + strip}" width="{w}" height="{h - strip}" fill="{PANEL}" '
            f'fill-opacity="{opacity}"/>\n'
        )
        out += f'<rect x="{x}" y="{y + strip - 1}" width="{w}" height="1" fill="{EDGE}" fill-opacity="0.1"/>\n'
    else:
        out += f'<rect x="{x}" y="{y}" width="{w}" height="{h}" fill="{PANEL}" fill-opacity="{opacity}"/>\n'
    out += "</g>\n"
    out += (
        f'<rect x="{x + 1.5}" y="{y + 1.5}" width="{w - 3}" height="{h - 3}" rx="{RADIUS - 1.5}" fill="none" '
        f'stroke="#fff" stroke-opacity="0.6"/>\n'
    )
    out += (
        f'<rect x="{x + 0.5}" y="{y + 0.5}" width="{w - 1}" height="{h - 1}" rx="{RADIUS - 0.5}" fill="none" '
        f'stroke="{EDGE}" stroke-opacity="0.22"/>\n'
    )
    out += f'<g clip-path="url(#{clip_id})"><rect x="{x}" y="{y}" width="{w}" height="2" fill="{ACCENT}"/></g>\n'
    return out


def shadow(x, y, w, h, margin):
    # The blurred shape is taken away under the pane, which would otherwise darken.
    return (
        '<filter id="soft" filterUnits="userSpaceOnUse" x="0" y="0" '
        f'width="{w + 2 * margin}" height="{h + 2 * margin}">'
        f'<feGaussianBlur in="SourceAlpha" stdDeviation="{margin / 3:.2f}"/>'
        '<feOffset dy="1" result="blur"/>'
        '<feComposite in="blur" in2="SourceAlpha" operator="out"/></filter>\n'
        f'<g opacity="0.34"><rect x="{x}" y="{y}" width="{w}" height="{h}" rx="{RADIUS}" '
        'fill="#1e1a15" filter="url(#soft)"/></g>\n'
    )


def floating_panel(name, width, height, margin, strip_to=0, decoration="", opacity=GLASS):
    w, h = width - 2 * margin, height - 2 * margin
    strip = strip_to - margin if strip_to else 0
    pane = glass(margin, margin, w, h, strip, opacity=opacity)
    write(name, width, height, shadow(margin, margin, w, h, margin) + pane + decoration)


def panels():
    floating_panel("images/main", 352, 148, 6)
    floating_panel("images/bg_notifications_withLogo", 179, 107, 4, 20, mark(11, 7, 11, heavy=True))
    floating_panel("images/res/images/kalendar_fon", 216, 360, 4, 34)
    # These lie over one another, and a text must not shine through a text.
    for name, width, height in (("task_desc_dialog", 600, 520), ("task_list", 460, 420)):
        floating_panel(f"images/res/images/{name}/background", width, height, 6, 34, opacity=DENSE_GLASS)

    # Both halves are cut from one pane, so they join without a seam.
    top, pane, width = 30, 200, 360
    whole = glass(0, 0, width, top + pane, top)
    write("images/wlogin-top", width, top, whole + mark(12, 6, 18, heavy=True))
    write("images/login", width, pane, f'<g transform="translate(0 -{top})">\n{whole}</g>')


# --- tool buttons on the 24 px grid ------------------------------------------

BELL = (
    '<path d="M12 5.25c-2.75 0-4.5 2-4.5 4.75v3.25L6 15.75h12l-1.5-2.5V10c0-2.75-1.75-4.75-4.5-4.75z"/>'
    '<path d="M10.25 18.25a1.9 1.9 0 0 0 3.5 0"/>'
)
CLOCK = '<circle cx="11.5" cy="11.5" r="6.25"/><path d="M11.5 8v3.75h2.75"/>'


def glyph_menu(c):
    return lines(c, '<path d="M6.5 7.75h11M6.5 11.75h11M6.5 15.75h11"/>')


def glyph_minimize(c):
    return lines(c, '<path d="M7 15.75h10"/>')


def glyph_close(c):
    return lines(c, '<path d="M7.5 7.5l9 9M16.5 7.5l-9 9"/>')


def glyph_bell(c):
    return lines(c, BELL)


def glyph_bell_badge(c):
    badge = ACCENT if c in (INK, INK_HOVER) else c
    return (
        knock_out("gap", 24, '<circle cx="16.75" cy="7.25" r="5"/>')
        + lines(c, BELL, extra=' mask="url(#gap)"')
        + f'<circle cx="16.75" cy="7.25" r="3.5" fill="{badge}"/>\n'
    )


def glyph_bell_crossed(c):
    slash = '<path d="M5.75 5.75l12.5 12.5" stroke-linecap="round"'
    return (
        knock_out("gap", 24, f'{slash} stroke="#000" stroke-width="4.5"/>')
        + lines(c, BELL, extra=' mask="url(#gap)"')
        + lines(c, f"{slash}/>")
    )


def glyph_list(c):
    dots = "".join(f'<circle cx="6.75" cy="{y}" r="1.1" fill="{c}" stroke="none"/>' for y in (7.75, 11.75, 15.75))
    return lines(c, dots + '<path d="M10.5 7.75h7.5M10.5 11.75h7.5M10.5 15.75h7.5"/>')


def glyph_extend(c):
    return (
        knock_out("gap", 24, '<circle cx="17.25" cy="17.25" r="4.75"/>')
        + lines(c, CLOCK, extra=' mask="url(#gap)"')
        + lines(c, '<path d="M17.25 14.25v6M14.25 17.25h6"/>')
    )


def glyph_select(c):
    return lines(c, '<circle cx="12" cy="12" r="7.25"/>') + (
        f'<path d="M10.5 9l4.5 3-4.5 3z" fill="{c}" stroke="{c}" stroke-width="1" stroke-linejoin="round"/>\n'
    )


def plate(opacity):
    return f'<rect x="1" y="1" width="22" height="22" rx="6" fill="{ACCENT}" fill-opacity="{opacity}"/>\n'


def tool_states(glyph):
    yield "normal", glyph(INK)
    yield "hovered", plate(0.16) + glyph(INK_HOVER)
    yield "pressed", plate(0.36) + glyph(INK_PRESSED)
    yield "disabled", f'<g opacity="0.38">{glyph(INK)}</g>'


def tool_buttons():
    glyphs = {
        "pbMenu": glyph_menu,
        "pbMinimize": glyph_minimize,
        "pbClose": glyph_close,
        "pbNotice": glyph_bell,
        "pbNotice_attention": glyph_bell_badge,
        "pbNotice_hidden": glyph_bell_crossed,
        "pbTaskList": glyph_list,
        "pbSelectTask": glyph_select,
    }
    for name, glyph in glyphs.items():
        for state, body in tool_states(glyph):
            write(f"images/{name}" + ("" if state == "normal" else f"_{state}"), 24, 24, body)
    spelling = {"normal": "normal", "hovered": "Hovered", "pressed": "Pressed", "disabled": "disabled"}
    for state, body in tool_states(glyph_extend):
        if state in spelling:
            write(f"icons/res/icons/pbTimeExtend_NoActive_{spelling[state]}", 24, 24, body)


# --- small pictures ----------------------------------------------------------


def small_icons():
    box = '<rect x="3.25" y="3.25" width="13.5" height="13.5" rx="3.25"/>'
    write("images/pbTask", 20, 20, lines(INK, box) + lines(ACCENT, '<path d="M6.75 10.25l2.25 2.25 4.5-4.75"/>', 2))
    write(
        "images/pbTaskBlocked", 20, 20,
        f'<circle cx="10" cy="10" r="7.5" fill="{RED}"/>' + lines("#fff", '<path d="M6.75 10h6.5"/>', 2.25),
    )
    write(
        "images/pbTaskUrgentGrey", 20, 20,
        f'<rect x="2.5" y="2.5" width="15" height="15" rx="4" fill="{INK_DARK}"/>'
        + lines("#fff", '<path d="M10 6v4.75"/>', 2.25)
        + '<circle cx="10" cy="14" r="1.35" fill="#fff"/>',
    )
    write(
        "images/taskCurrent", 24, 24,
        f'<circle cx="12" cy="12" r="8" fill="{ACCENT}"/>' + lines("#fff", '<path d="M8.25 12.25l2.5 2.5 5-5.25"/>', 2),
    )
    write(
        "images/pbComment", 20, 20,
        lines(INK, '<path d="M5.5 3.25h9a2.25 2.25 0 0 1 2.25 2.25v5.5a2.25 2.25 0 0 1-2.25 2.25H10l-3.5 3.25'
                   'v-3.25h-1A2.25 2.25 0 0 1 3.25 11V5.5A2.25 2.25 0 0 1 5.5 3.25z"/>'
                   '<path d="M6.75 6.75h6.5M6.75 9.75h4"/>'),
    )
    write(
        "icons/res/icons/calendar_icon", 20, 20,
        lines(INK, '<rect x="3.25" y="4.25" width="13.5" height="12.5" rx="2.25"/>'
                   '<path d="M3.25 8.25h13.5M6.75 2.75v3M13.25 2.75v3"/>')
        + f'<rect x="10.5" y="10.75" width="3.5" height="3.5" rx="1" fill="{ACCENT}"/>',
    )
    write(
        "images/res/images/task_desc_dialog/attachment_icon", 16, 16,
        lines(INK, '<path d="M12.75 7.25l-4.9 4.9a2.9 2.9 0 0 1-4.1-4.1l5.3-5.3a1.95 1.95 0 0 1 2.75 2.75'
                   'l-5.1 5.1a.95.95 0 0 1-1.35-1.35l4.4-4.4"/>', 1.25),
    )
    write("icons/res/icons/pbarrow_left", 24, 24, lines(INK, '<path d="M14 7.5L9.5 12l4.5 4.5"/>'))
    write("icons/res/icons/pbarrow_right", 24, 24, lines(INK, '<path d="M10 7.5l4.5 4.5-4.5 4.5"/>'))

    strokes = {
        "combo_arrow": "M3 4.5l3 3 3-3",
        "spin_up": "M3 7.5l3-3 3 3",
        "spin_down": "M3 4.5l3 3 3-3",
        "check": "M2.5 6.25l2.5 2.5 4.5-5",
    }
    for name, path in strokes.items():
        for suffix, opacity in (("", 1), ("_disabled", 0.38)):
            body = lines(INK, f'<path d="{path}"/>', 1.75 if name == "check" else STROKE)
            write(f"images/{name}{suffix}", 12, 12, f'<g opacity="{opacity}">{body}</g>')


def message_icons():
    dot = '<circle cx="16" cy="{}" r="1.5" fill="{}" stroke="none"/>'
    ring = '<circle cx="16" cy="16" r="13"/>'
    pictures = {
        "question": lines(ACCENT, ring, 2)
        + lines(INK_DARK, '<path d="M12.5 12.75a3.5 3.5 0 1 1 5.5 2.85c-1.25.85-2 1.5-2 2.9"/>'
                + dot.format(22.5, INK_DARK), 2),
        "information": lines(INK, ring, 2) + lines(INK_DARK, '<path d="M16 15v7.5"/>' + dot.format(10.25, INK_DARK), 2),
        "warning": lines(ACCENT, '<path d="M16 4.5l13 22.5h-26z"/>', 2)
        + lines(INK_DARK, '<path d="M16 12v7"/>' + dot.format(23, INK_DARK), 2),
        "critical": lines(RED, ring, 2) + lines(RED, '<path d="M11.75 11.75l8.5 8.5M20.25 11.75l-8.5 8.5"/>', 2),
    }
    for name, body in pictures.items():
        write(f"images/message_{name}", 32, 32, body)


def page_buttons():
    looks = {
        "normal": (EDGE, 0.045, EDGE, 0.16),
        "hovered": (ACCENT, 0.14, ACCENT, 1),
        "pressed": (ACCENT, 0.34, ACCENT, 1),
        "disabled": (EDGE, 0.02, EDGE, 0.07),
    }
    for state, (fill, fill_opacity, line, line_opacity) in looks.items():
        thickness = 2 if line == ACCENT else 1
        # Qt cuts a border image at source pixels whatever its device pixel ratio:
        # the dense variant has rims as wide as the other's and a larger middle.
        for variant, width, height in (("", 32, 24), ("@2x", 64, 48)):
            write(
                f"images/res/images/task_desc_dialog/descr_button_{state}{variant}", width, height,
                f'<path d="M0 {height}V6a6 6 0 0 1 6-6h{width - 12}a6 6 0 0 1 6 6v{height - 6}z" '
                f'fill="{fill}" fill-opacity="{fill_opacity}"/>'
                f'<rect y="{height - thickness}" width="{width}" height="{thickness}" fill="{line}" '
                f'fill-opacity="{line_opacity}"/>',
            )


# --- the start/stop button ---------------------------------------------------

PLAY_GLYPH = '<path d="M23.5 19.5l13.5 8.5-13.5 8.5z" stroke-width="3" stroke-linejoin="round"/>'
PAUSE_GLYPH = (
    '<rect x="20.5" y="19" width="5.5" height="18" rx="1.5" stroke="none"/>'
    '<rect x="30" y="19" width="5.5" height="18" rx="1.5" stroke="none"/>'
)
SHADES = {  # normal, hovered, pressed
    GREEN: (GREEN, "#4bb567", "#338a49"),
    ACCENT: (ACCENT, "#ffae26", "#dc8900"),
    WARM_GREY: (WARM_GREY, "#aaa6a1", "#85817c"),
}
OFFLINE_MARK = (
    '<circle cx="41.5" cy="41.5" r="8" fill="#fff"/>'
    f'<circle cx="41.5" cy="41.5" r="7.25" fill="none" stroke="{INK}" stroke-width="1.5"/>'
    f'<path d="M38 38l7 7" stroke="{INK}" stroke-width="1.75" stroke-linecap="round"/>'
)


def start_stop():
    for glyph_name, glyph, online in (("Play", PLAY_GLYPH, GREEN), ("Pause", PAUSE_GLYPH, ACCENT)):
        for mode, colour in (("Online", online), ("Offline", WARM_GREY)):
            for index, suffix in enumerate(("", "_hovered", "_hovered_clicked")):
                shade = SHADES[colour][index]
                body = f'<circle cx="28" cy="28" r="23" fill="{shade}"/>'
                if suffix == "_hovered":
                    body = f'<circle cx="28" cy="28" r="25" fill="{shade}" fill-opacity="0.28"/>' + body
                body += f'<g fill="#fff" stroke="#fff">{glyph}</g>'
                if mode == "Offline":
                    body = (
                        knock_out("gap", 56, '<circle cx="41.5" cy="41.5" r="10"/>')
                        + f'<g mask="url(#gap)">{body}</g>{OFFLINE_MARK}'
                    )
                write(f"images/pb{glyph_name}_{mode}{suffix}", 56, 56, body)
    write(
        "images/pbPlay_Disabled", 56, 56,
        f'<circle cx="28" cy="28" r="22.25" fill="{EDGE}" fill-opacity="0.05" stroke="{EDGE}" '
        'stroke-opacity="0.2" stroke-width="1.5"/>'
        f'<g fill="{EDGE}" stroke="{EDGE}" opacity="0.28">{PLAY_GLYPH}</g>',
    )


# --- tray --------------------------------------------------------------------


def tray(size, active, attention):
    centre = size / 2
    radius = {16: 6.5, 22: 9, 24: 10}[size]
    stroke = {16: 1.75, 22: 2.25, 24: 2.5}[size]
    reach = radius / 45
    hands = "L".join(f"{centre + (x - 48) * reach:.2f} {centre + (y - 48) * reach:.2f}"
                     for x, y in ((28, 38), (45, 66), (67, 29)))
    hands = f'<path d="M{hands}"/>'
    if active:
        body = (
            f'<circle cx="{centre}" cy="{centre}" r="{radius + 0.5}" fill="#6b4300" fill-opacity="0.55"/>'
            f'<circle cx="{centre}" cy="{centre}" r="{radius - 0.25}" fill="{ACCENT}"/>'
            + lines("#fff", hands, stroke)
        )
    else:
        body = (
            f'<circle cx="{centre}" cy="{centre}" r="{radius + 0.75}" fill="#fff"/>'
            + lines(INK, f'<circle cx="{centre}" cy="{centre}" r="{radius - stroke / 2:.2f}"/>', stroke)
            + lines(INK, hands, stroke * 0.85)
        )
    if attention:
        spot = {16: 4, 22: 5.25, 24: 5.75}[size]
        x, y = size - spot, spot
        body = (
            knock_out("gap", size, f'<circle cx="{x}" cy="{y}" r="{spot + 1}"/>')
            + f'<g mask="url(#gap)">{body}</g>'
            + f'<circle cx="{x}" cy="{y}" r="{spot}" fill="#fff"/>'
            + f'<circle cx="{x}" cy="{y}" r="{spot - 1}" fill="{RED}"/>'
        )
    return body


def tray_icons():
    names = {
        "trayActive": (True, False),
        "trayNotActive": (False, False),
        "trayActive_attention": (True, True),
        "trayNotactive_attention": (False, True),
    }
    for name, (active, attention) in names.items():
        for size in (24, 22, 16):
            suffix = "" if size == 24 else f"_{size}"
            write(f"icons/{name}{suffix}", size, size, tray(size, active, attention))


def logos():
    write("images/res/images/OV", 96, 96, mark(0, 0, 96))
    write("orvana", 96, 96, mark(0, 0, 96))
    write("orvana-small", 96, 96, mark(0, 0, 96, heavy=True))


if __name__ == "__main__":
    panels()
    tool_buttons()
    small_icons()
    message_icons()
    page_buttons()
    start_stop()
    tray_icons()
    logos()
