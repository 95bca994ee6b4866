"""Draws words three lines high, of half blocks: they can be read from two metres."""

from __future__ import annotations

HEIGHT = 3  # lines

# The five rows of each letter: a digit to the base of 32 has the bits of its pixels.
_ROWS = {
    "A": "25755", "B": "65656", "C": "34443", "D": "65556", "E": "74647", "F": "74644",
    "G": "34553", "H": "55755", "I": "72227", "J": "11152", "K": "55655", "L": "44447",
    "M": "HRLHH", "N": "9DB99", "O": "25552", "P": "65644", "Q": "25573", "R": "65655",
    "S": "34216", "T": "72222", "U": "55557", "V": "55552", "W": "HHLRH", "X": "55255",
    "Y": "55222", "Z": "71247", "0": "25552", "1": "26227", "2": "61247", "3": "61216",
    "4": "55711", "5": "74616", "6": "34652", "7": "71122", "8": "25252", "9": "25316",
    "%": "51245", "-": "00700", ".": "00002", " ": "00000", "?": "61202", "/": "11244",
    ":": "02020", "_": "00007", "+": "02720",
}
_WIDTHS = {"M": 5, "N": 4, "W": 5}  # pixels; the other letters have three
_HALVES = {"00": " ", "10": "▀", "01": "▄", "11": "█"}


def draw(text: str) -> list[str]:
    """Returns the lines of the text in capitals; a letter without a drawing becomes "?"."""
    letters = [letter if letter in _ROWS else "?" for letter in text.upper()]
    rows = ["0".join(f"{int(_ROWS[letter][row], 32):0{_WIDTHS.get(letter, 3)}b}"
                     for letter in letters) for row in range(5)]
    rows.append("0" * len(rows[0]))
    return ["".join(_HALVES[above + below] for above, below in zip(rows[at], rows[at + 1]))
            for at in range(0, 2 * HEIGHT, 2)]


def width(text: str) -> int:
    """Returns how many columns the drawing takes."""
    return len(draw(text)[0])


def can_draw(text: str) -> bool:
    """Returns whether each letter of the text has a drawing."""
    return set(text.upper()) <= set(_ROWS)
