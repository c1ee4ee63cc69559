"""Shell file protection: what happens to throw-away shells, and what the agent says of it.

Every test has a shell of its own, listed in a default_shells of the tests' own; one agent watches them all. Reports on
one file come in the order of its changes, so that a test for silence makes a change afterwards that is reported, and
asserts that nothing came before it.
"""

import contextlib
import fcntl
import os
import pathlib
import shutil
import signal
import stat
import struct
import subprocess

import pytest

from agent import Agent, write_config

PROGRAM = pathlib.Path(os.path.realpath("/bin/sh"))
NOBODY = 65534
FS_IOC_GETFLAGS = 0x80086601 if struct.calcsize("l") == 8 else 0x80046601
FS_IOC_SETFLAGS = 0x40086602 if struct.calcsize("l") == 8 else 0x40046602
IMMUTABLE = 0x10
APPEND_ONLY = 0x20


class Shells:
    """Throw-away shells, each a working shell of a length and content that no other file has."""

    def __init__(self, folder):
        self.folder = folder
        self.of_test: dict[str, pathlib.Path] = {}
        self.linked: tuple[pathlib.Path, ...] = ()
        self._count = 0

    def add(self, name):
        self._count += 1
        path = self.folder / name
        path.write_bytes(PROGRAM.read_bytes() + b"\n" * self._count)
        path.chmod(0o755)
        return path


@pytest.fixture(scope="module")
def shells(request, tmp_path_factory):
    made = Shells(tmp_path_factory.mktemp("shells"))
    names = [item.originalname + item.name for item in request.session.items if item.module is request.module]
    made.of_test = {name: made.add(f"shell{index}") for index, name in enumerate(names)}
    target = made.add("target")
    link = made.folder / "link"
    link.symlink_to(target)
    made.linked = target, link
    return made


@pytest.fixture(scope="module")
def watching(shells, tmp_path_factory):
    etc = tmp_path_factory.mktemp("etc")
    listed = [*shells.of_test.values(), shells.linked[1]]
    (etc / "default_shells").write_text("".join(f"{path}\n" for path in listed))
    config = {
        "module": {"abnormalShell": {}},
        "settings": {"TAVORIN_ETC": str(etc)},
        "events": {"perMinuteLimit": 0},
    }
    with Agent("--config", str(write_config(etc, config))) as agent:
        agent.wait_until_started()
        yield agent
        assert agent.end()[0] == 0


class Watched:
    """The shell of one test."""

    def __init__(self, agent, path):
        self._agent = agent
        self.path = path

    def contents(self):
        return [
            event["eventContent"]
            for event in self._agent.events()
            if event["eventType"] == "abnormal-shell" and event["eventContent"]["path"] == str(self.path)
        ]

    def told(self, *expected):
        """Waits until there are as many events as expected, and asserts on all of them."""
        self._agent.wait_until(lambda: len(self.contents()) >= len(expected), f"{len(expected)} events", 10)
        assert self.contents() == [{"path": str(self.path), **content} for content in expected]

    def change(self):
        """Changes the mode, and says what is told of that."""
        before = stat.filemode(self.path.stat().st_mode)
        self.path.chmod(0o700)
        return self.attribute("permission", before, "-rwx------")

    def kinds(self):
        """What each event is about: the attribute's type, or else the operation."""
        return [
            content["attribute"][0]["type"] if "attribute" in content else content["operationType"]
            for content in self.contents()
        ]

    def change_until_told(self):
        """For a shell that has just been replaced: to the agent, a change before it looks at the new file is part of
        the replacement."""
        for attempt in range(100):
            self.path.chmod(0o700 + attempt % 2)
            with contextlib.suppress(AssertionError):
                self._agent.wait_until(lambda: "permission" in self.kinds(), "a change", 0.1)
                return
        raise AssertionError("no change of the new file is told")

    def silent(self, *before):
        """Nothing was told besides what is given: the next change is the next that is told."""
        self.told(*before, self.change())

    @staticmethod
    def attribute(kind, old, new):
        return {"operationType": "attribute", "attribute": [{"type": kind, "from": old, "to": new}]}


