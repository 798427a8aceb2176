# SPDX-License-Identifier: BSD-2-Clause
"""Draws the figure of plot-cost as SVG: two panels of times, each above a strip of their ratios.

A point is a tuple of what the panel goes by, milliseconds of keystill and milliseconds of the peer.
"""

import math

WIDTH, HEIGHT = 920, 530
PANEL_WIDTH, PANEL_TOP, PANEL_HEIGHT = 370, 66, 260
INSET = 14  # between the ends of the horizontal scale and the panel's, for the labels there
PANEL_BOTTOM = PANEL_TOP + PANEL_HEIGHT
STRIP_TOP, STRIP_HEIGHT = 372, 80
STRIP_BOTTOM = STRIP_TOP + STRIP_HEIGHT
# Without the media queries, colours that can be read on white and on black.
STYLE = '''
text { font: 12px system-ui, "DejaVu Sans", sans-serif; fill: #6e7781; }
.title { font-size: 15px; font-weight: 600; }
.label { font-weight: 600; }
.value { font-size: 11px; }
.axis { stroke: #8c959f; fill: none; }
.grid { stroke: #8c959f; stroke-opacity: 0.25; }
.ours { stroke: #2f7fe6; fill: #2f7fe6; }
.peer { stroke: #d9661f; fill: #d9661f; }
.line { fill: none; stroke-width: 2; }
text.ours, text.peer { stroke: none; }
@media (prefers-color-scheme: light) { text { fill: #59636e; } .title { fill: #1f2328; } }
@media (prefers-color-scheme: dark) { text { fill: #9198a1; } .title { fill: #f0f6fc; } }'''


class LogScale:
    """Maps values to pixels, over whole steps of 1, 2, 5, 10 ... around all of them."""

    def __init__(self, values, first, last):
        steps = [m * 10.0**e for e in range(-6, 7) for m in (1, 2, 5)]
        low = max(step for step in steps if step <= min(values))
        high = min(step for step in steps if step >= max(values))
        self.ticks = [step for step in steps if low <= step <= high]
        self.low, self.span = math.log(low), math.log(high / low)
        self.first, self.length = first, last - first

    def at(self, value):
        return self.first + (math.log(value) - self.low) / self.span * self.length


def text(x, y, content, style='', anchor='start'):
    return f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" class="{style}">{content}</text>'


def rule(x1, y1, x2, y2, style='grid'):
    return f'<path class="{style}" d="M{x1:.1f} {y1:.1f}L{x2:.1f} {y2:.1f}"/>'


def dots(points, style):
    return [f'<circle class="{style}" cx="{x:.1f}" cy="{y:.1f}" r="3.5"/>' for x, y in points]


def axes(left, top, bottom):
    return [f'<path class="axis" d="M{left} {top}V{bottom}H{left + PANEL_WIDTH}"/>']


def times(points, x, y, left):
    out = [rule(x.at(tick), PANEL_TOP, x.at(tick), PANEL_BOTTOM) for tick in x.ticks]
    for tick in y.ticks:
        out += [rule(left, y.at(tick), left + PANEL_WIDTH, y.at(tick)),
                text(left - 8, y.at(tick) + 4, f'{tick:g}', anchor='end')]
    for style, column in (('peer', 2), ('ours', 1)):
        curve = [(x.at(point[0]), y.at(point[column])) for point in points]
        path = 'L'.join(f'{px:.1f} {py:.1f}' for px, py in curve)
        out += [f'<path class="{style} line" d="M{path}"/>', *dots(curve, style)]
    return out + axes(left, PANEL_TOP, PANEL_BOTTOM)


def ratios(points, x, left):
    out = axes(left, STRIP_TOP, STRIP_BOTTOM)
    out.append(rule(left, STRIP_TOP, left + PANEL_WIDTH, STRIP_TOP, 'peer'))
    for tick in (0, 0.5, 1):
        out.append(text(left - 8, STRIP_BOTTOM - tick * STRIP_HEIGHT + 4, f'{tick:g}', anchor='end'))
    for tick in x.ticks:
        out += [rule(x.at(tick), STRIP_BOTTOM, x.at(tick), STRIP_BOTTOM + 4, 'axis'),
                text(x.at(tick), STRIP_BOTTOM + 18, f'{tick:g}', anchor='middle')]
    for where, ours, peer in points:
        height = STRIP_BOTTOM - ours / peer * STRIP_HEIGHT
        out += [*dots([(x.at(where), height)], 'ours'),
                text(x.at(where), height + 18, f'{ours / peer:.2f}', 'ours value', 'middle')]
    return out


def panel(points, left, y, title, unit):
    x = LogScale([point[0] for point in points], left + INSET, left + PANEL_WIDTH - INSET)
    return [text(left, PANEL_TOP - 36, title, 'title'),
            text(left, PANEL_TOP - 14, 'milliseconds a picture'), *times(points, x, y, left),
            text(left, STRIP_TOP - 14, 'time of keystill divided by that of the libraries'),
            *ratios(points, x, left),
            text(left + PANEL_WIDTH / 2, STRIP_BOTTOM + 38, unit, anchor='middle')]


def draw(panels, note):
    """The figure of two panels, each of points, a title and a unit, with a note below them."""
    every = [ms for points, *_ in panels for point in points for ms in point[1:]]
    y = LogScale(every, PANEL_BOTTOM, PANEL_TOP)
    lefts = (48, WIDTH - PANEL_WIDTH - 20)
    body = [line for left, (points, title, unit) in zip(lefts, panels)
            for line in panel(points, left, y, title, unit)]
    return '\n'.join([
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" width="{WIDTH}"'
        f' height="{HEIGHT}" role="img" aria-label="Decoding time by coded bytes and by picture size">',
        f'<style>{STYLE}\n</style>', *body,
        text(lefts[0] + 14, PANEL_TOP + 22, '● general media libraries', 'label peer'),
        text(lefts[0] + 14, PANEL_TOP + 42, '● keystill', 'label ours'),
        text(lefts[0], HEIGHT - 12, note), '</svg>', ''])
