"""The figures of bench/idle_cost.py from guests as a table: one line per figure, one column per guest."""


def figures_of(lines):
    """The values by title, found among the other lines of a guest's console."""
    fields = (line.split("\t") for line in lines)
    return {words[1]: words[2] for words in fields if len(words) == 3 and words[0] == "COST"}


def cells_of(columns):
    titles = dict.fromkeys(title for figures in columns.values() for title in figures)
    rows = [[title, *(figures.get(title, "") for figures in columns.values())] for title in titles]
    return [["figure", *columns], *rows]


def text(columns):
    """The table for a terminal. columns has the figures of each guest by its name."""
    cells = cells_of(columns)
    widths = [max(map(len, column)) for column in zip(*cells)]
    lines = []
    for title, *values in cells:
        lines.append("  ".join([title.ljust(widths[0]), *map(str.rjust, values, widths[1:])]).rstrip())
    return "\n".join(lines)


def markdown(columns):
    heading, *rows = (f"| {' | '.join(line)} |" for line in cells_of(columns))
    return "\n".join([heading, f"|---|{'---:|' * len(columns)}", *rows])
