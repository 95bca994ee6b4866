"""Draws a screen as an SVG picture."""

from __future__ import annotations

import io

from rich.console import Console, RenderableType

# A picture shows the screen alone, in a font that is there: it fetches nothing from elsewhere.
_FORMAT = """\
<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" role="img">
<style>
.{unique_id}-matrix {{
font-family: "DejaVu Sans Mono", Consolas, Menlo, monospace;
font-size: {char_height}px;
line-height: {line_height}px;
white-space: pre;
}}
{styles}
</style>
<defs>
<clipPath id="{unique_id}-clip-terminal">
<rect x="0" y="0" width="{terminal_width}" height="{terminal_height}" />
</clipPath>
{lines}
</defs>
<rect fill="#0c0c0c" width="{width}" height="{height}" rx="8"/>
<g transform="translate({terminal_x}, {terminal_y})" clip-path="url(#{unique_id}-clip-terminal)">
{backgrounds}
<g class="{unique_id}-matrix" xml:space="preserve">
{matrix}
</g>
</g>
</svg>
"""


def picture(content: RenderableType, width: int, height: int) -> str:
    """Returns the content as a picture of a terminal with so many columns and lines."""
    console = Console(file=io.StringIO(), record=True, width=width, height=height,
                      force_terminal=True, color_system="truecolor", legacy_windows=False)
    console.print(content)
    return console.export_svg(code_format=_FORMAT, unique_id="bench")
