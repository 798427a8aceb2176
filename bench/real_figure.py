# SPDX-License-Identifier: BSD-2-Clause
"""Draws the figure of compare-real as SVG: a point a file, the ratio of the times by coded bytes."""

from cost_figure import STYLE, LogScale, rule, text

WIDTH, HEIGHT = 720, 340
LEFT, RIGHT, TOP, BOTTOM = 48, WIDTH - 20, 46, HEIGHT - 62


def height_of(ratio, top_ratio):
    return BOTTOM - ratio / top_ratio * (BOTTOM - TOP)


def draw(points, pairs):
    """points are pairs of bytes a macroblock and the ratio."""
    x = LogScale([where for where, _ in points], LEFT + 14, RIGHT - 14)
    top_ratio = max(1.0, *(ratio for _, ratio in points)) * 1.05
    body = [text(LEFT, TOP - 22, 'real key frames: time of keystill divided by that of the libraries',
                 'title')]
    for tick in (0, 0.25, 0.5, 0.75, 1):
        y = height_of(tick, top_ratio)
        body += [rule(LEFT, y, RIGHT, y, 'peer' if tick == 1 else 'grid'),
                 text(LEFT - 8, y + 4, f'{tick:g}', anchor='end')]
    for tick in x.ticks:
        body += [rule(x.at(tick), TOP, x.at(tick), BOTTOM),
                 text(x.at(tick), BOTTOM + 18, f'{tick:g}', anchor='middle')]
    body += [f'<circle class="ours" fill-opacity="0.6" cx="{x.at(where):.1f}" '
             f'cy="{height_of(ratio, top_ratio):.1f}" r="4"/>' for where, ratio in points]
    body += [text((LEFT + RIGHT) / 2, BOTTOM + 36, 'coded bytes a macroblock', anchor='middle'),
             text(LEFT, HEIGHT - 8, f'{len(points)} files, decoding only, one thread, CPU time, '
                  f'medians of {pairs} runs in turn.')]
    return '\n'.join([
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" width="{WIDTH}"'
        f' height="{HEIGHT}" role="img" aria-label="Ratios of decoding times over real files">',
        f'<style>{STYLE}\n</style>', *body, '</svg>', ''])
