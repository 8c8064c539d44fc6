#!/usr/bin/env python3
"""Draws the application's SVG images into resources/images/.

Every image shares one stroke width (2 units on a 48-unit grid, 2.67 on the
64-unit status icons, which are shown at 64 px against the 48 px buttons) and
one corner radius (8 units for tiles, 2 for inner shapes), so they read as one
family. Run it again after changing a colour or a glyph."""
import os

OUT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "resources", "images")

BRAND = "#1f4e79"
LIGHT = {"glyph": "#4a5663", "over_fill": "#e3ebf3", "over_glyph": BRAND}
DARK = {"glyph": "#c3ccd6", "over_fill": "#26394d", "over_glyph": "#9cc3ea"}

GLYPHS = {
    "Scan": '<circle cx="21" cy="21" r="8"/><path d="M27 27l7 7"/>',
    "Settings": '<path d="M13 16h22M13 24h22M13 32h22"/>'
                '<circle cx="19" cy="16" r="3" fill="{c}"/><circle cx="29" cy="24" r="3" fill="{c}"/>'
                '<circle cx="22" cy="32" r="3" fill="{c}"/>',
    "Quarantine": '<rect x="11" y="13" width="26" height="7" rx="2"/>'
                  '<path d="M13 20v12a2 2 0 0 0 2 2h18a2 2 0 0 0 2-2V20"/><path d="M21 26h6"/>',
    "Reports": '<path d="M27 12H17a2 2 0 0 0-2 2v20a2 2 0 0 0 2 2h14a2 2 0 0 0 2-2V18z"/>'
               '<path d="M27 12v6h6"/><path d="M19 24h10M19 29h10"/>',
}


def svg(size, body):
    return ('<svg xmlns="http://www.w3.org/2000/svg" width="%d" height="%d" viewBox="0 0 %d %d">%s</svg>\n'
            % (size, size, size, size, body))


def glyph(name, colour):
    return ('<g fill="none" stroke="%s" stroke-width="2" stroke-linecap="round" stroke-linejoin="round">%s</g>'
            % (colour, GLYPHS[name].format(c=colour)))


def write(name, text):
    with open(os.path.join(OUT, name + ".svg"), "w") as f:
        f.write(text)


def buttons():
    tile = '<rect x="1" y="1" width="46" height="46" rx="8" fill="%s"/>'
    for name in GLYPHS:
        for suffix, pal in (("", LIGHT), ("Dark", DARK)):
            write("Button%sNormal%s" % (name, suffix), svg(48, glyph(name, pal["glyph"])))
            write("Button%sOver%s" % (name, suffix),
                  svg(48, tile % pal["over_fill"] + glyph(name, pal["over_glyph"])))
        write("Button%sSelected" % name, svg(48, tile % BRAND + glyph(name, "#ffffff")))
        # The info label's icons: the view's glyph alone.
        for suffix, colour in (("", BRAND), ("Dark", "#9cc3ea")):
            write(name.lower() + suffix, svg(48, glyph(name, colour)))


