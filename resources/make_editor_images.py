#!/usr/bin/python3
"""Draws the editor's images into resources/PNG/ (run: /usr/bin/python3 resources/make_editor_images.py).

The faceplate places a label and a scale around every control at the position the
built-in description gives it (plugin/core/builtin.xml, UIProperties), so the
artwork follows the document. Needs python3-cairo.
"""
import math
import os
import xml.etree.ElementTree as ET

import cairo

HERE = os.path.dirname(os.path.abspath(__file__))
OUT = os.path.join(HERE, "PNG")
DOC = os.path.join(HERE, "..", "plugin", "core", "builtin.xml")

KNOB = 70
KNOB_FRAMES = 61
SWEEP = math.radians(300)  # a knob turns through 300 degrees, 0 at seven o'clock
CREAM = (0.93, 0.89, 0.78)
INK = (0.16, 0.13, 0.11)
FONT = "DejaVu Sans"


def controls():
    root = ET.parse(DOC).getroot()
    out = {}
    for c in root.iter("Control"):
        ui = c.find("UIProperties")
        out[c.get("Name")] = {k: float(ui.get(k)) for k in ("X", "Y", "Width", "Height")}
    return out


def text(cr, s, x, y, size, bold=True, colour=INK, anchor="centre"):
    cr.select_font_face(FONT, cairo.FONT_SLANT_NORMAL, cairo.FONT_WEIGHT_BOLD if bold else cairo.FONT_WEIGHT_NORMAL)
    cr.set_font_size(size)
    ext = cr.text_extents(s)
    dx = {"centre": -ext.width / 2 - ext.x_bearing, "left": -ext.x_bearing, "right": -ext.width - ext.x_bearing}[anchor]
    cr.move_to(x + dx, y - ext.height / 2 - ext.y_bearing)
    cr.set_source_rgb(*colour)
    cr.show_text(s)


def knob_angle(v):
    """Angle from twelve o'clock, clockwise, of value v in [0, 1]."""
    return -SWEEP / 2 + SWEEP * v


def shaded_disc(cr, x, y, r, light, dark, highlight=(-3, -3), inner=1):
    """A disc lit from the upper left: `light` at the highlight fading to `dark` at the rim."""
    rg = cairo.RadialGradient(x + highlight[0], y + highlight[1], inner, x, y, r + 1)
    rg.add_color_stop_rgb(0, *light)
    rg.add_color_stop_rgb(1, *dark)
    cr.set_source(rg)
    cr.arc(x, y, r, 0, 2 * math.pi)
    cr.fill()


def rounded_rect(cr, x, y, w, h, r):
    cr.new_sub_path()
    cr.arc(x + w - r, y + r, r, -math.pi / 2, 0)
    cr.arc(x + w - r, y + h - r, r, 0, math.pi / 2)
    cr.arc(x + r, y + h - r, r, math.pi / 2, math.pi)
    cr.arc(x + r, y + r, r, math.pi, 3 * math.pi / 2)
    cr.close_path()