@pytest.fixture
def shell(request, shells, watching):
    watched = Watched(watching, shells.of_test[request.node.originalname + request.node.name])
    yield watched
    with contextlib.suppress(OSError):
        set_flags(watched.path, 0)


def set_flags(path, flags):
    """Sets and clears what chattr +i and +a set; other flags stay."""
    descriptor = os.open(path, os.O_RDONLY)
    try:
        old = struct.unpack("i", fcntl.ioctl(descriptor, FS_IOC_GETFLAGS, b"\0" * 4))[0]
        new = old & ~(IMMUTABLE | APPEND_ONLY) | flags
        fcntl.ioctl(descriptor, FS_IOC_SETFLAGS, struct.pack("i", new))
    finally:
        os.close(descriptor)
    return str(old), str(new)


def append(path):
    with open(path, "ab") as file:
        file.write(b"more")


MODIFY = {"operationType": "modify"}
DELETE = {"operationType": "delete"}


def move(related):
    return {"operationType": "move", "relatedPath": str(related)}


@pytest.mark.kernel
def test_a_write_is_told(shell):
    with open(shell.path, "r+b") as file:
        file.write(b"other")
    shell.told(MODIFY)


def test_an_append_is_told(shell):
    append(shell.path)
    shell.told(MODIFY)


def test_a_truncation_is_told(shell):
    os.truncate(shell.path, 100)
    shell.told(MODIFY)


@pytest.mark.kernel
def test_a_change_of_mode_is_told(shell):
    shell.path.chmod(0o4755)
    shell.told(shell.attribute("permission", "-rwxr-xr-x", "-rwsr-xr-x"))


def test_a_change_of_owner_is_told_by_name(shell):
    os.chown(shell.path, NOBODY, -1)
    shell.told(shell.attribute("owner", "root", "nobody"))


def test_a_change_of_group_is_told_by_name(shell):
    os.chown(shell.path, -1, NOBODY)
    shell.told(shell.attribute("group", "root", "nogroup"))


def test_a_change_of_owner_and_group_is_told_as_two(shell):
    os.chown(shell.path, 4000123, 4000124)
    shell.told(shell.attribute("owner", "root", "4000123"), shell.attribute("group", "root", "4000124"))


def test_a_hard_link_is_told_when_it_is_made_and_when_it_goes(shell):
    link = shell.path.with_suffix(".link")
    os.link(shell.path, link)
    shell.told(shell.attribute("links", "1", "2"))
    link.unlink()
    shell.told(shell.attribute("links", "1", "2"), shell.attribute("links", "2", "1"))


@pytest.mark.kernel
def test_a_removal_is_told_as_that_alone(shell):
    shell.path.unlink()
    shell.told(DELETE)


def test_a_shell_that_is_made_anew_is_watched_again(shell):
    shell.path.unlink()
    shell.told(DELETE)
    shutil.copy(PROGRAM, shell.path)
    shell.change_until_told()


def test_a_move_away_is_told_with_the_new_name(shell):
    away = shell.path.with_suffix(".away")
    shell.path.rename(away)
    shell.told(move(away))


def test_a_move_away_out_of_all_watched_directories_is_told_without_it(shell, tmp_path):
    shell.path.rename(tmp_path / "away")
    shell.told(move(""))


@pytest.mark.kernel
def test_a_move_over_is_told_with_the_old_name(shell):
    other = shell.path.with_suffix(".other")
    other.write_text("#!/bin/true\n")
    other.rename(shell.path)
    shell.told(move(other))


def test_a_move_over_from_elsewhere_is_told_without_it(shell, tmp_path):
    other = tmp_path / "other"
    other.write_text("#!/bin/true\n")
    other.rename(shell.path)
    shell.told(move(""))


def test_a_shell_that_was_replaced_is_watched_on(shell):
    other = shell.path.with_suffix(".other")
    other.write_text("#!/bin/true\n")
    other.rename(shell.path)
    append(shell.path)
    shell.told(move(other), MODIFY)


