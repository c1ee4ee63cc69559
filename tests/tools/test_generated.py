"""Tables and pictures that commands write, and the check that says when they are stale."""

import check_generated
import generated
import pictures
import pytest
import run_benchmarks
import tables
import terminal_picture

COMMAND = "./dev bench --write"
MARKER = "<!-- begin: one, written by ./dev bench, version 0.1.0, digest 0 -->\n<!-- end: one -->"
DOCUMENT = f"# Title\n\n{MARKER}\n\nMore.\n"
TABLE = "Measured here.\n\n| size | ms |\n|-----:|---:|\n|   10 |  1 |\n|   20 |  2 |\n"
HEADING, KEYS = ["size", "ms"], [["10"], ["20"]]


def written(text=TABLE, version="0.2.0"):
    return generated.with_table(DOCUMENT, "one", COMMAND, version, text)


def faults(document, heading=tuple(HEADING), keys=tuple(KEYS)):
    table = generated.tables(document)["one"]
    return list(check_generated.table_faults(table, "0.2.0", list(heading), list(keys)))


def test_a_written_table_is_read_back():
    table = generated.tables(written())["one"]
    assert (table.command, table.version, table.text, table.edited) == (COMMAND, "0.2.0", TABLE, False)
    assert written().startswith("# Title\n\n<!-- begin: one, ") and written().endswith("<!-- end: one -->\n\nMore.\n")


def test_writing_again_replaces_the_table():
    again = generated.with_table(written("old\n"), "one", COMMAND, "0.2.0", TABLE)
    assert again == written()


@pytest.mark.parametrize("name, document", [("two", DOCUMENT), ("one", DOCUMENT + MARKER)])
def test_a_table_that_is_not_there_once_is_not_written(name, document):
    with pytest.raises(LookupError, match=name):
        generated.with_table(document, name, COMMAND, "0.2.0", TABLE)


def test_a_table_as_its_command_wrote_it_has_no_fault():
    assert faults(written()) == []


@pytest.mark.parametrize(
    "document, fragment",
    [
        (written().replace("|  2 |", "|  3 |"), "edited by hand"),
        (written().replace("Measured here", "Measured there"), "edited by hand"),
        (written(version="0.1.0"), "version 0.1.0"),
        (written(TABLE.replace("| ms |", "| us |")), "columns"),
        (written("Not measured.\n"), "columns"),
        (written(TABLE.replace("|   20 |", "|   30 |")), "missing: ['20']; surplus: ['30']"),
        (written(TABLE.replace("|   20 |  2 |\n", "")), "missing: ['20']"),
        (written(f"{TABLE}|   30 |  3 |\n"), "surplus: ['30']"),
        (written(TABLE.replace("|   10 |", "|   0 |").replace("|   20 |", "|   10 |")), "surplus: ['0']"),
    ],
)
def test_a_stale_table_is_reported(document, fragment):
    (fault,) = faults(document)
    assert fragment in fault


@pytest.mark.parametrize(
    "document, unmeasured",
    [
        (written("Not measured yet.\n", version="none"), True),
        (written("Not measured yet.\n", version="none").replace("yet", "yet, but fast"), False),
        (written("Not measured yet.\n"), False),
        (written(TABLE, version="none"), False),
    ],
)
def test_only_an_untouched_note_counts_as_not_measured(document, unmeasured):
    assert check_generated.is_unmeasured(generated.tables(document)["one"]) == unmeasured


def test_rows_in_another_order_are_reported():
    lines = TABLE.splitlines()
    assert len(faults(written("\n".join([*lines[:-2], lines[-1], lines[-2]])))) == 1


@pytest.fixture
def documents(tmp_path, monkeypatch):
    """A tree with a document that should have the table "one"."""
    monkeypatch.setattr(check_generated, "ROOT", tmp_path)
    monkeypatch.setattr(check_generated, "expected_tables", lambda document: {"one": (HEADING, KEYS)})
    return tmp_path / "page.md"


@pytest.mark.parametrize(
    "text, fault",
    [
        (written(), None),
        ("# Title\n", "page.md: the table one is missing"),
        (written() + MARKER.replace("one", "two"), "page.md: no command writes the table two"),
        (
            written(version="0.1.0"),
            "page.md: the table one is stale, ./dev bench --write writes it: made from version 0.1.0",
        ),
    ],
)
def test_a_document_has_the_tables_that_commands_write(documents, text, fault):
    documents.write_text(text, encoding="utf-8")
    found = list(check_generated.check_document(documents, "0.2.0"))
    assert len(found) == (0 if fault is None else 1)
    assert fault is None or found[0].startswith(fault)


