"""One SVG picture for a table of results: a bar for each row, a mark where it is to be."""

from xml.sax.saxutils import escape

WIDTH, ROW, LEFT, BAR = 760, 26, 380, 280


def is_reached(number, bound):
    if bound is None:
        return None
    return number <= bound[1] if bound[0] == "at most" else number >= bound[1]


def short(number):
    return f"{number:.0f}" if abs(number) >= 100 else f"{number:.3g}"


def draw(title, rows):
    """rows: (what, number, bound or None). Each row has a scale of its own: bounds have different units."""
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH}" height="{ROW * len(rows) + 44}" '
             f'font-family="sans-serif" font-size="12">',
             f'<rect width="100%" height="100%" fill="#fff"/><text x="10" y="22" font-size="15">{escape(title)}</text>']
    for index, (what, number, bound) in enumerate(rows):
        top = 36 + index * ROW
        scale = max(number, bound[1] if bound else 0, 1e-9) * 1.1
        length = max(number / scale * BAR, 1)
        reached = is_reached(number, bound)
        colour = {None: "#9aa5b1", True: "#2f855a", False: "#c05621"}[reached]
        parts.append(f'<text x="{LEFT - 8}" y="{top + 15}" text-anchor="end">{escape(what)}</text>'
                     f'<rect x="{LEFT}" y="{top + 4}" width="{length:.1f}" height="15" fill="{colour}"/>')
        if bound:
            mark = LEFT + bound[1] / scale * BAR
            parts.append(f'<line x1="{mark:.1f}" x2="{mark:.1f}" y1="{top + 1}" y2="{top + 22}" stroke="#1a202c"/>')
        parts.append(f'<text x="{LEFT + BAR + 8}" y="{top + 15}">{short(number)}</text>')
    return "\n".join(parts) + "\n</svg>\n"