def background(ctl):
    w, h = 730, 340
    s = cairo.ImageSurface(cairo.FORMAT_ARGB32, w, h)
    cr = cairo.Context(s)
    # Black tolex frame around a cream enamel panel.
    cr.set_source_rgb(0.08, 0.07, 0.07)
    cr.paint()
    for i in range(0, w, 3):
        cr.set_source_rgba(1, 1, 1, 0.025 if (i * 7) % 5 else 0.045)
        cr.rectangle(i, 0, 1, h)
        cr.fill()
    rounded_rect(cr, 8, 8, w - 16, h - 16, 10)
    g = cairo.LinearGradient(0, 0, 0, h)
    g.add_color_stop_rgb(0, 0.96, 0.93, 0.84)
    g.add_color_stop_rgb(1, 0.86, 0.81, 0.69)
    cr.set_source(g)
    cr.fill_preserve()
    cr.set_source_rgb(0.55, 0.45, 0.30)
    cr.set_line_width(2)
    cr.stroke()
    # Four panel screws.
    for sx, sy in ((20, 20), (w - 20, 20), (20, h - 20), (w - 20, h - 20)):
        shaded_disc(cr, sx, sy, 5.5, (0.95, 0.95, 0.95), (0.45, 0.45, 0.45), highlight=(-2, -2))
        cr.set_source_rgb(0.3, 0.3, 0.3)
        cr.set_line_width(1.2)
        cr.move_to(sx - 4, sy + 1.5)
        cr.line_to(sx + 4, sy - 1.5)
        cr.stroke()

    # Section boxes: the tone stack above, the drive below, the switches in the middle.
    cr.set_source_rgb(*INK)
    cr.set_line_width(1)
    for x, y, bw, bh, title in ((22, 28, 290, 132, "TONE"), (22, 168, 290, 132, "DRIVE")):
        rounded_rect(cr, x + 0.5, y + 0.5, bw, bh, 6)
        cr.stroke()
        cr.set_source_rgb(0.93, 0.89, 0.79)
        cr.rectangle(x + bw / 2 - 24, y - 6, 48, 12)
        cr.fill()
        text(cr, title, x + bw / 2, y, 10)
        cr.set_source_rgb(*INK)

    # Knob scales: eleven ticks, numbered at 0, 5 and 10, the name underneath.
    names = {"Input": "INPUT", "Gain": "GAIN", "Vol": "VOLUME", "Bass": "BASS", "Treble": "TREBLE"}
    for name, label in names.items():
        c = ctl[name]
        cx, cy = c["X"] + c["Width"] / 2, c["Y"] + c["Height"] / 2
        for i in range(11):
            a = knob_angle(i / 10)
            r0, r1 = 37, 41 if i % 5 else 44
            cr.set_line_width(1.6 if i % 5 == 0 else 1)
            cr.move_to(cx + r0 * math.sin(a), cy - r0 * math.cos(a))
            cr.line_to(cx + r1 * math.sin(a), cy - r1 * math.cos(a))
            cr.stroke()
            if i % 5 == 0:
                text(cr, str(i), cx + 50 * math.sin(a), cy - 50 * math.cos(a), 8, bold=False)
        text(cr, label, cx, cy + 52, 11)

    # Two-way toggles: the upper position is the value 1.
    toggles = {"EQ_Position": ("EQ POSITION", "PRE", "POST"), "CPU": ("CPU", "TABLE", "CIRCUIT"),
               "Stereo": ("STEREO", "MONO", "STEREO")}
    for name, (label, up, down) in toggles.items():
        c = ctl[name]
        cx, top, bottom = c["X"] + c["Width"] / 2, c["Y"], c["Y"] + c["Height"]
        text(cr, up, cx, top - 7, 8)
        text(cr, down, cx, bottom + 6, 8)
        text(cr, label, cx, bottom + 21, 10)

    # The three-way oversampling switch: a plate, the factors over their positions.
    c = ctl["Oversampling"]
    x, y, sw, sh = c["X"], c["Y"], c["Width"], c["Height"]
    rounded_rect(cr, x - 14, y - 24, sw + 28, sh + 56, 5)
    cr.set_line_width(1)
    cr.stroke()
    for i, f in enumerate(("1x", "2x", "4x")):
        px = x + 7 + i * (sw - 14) / 2
        text(cr, f, px, y - 10, 8)
        cr.move_to(px, y - 4)
        cr.line_to(px, y - 1)
        cr.stroke()
    text(cr, "OVER-", x + sw / 2, y + sh + 12, 9)
    text(cr, "SAMPLING", x + sw / 2, y + sh + 23, 9)

    # Name plate.
    px, py, pw, ph = 500, 40, 205, 150
    rounded_rect(cr, px, py, pw, ph, 8)
    cr.set_source_rgb(0.12, 0.10, 0.09)
    cr.fill_preserve()
    cr.set_source_rgb(0.72, 0.58, 0.32)
    cr.set_line_width(2)
    cr.stroke()
    cr.select_font_face("DejaVu Serif", cairo.FONT_SLANT_ITALIC, cairo.FONT_WEIGHT_BOLD)
    cr.set_font_size(64)
    ext = cr.text_extents("Kelm")
    cr.move_to(px + pw / 2 - ext.width / 2 - ext.x_bearing, py + 82)
    gold = cairo.LinearGradient(0, py + 30, 0, py + 90)
    gold.add_color_stop_rgb(0, 0.98, 0.86, 0.55)
    gold.add_color_stop_rgb(1, 0.70, 0.52, 0.22)
    cr.set_source(gold)
    cr.show_text("Kelm")
    text(cr, "TUBE PREAMP", px + pw / 2, py + 108, 13, colour=(0.93, 0.89, 0.78))
    text(cr, "12AX7  \u00b7  BAXANDALL", px + pw / 2, py + 128, 9, bold=False, colour=(0.80, 0.74, 0.62))
    text(cr, "TALLOWBRIDGE LABS", 602, 236, 10)
    # Pilot lamp.
    lx, ly = 602, 272
    cr.set_source_rgb(0.25, 0.22, 0.2)
    cr.arc(lx, ly, 11, 0, 2 * math.pi)
    cr.fill()
    shaded_disc(cr, lx, ly, 8, (1.0, 0.85, 0.5), (0.75, 0.18, 0.05))
    return s