@pytest.mark.kernel
@pytest.mark.parametrize("flag", [IMMUTABLE, APPEND_ONLY], ids=["immutable", "append-only"])
def test_a_flag_is_told_when_it_is_set_and_when_it_is_cleared(shell, flag):
    try:
        clear, held = set_flags(shell.path, flag)
    except OSError as error:
        pytest.skip(f"the file system of {shell.path.parent} has no such flags: {error}")
    shell.told(shell.attribute("ext2_flag", clear, held))
    set_flags(shell.path, 0)
    shell.told(shell.attribute("ext2_flag", clear, held), shell.attribute("ext2_flag", held, clear))


def test_reading_is_not_told(shell):
    shell.path.read_bytes()
    subprocess.run([shell.path, "-c", ":"], check=True)
    shell.silent()


def test_touching_is_not_told(shell):
    shell.path.touch()
    os.utime(shell.path, (1, 1))
    shell.silent()


def test_of_a_package_upgrade_nothing_but_its_backup_link_is_told(shell):
    backup, new = shell.path.with_suffix(".dpkg-tmp"), shell.path.with_suffix(".dpkg-new")
    shutil.copy2(shell.path, new)
    append(new)
    os.link(shell.path, backup)
    new.rename(shell.path)
    backup.unlink()
    shell.change_until_told()
    # The link count is read when the report is made, and may be that of the new file by then.
    assert set(shell.kinds()) <= {"links", "permission"}
    assert shell.kinds().count("links") <= 1


def test_two_names_of_one_shell_tell_a_change_once(shells, watching):
    target, link = shells.linked
    target.chmod(0o700)
    changed = Watched(watching, target)
    watching.wait_until(lambda: changed.contents() or Watched(watching, link).contents(), "the change", 10)
    target.chmod(0o711)
    told = Watched.attribute("permission", "-rwxr-xr-x", "-rwx------"), Watched.attribute(
        "permission", "-rwx------", "-rwx--x--x"
    )
    changed.told(*told)
    assert Watched(watching, link).contents() == []


def test_an_edit_in_place_is_not_told(shell):
    subprocess.run(["sed", "-i", "s/no such text//", shell.path], check=True)
    shell.change_until_told()
    assert set(shell.kinds()) == {"permission"}


def run_until_told(shell, arguments, program, expected):
    child = subprocess.Popen(arguments, executable=program, stdin=subprocess.PIPE)
    try:
        shell.told(*expected)
    finally:
        child.send_signal(signal.SIGKILL)
        child.wait()


def copied(path, command):
    return {"operationType": "copy", "command": command, "relatedPath": str(path)}


@pytest.mark.kernel
def test_a_copy_that_runs_is_told_once(shell):
    copy = shell.path.with_suffix(".copy")
    shutil.copy2(shell.path, copy)
    run_until_told(shell, ["kworker", "-s"], copy, [copied(copy, "kworker -s")])
    subprocess.run([copy, "-c", ":"], check=True)
    shell.silent(copied(copy, "kworker -s"))


def test_a_hard_link_that_runs_is_told_as_a_copy(shell, tmp_path):
    link = shell.path.with_suffix(".link")
    os.link(shell.path, link)
    links = shell.attribute("links", "1", "2")
    shell.told(links)
    run_until_told(shell, ["other", "-s"], link, [links, copied(link, "other -s")])


def test_a_file_of_a_shells_size_is_not_told(shell):
    other = shell.path.with_suffix(".other")
    content = bytearray(shell.path.read_bytes())
    content[-1] = ord("x")
    other.write_bytes(content)
    other.chmod(0o755)
    subprocess.run([other, "-c", "sleep 0.2"], check=True)
    shell.silent()


def test_a_long_command_line_is_cut_at_a_character(shell):
    copy = shell.path.with_suffix(".copy")
    shutil.copy2(shell.path, copy)
    name = "n" * 507
    run_until_told(shell, [name, "-s", "\u00e9\u00e9"], copy, [copied(copy, f"{name} -s \u00e9"[:511])])
