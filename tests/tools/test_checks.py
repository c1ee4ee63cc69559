"""The checks of ./dev lint, on small trees."""

import check_columns
import check_includes
import check_sizes
import new_user_walk
import pytest


def write(root, name, text):
    path = root / name
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text, encoding="utf-8")


@pytest.mark.parametrize(
    "name, header",
    [
        ("src/frame/a.cpp", "frame/b.h"),
        ("src/module/a.cpp", "frame/b.h"),
        ("src/frame/a.cpp", "module/published.h"),
        ("src/classifier/a.cpp", "shellfile/shell_baseline.h"),
        ("host/program/a.cpp", "host/base/b.h"),
    ],
)
def test_an_include_downward_is_allowed(tmp_path, name, header):
    write(tmp_path, name, f'#include "{header}"\n')
    assert check_includes.check(tmp_path) == []


@pytest.mark.parametrize(
    "name, header",
    [
        ("src/frame/a.cpp", "module/b.h"),
        ("src/agent/a.h", "frame/b.h"),
        ("src/module/a.cpp", "host/base/b.h"),
        ("src/classifier/a.cpp", "shellfile/shell_copy.h"),
        ("host/base/a.h", "host/program/b.h"),
        ("host/events/a.cpp", "graph/b.h"),
        ("host/program/a.cpp", "demo/b.h"),
        ("demo/a.cpp", "module/b.h"),
        ("host/base/a.cpp", "elsewhere/b.h"),
    ],
)
def test_an_include_upward_or_outside_the_rooms_is_reported(tmp_path, name, header):
    write(tmp_path, name, f'#include <string>\n  #  include "{header}"\n')
    (line,) = check_includes.check(tmp_path)
    assert line.startswith(f"{name}: ") and header in line


@pytest.mark.parametrize("name", ["src/extra/a.cpp", "host/a.h", "host/base/deeper/a.cpp", "demo/more/a.h"])
def test_a_source_outside_the_rooms_is_reported(tmp_path, name):
    write(tmp_path, name, "")
    (line,) = check_includes.check(tmp_path)
    assert line.startswith(f"{name}: ")


def function_of(lines):
    return "int F() {\n" + "    G();\n" * (lines - 2) + "}\n"


@pytest.mark.parametrize("lines, found", [(40, 0), (41, 1)])
def test_a_long_function_is_reported(tmp_path, lines, found):
    write(tmp_path, "host/base/a.cpp", "void G();\n" + function_of(lines))
    assert len(check_sizes.long_functions(tmp_path)) == found


@pytest.mark.parametrize("lines, found", [(300, 0), (301, 1)])
def test_a_long_file_is_reported(tmp_path, lines, found):
    write(tmp_path, "src/frame/a.h", "\n" * lines)
    assert len(check_sizes.long_files(tmp_path)) == found


def test_a_room_with_too_large_a_share_is_reported(tmp_path):
    write(tmp_path, "src/frame/a.cpp", "\n" * 16)
    for room in range(6):
        write(tmp_path, f"host/room{room}/a.cpp", "\n" * 14)
    (line,) = check_sizes.check(tmp_path)
    assert line == "src/frame: 16.0 % of all lines, at most 15 %"


def test_a_long_line_is_reported():
    assert check_columns.check("x" * 120 + "\n// " + "ż" * 118 + "\n" + "x" * 121 + "\n") == [2, 3]


def test_the_walk_of_a_new_user_knows_the_commands_that_documents_show():
    new_user_walk.check_tables()