def knob_frame(cr, v):
    c = KNOB / 2
    # Shadow, skirt, cap.
    cr.set_source_rgba(0, 0, 0, 0.35)
    cr.arc(c + 1.5, c + 2.5, 33, 0, 2 * math.pi)
    cr.fill()
    g = cairo.LinearGradient(0, 0, 0, KNOB)
    g.add_color_stop_rgb(0, 0.30, 0.28, 0.27)
    g.add_color_stop_rgb(1, 0.06, 0.05, 0.05)
    cr.set_source(g)
    cr.arc(c, c, 32, 0, 2 * math.pi)
    cr.fill()
    # Knurled edge turns with the knob.
    a0 = knob_angle(v)
    cr.set_line_width(1)
    for i in range(36):
        a = a0 + i * 2 * math.pi / 36
        cr.set_source_rgba(1, 1, 1, 0.10)
        cr.move_to(c + 27 * math.sin(a), c - 27 * math.cos(a))
        cr.line_to(c + 31.5 * math.sin(a), c - 31.5 * math.cos(a))
        cr.stroke()
    shaded_disc(cr, c, c, 25, (0.42, 0.40, 0.38), (0.10, 0.09, 0.09), highlight=(-8, -10), inner=2)
    # The pointer: a cream line from near the centre to the rim.
    cr.set_source_rgb(*CREAM)
    cr.set_line_width(3.5)
    cr.set_line_cap(cairo.LINE_CAP_ROUND)
    cr.move_to(c + 8 * math.sin(a0), c - 8 * math.cos(a0))
    cr.line_to(c + 30 * math.sin(a0), c - 30 * math.cos(a0))
    cr.stroke()


def strip(width, frame_height, frames, draw):
    """A bitmap of frames stacked from the top; draw(cr, i) paints frame i at the origin."""
    s = cairo.ImageSurface(cairo.FORMAT_ARGB32, width, frame_height * frames)
    cr = cairo.Context(s)
    for i in range(frames):
        cr.save()
        cr.translate(0, i * frame_height)
        draw(cr, i)
        cr.restore()
    return s


def knob_strip():
    return strip(KNOB, KNOB, KNOB_FRAMES, lambda cr, i: knob_frame(cr, i / (KNOB_FRAMES - 1)))


