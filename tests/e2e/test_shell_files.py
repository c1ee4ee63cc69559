"""Shell file protection: changes of temporary shells, and the events about them.

Every test has its own shell, listed in a default_shells of these tests; one agent watches all shells. Events about one
file come in the order of its changes, so a test for silence makes a reported change afterwards and asserts that no
event came before it.
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
    """Temporary shells. Each is a working shell whose size and content no other file has."""

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

    def expect(self, *expected):
        """Waits until there are as many events as expected, and compares all of them."""
        self._agent.wait_until(lambda: len(self.contents()) >= len(expected), f"{len(expected)} events", 10)
        assert self.contents() == [{"path": str(self.path), **content} for content in expected]

    def change(self):
        """Changes the mode, and returns the expected event."""
        before = stat.filemode(self.path.stat().st_mode)
        self.path.chmod(0o700)
        return self.attribute("permission", before, "-rwx------")

    def kinds(self):
        """The kind of each event: the type of the attribute, or otherwise the operation."""
        return [
            content["attribute"][0]["type"] if "attribute" in content else content["operationType"]
            for content in self.contents()
        ]

    def await_kinds(self, *expected):
        """Waits for events of these kinds in any order: different threads report them."""
        self._agent.wait_until(lambda: len(self.contents()) >= len(expected), f"{len(expected)} events", 10)
        assert sorted(self.kinds()) == sorted(expected)

    def change_until_reported(self):
        """For a shell that has just been replaced: a change before the agent has read the new file is not reported."""
        for attempt in range(100):
            self.path.chmod(0o700 + attempt % 2)
            with contextlib.suppress(AssertionError):
                self._agent.wait_until(lambda: "permission" in self.kinds(), "a change", 0.1)
                return
        raise AssertionError("no change of the new file is reported")

    def expect_nothing_after(self, *before):
        """Makes a change and expects the events in before, then only the event about this change."""
        self.expect(*before, self.change())

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
    """Sets or clears the flags of chattr +i and +a; returns the old and new flags. Keeps other flags."""
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
def test_a_write_is_reported(shell):
    with open(shell.path, "r+b") as file:
        file.write(b"other")
    shell.expect(MODIFY)


def test_an_append_is_reported(shell):
    append(shell.path)
    shell.expect(MODIFY)


def test_a_truncation_is_reported(shell):
    os.truncate(shell.path, 100)
    shell.expect(MODIFY)


@pytest.mark.kernel
def test_a_change_of_mode_is_reported(shell):
    shell.path.chmod(0o4755)
    shell.expect(shell.attribute("permission", "-rwxr-xr-x", "-rwsr-xr-x"))


def test_a_change_of_owner_is_reported_with_the_names(shell):
    os.chown(shell.path, NOBODY, -1)
    shell.expect(shell.attribute("owner", "root", "nobody"))


def test_a_change_of_group_is_reported_with_the_names(shell):
    os.chown(shell.path, -1, NOBODY)
    shell.expect(shell.attribute("group", "root", "nogroup"))


def test_a_change_of_owner_and_group_is_reported_as_two_events(shell):
    os.chown(shell.path, 4000123, 4000124)
    shell.expect(shell.attribute("owner", "root", "4000123"), shell.attribute("group", "root", "4000124"))


def test_creating_and_removing_a_hard_link_is_reported(shell):
    link = shell.path.with_suffix(".link")
    os.link(shell.path, link)
    shell.expect(shell.attribute("links", "1", "2"))
    link.unlink()
    shell.expect(shell.attribute("links", "1", "2"), shell.attribute("links", "2", "1"))


@pytest.mark.kernel
def test_a_removal_is_reported_as_one_event(shell):
    shell.path.unlink()
    shell.expect(DELETE)


def test_a_shell_that_is_created_again_is_watched_again(shell):
    shell.path.unlink()
    shell.expect(DELETE)
    shutil.copy(PROGRAM, shell.path)
    shell.change_until_reported()


def test_a_move_is_reported_with_the_new_name(shell):
    away = shell.path.with_suffix(".away")
    shell.path.rename(away)
    shell.expect(move(away))


def test_a_move_out_of_all_watched_directories_is_reported_without_the_new_name(shell, tmp_path):
    shell.path.rename(tmp_path / "away")
    shell.expect(move(""))


@pytest.mark.kernel
def test_a_replacement_by_a_move_is_reported_with_the_old_name(shell):
    other = shell.path.with_suffix(".other")
    other.write_text("#!/bin/true\n")
    other.rename(shell.path)
    shell.expect(move(other))


def test_a_replacement_from_an_unwatched_directory_is_reported_without_the_old_name(shell, tmp_path):
    other = tmp_path / "other"
    other.write_text("#!/bin/true\n")
    other.rename(shell.path)
    shell.expect(move(""))


def test_a_replaced_shell_is_still_watched(shell):
    other = shell.path.with_suffix(".other")
    other.write_text("#!/bin/true\n")
    other.rename(shell.path)
    append(shell.path)
    shell.expect(move(other), MODIFY)


@pytest.mark.kernel
@pytest.mark.parametrize("flag", [IMMUTABLE, APPEND_ONLY], ids=["immutable", "append-only"])
def test_setting_and_clearing_a_flag_is_reported(shell, flag):
    try:
        clear, held = set_flags(shell.path, flag)
    except OSError as error:
        pytest.skip(f"the file system of {shell.path.parent} has no file flags: {error}")
    shell.expect(shell.attribute("ext2_flag", clear, held))
    set_flags(shell.path, 0)
    shell.expect(shell.attribute("ext2_flag", clear, held), shell.attribute("ext2_flag", held, clear))


def test_a_flag_is_reported_if_it_is_set_right_after_a_replacement(shell):
    other = shell.path.with_suffix(".other")
    other.write_text("#!/bin/true\n")
    try:
        set_flags(other, 0)
    except OSError as error:
        pytest.skip(f"the file system of {shell.path.parent} has no file flags: {error}")
    other.rename(shell.path)
    clear, held = set_flags(shell.path, IMMUTABLE)
    shell.await_kinds("ext2_flag", "move")
    assert {"path": str(shell.path), **shell.attribute("ext2_flag", clear, held)} in shell.contents()


def test_reading_is_not_reported(shell):
    shell.path.read_bytes()
    subprocess.run([shell.path, "-c", ":"], check=True)
    shell.expect_nothing_after()


def test_a_change_of_times_is_not_reported(shell):
    shell.path.touch()
    os.utime(shell.path, (1, 1))
    shell.expect_nothing_after()


def test_of_a_package_upgrade_only_the_backup_link_is_reported(shell):
    backup, new = shell.path.with_suffix(".dpkg-tmp"), shell.path.with_suffix(".dpkg-new")
    shutil.copy2(shell.path, new)
    append(new)
    os.link(shell.path, backup)
    new.rename(shell.path)
    backup.unlink()
    shell.change_until_reported()
    # The agent reads the link count when it reports the change, and may then read that of the new file.
    assert set(shell.kinds()) <= {"links", "permission"}
    assert shell.kinds().count("links") <= 1


def test_a_change_of_a_shell_with_two_names_is_reported_once(shells, watching):
    target, link = shells.linked
    target.chmod(0o700)
    changed = Watched(watching, target)
    watching.wait_until(lambda: changed.contents() or Watched(watching, link).contents(), "the change", 10)
    target.chmod(0o711)
    first = Watched.attribute("permission", "-rwxr-xr-x", "-rwx------")
    second = Watched.attribute("permission", "-rwx------", "-rwx--x--x")
    changed.expect(first, second)
    assert Watched(watching, link).contents() == []


def test_an_edit_in_place_is_not_reported(shell):
    subprocess.run(["sed", "-i", "s/no such text//", shell.path], check=True)
    shell.change_until_reported()
    assert set(shell.kinds()) == {"permission"}


def run_until_reported(shell, arguments, program, expected):
    child = subprocess.Popen(arguments, executable=program, stdin=subprocess.PIPE)
    try:
        shell.expect(*expected)
    finally:
        child.send_signal(signal.SIGKILL)
        child.wait()


def copied(path, command):
    return {"operationType": "copy", "command": command, "relatedPath": str(path)}


@pytest.mark.kernel
def test_a_copy_that_runs_is_reported_once(shell):
    copy = shell.path.with_suffix(".copy")
    shutil.copy2(shell.path, copy)
    run_until_reported(shell, ["kworker", "-s"], copy, [copied(copy, "kworker -s")])
    subprocess.run([copy, "-c", ":"], check=True)
    shell.expect_nothing_after(copied(copy, "kworker -s"))


def test_a_hard_link_that_runs_is_reported_as_a_copy(shell, tmp_path):
    link = shell.path.with_suffix(".link")
    os.link(shell.path, link)
    links = shell.attribute("links", "1", "2")
    shell.expect(links)
    run_until_reported(shell, ["other", "-s"], link, [links, copied(link, "other -s")])


def test_a_file_with_the_size_of_a_shell_is_not_reported(shell):
    other = shell.path.with_suffix(".other")
    content = bytearray(shell.path.read_bytes())
    content[-1] = ord("x")
    other.write_bytes(content)
    other.chmod(0o755)
    subprocess.run([other, "-c", "sleep 0.2"], check=True)
    shell.expect_nothing_after()


def test_a_long_command_line_is_cut_at_a_character(shell):
    copy = shell.path.with_suffix(".copy")
    shutil.copy2(shell.path, copy)
    name = "n" * 507
    run_until_reported(shell, [name, "-s", "\u00e9\u00e9"], copy, [copied(copy, f"{name} -s \u00e9"[:511])])