def test_every_table_has_as_many_keys_as_the_check_compares():
    for name, table in tables.TABLES.items():
        rows = [dict(zip((column.key for column in table.columns), keys)) for keys in table.keys]
        for row in rows:
            for column in table.columns[len(table.keys[0]) :]:
                row[column.key] = 1 if column.form != "{}" else "1"
        cells = generated.cells_of(table.markdown(rows))
        assert cells[0] == table.heading(), name
        assert [row[: len(key)] for row, key in zip(cells[1:], table.key_cells())] == table.key_cells(), name


def test_every_benchmark_of_a_service_has_a_title():
    assert tables.services_in_source() == set(tables.SERVICES)


def test_times_of_services_have_three_digits_and_their_unit():
    measured = [{"name": name, "real_time": 1.23456, "time_unit": "us"} for name in tables.SERVICES]
    rows = run_benchmarks.service_rows(measured)
    assert [row["service"] for row in rows] == list(tables.SERVICES.values())
    assert {row["time"] for row in rows} == {"1.23 µs"}
    with pytest.raises(KeyError):
        run_benchmarks.service_rows(measured[1:])


PICTURE = '<?xml version="1.0"?>\n<svg><text>bash</text> and <text>nc</text></svg>\n'


@pytest.fixture
def picture(tmp_path):
    path = tmp_path / "deep/picture.svg"
    generated.write_picture(path, pictures.COMMAND, PICTURE)
    return path.read_text("utf-8")


def picture_faults(text, words=("bash", "nc")):
    return list(check_generated.picture_faults(text, generated.project_version(), list(words)))


def test_a_picture_keeps_its_first_line_and_has_no_fault(picture):
    assert picture.startswith('<?xml version="1.0"?>\n<!-- written by ./dev pictures, version ')
    assert picture_faults(picture) == []


@pytest.mark.parametrize(
    "change, fragment",
    [
        (lambda text: text.replace("bash", "dash"), "edited by hand"),
        (lambda text: PICTURE, "no command has written it"),
        (lambda text: text.replace(f"version {generated.project_version()}", "version 0.0.1"), "version 0.0.1"),
    ],
)
def test_a_stale_picture_is_reported(picture, change, fragment):
    assert any(fragment in fault for fault in picture_faults(change(picture)))


def test_a_picture_shows_what_the_tree_has(picture):
    assert picture_faults(picture, ["bash", "svg"]) == ["does not show svg"]


def test_scenarios_are_read_from_the_demonstration():
    assert {"bash-on-socket", "harmless-build"} <= set(pictures.scenarios())


def test_a_terminal_shows_what_is_left_of_a_line_in_the_style_that_is_on():
    written = "\033[1mone\r\ntwo\033[0m\r\n\r\033[K1 s\r\033[K2 s\r\033[K\r\nmoves\r\033[Kthree\r\nfour"
    lines = terminal_picture.lines_of(written)
    assert lines == ["\033[1mone", "\033[1mtwo\033[0m", "", "\033[0mthree", "\033[0mfour"]


def test_a_picture_of_a_terminal_has_each_text_with_its_style():
    text = terminal_picture.svg(["plain \033[32mok\033[0m <&>", "x" * 200])
    assert ">plain </tspan>" in text and 'style="fill:#7ee787">ok</tspan>' in text and "&lt;&amp;&gt;" in text
    assert f"{'x' * (terminal_picture.COLUMNS - 1)}…</tspan>" in text


OUTPUT = """Two hosts
   0.0 s  staged  one: first
   0.0 s  staged  two: second
   0.0 s  staged  three: third
   0.0 s  staged  four: fourth
   0.1 s  FOUND   one by instant scan
          process 1
   0.2 s  FOUND   fifo-waiting-relay by instant scan
          process 2
          tree
   0.3 s  FOUND   two by instant scan

      wiring  expected  found  seconds
ok    one     x         x      1.0
all of it
"""


def test_the_excerpt_has_three_scenarios_a_finding_and_the_table():
    shown = [line for line in pictures.excerpt(OUTPUT.splitlines()) if line != pictures.OMITTED]
    assert shown == [
        "$ orlim-agent demo",
        *OUTPUT.splitlines()[:4],
        *OUTPUT.splitlines()[7:10],
        *OUTPUT.splitlines()[12:],
    ]
