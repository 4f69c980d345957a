#!/usr/bin/python3
"""Draws the editor's fonts into resources/PNG/ (run: /usr/bin/python3 resources/make_font.py).

Each font is a grid of 16 x 6 cells holding the printable ASCII characters 32 to 127 in
order, white with the glyph's coverage as alpha, from DejaVu Sans Mono: a fixed advance,
so that the toolkit needs no metrics beyond the cell size (the image's width / 16 and
height / 6). Needs python3-cairo.
"""
import math
import os

import cairo

HERE = os.path.dirname(os.path.abspath(__file__))
OUT = os.path.join(HERE, "PNG")
FONT = "DejaVu Sans Mono"


def atlas(name, size, bold):
    probe = cairo.Context(cairo.ImageSurface(cairo.FORMAT_ARGB32, 8, 8))
    probe.select_font_face(FONT, cairo.FONT_SLANT_NORMAL, cairo.FONT_WEIGHT_BOLD if bold else cairo.FONT_WEIGHT_NORMAL)
    probe.set_font_size(size)
    ascent, descent, _, _, _ = probe.font_extents()
    cell_w = int(math.ceil(probe.text_extents("M").x_advance))
    cell_h = int(math.ceil(ascent + descent))
    surface = cairo.ImageSurface(cairo.FORMAT_ARGB32, cell_w * 16, cell_h * 6)
    cr = cairo.Context(surface)
    options = cairo.FontOptions()
    options.set_antialias(cairo.ANTIALIAS_GRAY)
    options.set_hint_style(cairo.HINT_STYLE_SLIGHT)
    cr.set_font_options(options)
    cr.select_font_face(FONT, cairo.FONT_SLANT_NORMAL, cairo.FONT_WEIGHT_BOLD if bold else cairo.FONT_WEIGHT_NORMAL)
    cr.set_font_size(size)
    cr.set_source_rgb(1, 1, 1)
    for code in range(32, 128):
        i = code - 32
        x, y = (i % 16) * cell_w, (i // 16) * cell_h
        ch = chr(code) if code < 127 else "\u2026"  # 127: an ellipsis, for text cut short
        cr.move_to(x, y + round(ascent))
        cr.show_text(ch)
    surface.write_to_png(os.path.join(OUT, name))
    print(name, cell_w, cell_h)


if __name__ == "__main__":
    atlas("font-12.png", 12, False)
    atlas("font-16b.png", 16, True)
