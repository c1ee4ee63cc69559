"""What the package puts where, that its agent works with the unit's rights, and that it goes without a trace."""

import re
import shutil
import stat

from package import CONFIGURATION, KEEP_EDITED, NAME, UNIT
from stage import ON_LINE, reverse_shell, shell

WANTED_BY = f"etc/systemd/system/multi-user.target.wants/{NAME}.service"
STARTED = "the module was started"


def test_files_are_in_debians_places(installed):
    places = {
        "usr/sbin/orlim-agent": 0o755,
        "usr/lib/orlim-agent/liborlim_agent.so": 0o644,
        "usr/lib/orlim-agent/orlim/liborlim_detect-shell.so": 0o644,
        "usr/share/bash-completion/completions/orlim-agent": 0o644,
        "usr/share/man/man8/orlim-agent.8.gz": 0o644,
        "usr/share/man/man5/orlim-agent.json.5.gz": 0o644,
        "usr/share/doc/orlim-agent/copyright": 0o644,
        "usr/share/doc/orlim-agent/changelog.gz": 0o644,
        "usr/share/doc/orlim-agent/changelog.Debian.gz": 0o644,
        UNIT: 0o644,
        CONFIGURATION: 0o644,
        "etc/orlim/default_shells": 0o644,
    }
    listed = {line.lstrip("/") for line in installed.run(f"dpkg-query -L {NAME}").splitlines()}
    files = {name for name in listed if installed.path(name).is_file()}
    # Debian keeps out of small systems what only people read.
    assert files <= set(places)
    assert {name for name in places if "share/" not in name} <= files
    for name in files:
        status = installed.path(name).lstat()
        assert (stat.S_IMODE(status.st_mode), status.st_uid, status.st_gid) == (places[name], 0, 0), name


def test_an_administrators_files_are_known_as_such(installed):
    said = installed.run(f"dpkg-query -W -f='${{Conffiles}}' {NAME}")
    assert [line.split()[0] for line in said.strip().splitlines()] == [
        "/etc/orlim/default_shells",
        "/etc/orlim/orlim-agent.json",
    ]


def test_systemd_will_start_it(installed):
    assert installed.path(WANTED_BY).is_symlink()


def test_version_is_told(installed):
    told = installed.run("orlim-agent --version").split()[-1]
    assert installed.state() == f"installed {told}-0orlim1"


def test_rights_of_the_unit_are_enough(installed):
    check = "orlim-agent check --config /etc/orlim/orlim-agent.json"

    def findings(command):
        # How many processes there are changes while it looks.
        said = re.sub(r" of \d+ processes", " of all processes", installed.run(f"{command} 2>&1; echo status $?"))
        lines = said.splitlines()
        return [line for line in lines if line.startswith(("blind:", "MISSING", "LIMITED", "no detection", "status"))]

    assert findings(installed.with_rights_of_unit(check)) == findings(check)


def test_what_the_unit_starts_watches_the_shells(installed):
    throw_away = installed.path("usr/local/bin/throw-away-shell")
    shutil.copy(installed.path("usr/bin/bash"), throw_away)
    try:
        with open(installed.path("etc/orlim/default_shells"), "a", encoding="utf-8") as shells:
            shells.write("/usr/local/bin/throw-away-shell\n")
        with installed.start() as watch:
            watch.wait_for(STARTED)
            throw_away.chmod(0o700)
            watch.wait_for('"path":"/usr/local/bin/throw-away-shell","operationType":"attribute"')
            assert watch.stop() == 0, watch.said()
    finally:
        throw_away.unlink()


def test_scan_finds_a_reverse_shell_with_the_rights_of_the_unit(installed, attacker):
    bash = installed.path("usr/bin/bash")
    with reverse_shell(attacker, shell("packaged", ON_LINE, program=bash)) as stage:
        said = installed.run(installed.with_rights_of_unit("orlim-agent scan --config /etc/orlim/orlim-agent.json"))
        assert f'"pid":{stage.pid},' in said


def test_reload_of_the_unit_reads_the_configuration_again(installed):
    with installed.start() as watch:
        watch.wait_for(STARTED)
        installed.reload(watch)
        watch.wait_for("the new configuration is in force")
        assert watch.stop() == 0, watch.said()


def test_an_edited_configuration_survives_an_upgrade(installed):
    configuration = installed.path(CONFIGURATION)
    configuration.write_text('{"module": {"reverseShell": {}}}\n')
    installed.install(installed.next_version(), KEEP_EDITED)
    assert installed.state() == f"installed {installed.field('Version')}+next"
    assert configuration.read_text() == '{"module": {"reverseShell": {}}}\n'
    assert "of the next version" in installed.path(CONFIGURATION + ".dpkg-dist").read_text()
    assert installed.path(WANTED_BY).is_symlink()
    with installed.start() as watch:
        watch.wait_for(STARTED)
        assert watch.stop() == 0, watch.said()


def test_an_upgrade_does_not_enable_what_was_disabled(installed):
    installed.path(WANTED_BY).unlink()
    installed.install(installed.next_version(), KEEP_EDITED)
    assert not installed.path(WANTED_BY).is_symlink()


def test_removal_leaves_the_configuration_alone(installed):
    installed.path(CONFIGURATION).write_text("{}\n")
    installed.remove()
    assert installed.state().split()[0] == "config-files"
    assert installed.path(CONFIGURATION).read_text() == "{}\n"
    assert not installed.path("usr/sbin/orlim-agent").exists()
    assert not installed.path("usr/lib/orlim-agent").exists()


def test_nothing_is_left_of_a_purged_package(package):
    package.install()
    package.path(CONFIGURATION).write_text("{}\n")
    package.install(package.next_version(), KEEP_EDITED)
    assert package.path(CONFIGURATION + ".dpkg-dist").exists()
    package.remove()
    package.purge()
    assert package.state() in ("", "not-installed")
    assert package.files() == package.files_before
