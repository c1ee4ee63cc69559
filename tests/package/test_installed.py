"""The files of the package, and that its agent works with the rights of the unit."""

import re
import shutil
import stat

from package import CONFIGURATION, NAME, STARTED, UNIT, WANTED_BY
from stage import ON_LINE, reverse_shell, shell


def test_files_are_in_debians_places(installed):
    places = {
        "usr/sbin/orlim-agent": 0o755,
        "usr/sbin/orlim-demo": 0o755,
        "usr/lib/orlim-agent/liborlim_agent.so": 0o644,
        "usr/lib/orlim-agent/orlim/liborlim_detect-shell.so": 0o644,
        "usr/share/bash-completion/completions/orlim-agent": 0o644,
        "usr/share/man/man8/orlim-agent.8.gz": 0o644,
        "usr/share/man/man8/orlim-demo.8.gz": 0o777,  # a link to the page above
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
    # Minimal Debian systems omit documentation.
    assert files <= set(places)
    assert {name for name in places if "share/" not in name} <= files
    for name in files:
        status = installed.path(name).lstat()
        assert (stat.S_IMODE(status.st_mode), status.st_uid, status.st_gid) == (places[name], 0, 0), name


def test_configuration_files_are_conffiles(installed):
    output = installed.run(f"dpkg-query -W -f='${{Conffiles}}' {NAME}")
    assert [line.split()[0] for line in output.strip().splitlines()] == [
        "/etc/orlim/default_shells",
        "/etc/orlim/orlim-agent.json",
    ]


def test_unit_is_enabled(installed):
    assert installed.path(WANTED_BY).is_symlink()


def test_version_of_agent_and_package_agree(installed):
    version = installed.run("orlim-agent --version").split()[-1]
    assert installed.state() == f"installed {version}-0orlim1"


def test_rights_of_the_unit_are_enough(installed):
    check = "orlim-agent check --config /etc/orlim/orlim-agent.json"

    def findings(command):
        # The number of processes changes between the calls.
        output = re.sub(r" of \d+ processes", " of all processes", installed.run(f"{command} 2>&1; echo status $?"))
        assert re.search(r"^OK +module", output, re.MULTILINE), output
        starts = ("blind:", "MISSING", "LIMITED", "no detection", "status")
        return [line for line in output.splitlines() if line.startswith(starts)]

    assert findings(installed.with_rights_of_unit(check)) == findings(check)


def test_agent_of_the_unit_watches_the_shells(installed):
    throw_away = installed.path("usr/local/bin/throw-away-shell")
    shutil.copy(installed.path("usr/bin/bash"), throw_away)
    listed = installed.path("etc/orlim/default_shells")
    shipped = listed.read_bytes()
    try:
        listed.write_bytes(shipped + b"/usr/local/bin/throw-away-shell\n")
        with installed.start() as watch:
            watch.wait_for(STARTED)
            throw_away.chmod(0o700)
            watch.wait_for('"path":"/usr/local/bin/throw-away-shell","operationType":"attribute"')
            assert watch.stop() == 0, watch.said()
    finally:
        listed.write_bytes(shipped)
        throw_away.unlink()


def test_scan_finds_a_reverse_shell_with_the_rights_of_the_unit(installed, attacker):
    bash = installed.path("usr/bin/bash")
    with reverse_shell(attacker, shell("packaged", ON_LINE, program=bash)) as stage:
        output = installed.run(installed.with_rights_of_unit("orlim-agent scan --config /etc/orlim/orlim-agent.json"))
        assert f'"pid":{stage.pid},' in output


def test_reload_of_the_unit_reloads_the_configuration(installed):
    with installed.start() as watch:
        watch.wait_for(STARTED)
        installed.reload(watch)
        watch.wait_for("the new configuration is in force")
        assert watch.stop() == 0, watch.said()