def horizontal_switch_frame(cr, i):
    """The slot of the three-way switch with its lever at position i."""
    w = 40
    rounded_rect(cr, 1, 5, w - 2, 10, 5)
    cr.set_source_rgb(0.10, 0.09, 0.08)
    cr.fill()
    x = 7 + i * 13
    g = cairo.LinearGradient(0, 1, 0, 19)
    g.add_color_stop_rgb(0, 0.97, 0.97, 0.95)
    g.add_color_stop_rgb(1, 0.55, 0.55, 0.55)
    rounded_rect(cr, x - 6, 1, 12, 18, 3)
    cr.set_source(g)
    cr.fill_preserve()
    cr.set_source_rgb(0.25, 0.25, 0.25)
    cr.set_line_width(1)
    cr.stroke()
    for gx in (-2.5, 0, 2.5):
        cr.move_to(x + gx + 0.5, 5)
        cr.line_to(x + gx + 0.5, 15)
    cr.stroke()


def toggle_frame(cr, i):
    """A bat toggle on its hex nut: frame 0 points down, frame 1 up."""
    c = 28
    cr.set_source_rgb(0.62, 0.62, 0.60)
    for k in range(6):
        a = math.pi / 6 + k * math.pi / 3
        (cr.move_to if k == 0 else cr.line_to)(c + 14 * math.cos(a), c + 14 * math.sin(a))
    cr.close_path()
    cr.fill_preserve()
    cr.set_source_rgb(0.3, 0.3, 0.3)
    cr.set_line_width(1)
    cr.stroke()
    shaded_disc(cr, c, c, 8, (0.95, 0.95, 0.95), (0.35, 0.35, 0.35), highlight=(-2, -2))
    tip = c + 22 if i == 0 else c - 22
    g = cairo.LinearGradient(c - 4, 0, c + 4, 0)
    g.add_color_stop_rgb(0, 0.55, 0.55, 0.55)
    g.add_color_stop_rgb(0.4, 1.0, 1.0, 1.0)
    g.add_color_stop_rgb(1, 0.45, 0.45, 0.45)
    cr.set_source(g)
    cr.move_to(c - 3, c)
    cr.line_to(c - 4.5, tip)
    cr.line_to(c + 4.5, tip)
    cr.line_to(c + 3, c)
    cr.close_path()
    cr.fill()
    cr.arc(c, tip, 5, 0, 2 * math.pi)
    cr.fill()
    cr.set_source_rgb(0.35, 0.35, 0.35)
    cr.arc(c, tip, 5, 0, 2 * math.pi)
    cr.stroke()


def donate_frame(cr, i):
    """The donate button: frame 0 raised, frame 1 pressed."""
    w, fh = 92, 26
    g = cairo.LinearGradient(0, 0, 0, fh)
    top, bottom = ((0.78, 0.30, 0.16), (0.52, 0.16, 0.08)) if i == 0 else ((0.52, 0.16, 0.08), (0.70, 0.26, 0.14))
    g.add_color_stop_rgb(0, *top)
    g.add_color_stop_rgb(1, *bottom)
    rounded_rect(cr, 1, 1, w - 2, fh - 2, 6)
    cr.set_source(g)
    cr.fill_preserve()
    cr.set_source_rgb(0.30, 0.10, 0.05)
    cr.set_line_width(1)
    cr.stroke()
    text(cr, "DONATE", w / 2 + i, fh / 2 + i, 12, colour=(0.98, 0.93, 0.82))


def main():
    os.makedirs(OUT, exist_ok=True)
    ctl = controls()
    for name, surface in (("background.png", background(ctl)), ("7381knob.png", knob_strip()),
                          ("HorizontalSwitch-3P.png", strip(40, 20, 3, horizontal_switch_frame)),
                          ("ToggleSwitch.png", strip(56, 56, 2, toggle_frame)), ("donate.png", strip(92, 26, 2, donate_frame))):
        surface.write_to_png(os.path.join(OUT, name))


if __name__ == "__main__":
    main()