def status_icons():
    # 64-unit icons: a folder (a scan of chosen folders) or a clock (a scan of
    # the font folders), with a badge for the outcome.
    folder = ('<path d="M8 18a4 4 0 0 1 4-4h12l5 6h23a4 4 0 0 1 4 4v22a4 4 0 0 1-4 4H12a4 4 0 0 1-4-4z"/>'
              '<path d="M8 26h48"/>')
    clock = '<circle cx="30" cy="30" r="20"/><path d="M30 18v12l8 6"/>'
    badges = {
        "ok": ('<circle cx="48" cy="48" r="12" fill="{b}"/>'
               '<path d="M42 48l4 4 8-8" fill="none" stroke="{m}" stroke-width="2.67" '
               'stroke-linecap="round" stroke-linejoin="round"/>'),
        "caution": ('<path d="M48 35l13 24H35z" fill="{b}" stroke="{b}" stroke-width="2.67" '
                    'stroke-linejoin="round"/><path d="M48 43v7M48 54.5v.5" fill="none" stroke="{m}" '
                    'stroke-width="2.67" stroke-linecap="round"/>'),
        "cancel": ('<circle cx="48" cy="48" r="12" fill="{b}"/>'
                   '<path d="M43.5 43.5l9 9M52.5 43.5l-9 9" fill="none" stroke="{m}" stroke-width="2.67" '
                   'stroke-linecap="round"/>'),
    }
    light = {"line": BRAND, "ok": "#2e7d32", "caution": "#b26a00", "cancel": "#6b7683", "mark": "#ffffff"}
    dark = {"line": "#9cc3ea", "ok": "#66bb6a", "caution": "#f0a040", "cancel": "#9aa5b1", "mark": "#1b2430"}
    for base, shape in (("mac-icon", folder), ("autoscan", clock)):
        for suffix, pal in (("", light), ("Dark", dark)):
            line = ('<g fill="none" stroke="%s" stroke-width="2.67" stroke-linecap="round" '
                    'stroke-linejoin="round">%s</g>' % (pal["line"], shape))
            plain = "AutoScan" if base == "autoscan" else base
            write(plain + suffix, svg(64, line))
            for badge, drawing in badges.items():
                write("%s-%s%s" % (base, badge, suffix),
                      svg(64, line + drawing.format(b=pal[badge], m=pal["mark"])))


def dots():
    # The passes' marks: on or done, off or failed, running, and idle.
    for suffix, ok, fail, run, quiet in (("", "#2e7d32", "#b3261e", BRAND, "#9aa5b1"),
                                         ("Dark", "#66bb6a", "#ef6b62", "#9cc3ea", "#6b7683")):
        write("ok_dot" + suffix, svg(16, '<circle cx="8" cy="8" r="5" fill="%s"/>' % ok))
        write("fail_dot" + suffix, svg(16, '<circle cx="8" cy="8" r="5" fill="%s"/>' % fail))
        write("pass-running" + suffix,
              svg(16, '<circle cx="8" cy="8" r="5" fill="none" stroke="%s" stroke-width="2"/>'
                      '<circle cx="8" cy="8" r="2" fill="%s"/>' % (run, run)))
        write("pass-idle" + suffix,
              svg(16, '<circle cx="8" cy="8" r="5" fill="none" stroke="%s" stroke-width="2"/>' % quiet))


def row_buttons():
    # The resolution window's lines: a defect's caution mark and the font's details.
    for suffix, warn, info, ink in (("", "#c27c0e", BRAND, "#ffffff"), ("Dark", "#e9a23b", "#9cc3ea", "#1e2329")):
        write("caution" + suffix,
              svg(16, '<path d="M8 1.5l7 12.5H1z" fill="%s" stroke="%s" stroke-width="1" stroke-linejoin="round"/>'
                      '<path d="M8 6v4M8 12v.5" fill="none" stroke="%s" stroke-width="1.6" stroke-linecap="round"/>'
                      % (warn, warn, ink)))
        write("info" + suffix,
              svg(16, '<circle cx="8" cy="8" r="6.5" fill="%s"/>'
                      '<path d="M8 7.2v4.3M8 4.6v.4" fill="none" stroke="%s" stroke-width="1.6" stroke-linecap="round"/>'
                      % (info, ink)))


def app_icon():
    # The program's own icon: the Selected buttons' tile with a letter A and a
    # round badge with a cross, for a program that looks after fonts. Strokes
    # are 3 units here, not 2: the icon is also drawn at 16 and 24 px.
    write("quorvel",
          svg(48, '<rect x="1" y="1" width="46" height="46" rx="8" fill="%s"/>'
                  '<g fill="none" stroke="#ffffff" stroke-width="3" stroke-linecap="round" '
                  'stroke-linejoin="round"><path d="M9 36L18.5 11L28 36"/><path d="M12.5 27.5h12"/></g>'
                  '<circle cx="34" cy="34" r="9.5" fill="#ffffff" stroke="%s" stroke-width="2"/>'
                  '<path d="M34 29v10M29 34h10" fill="none" stroke="%s" stroke-width="3" stroke-linecap="round"/>'
                  % (BRAND, BRAND, BRAND)))


if __name__ == "__main__":
    os.makedirs(OUT, exist_ok=True)
    buttons()
    status_icons()
    dots()
    row_buttons()
    app_icon()
