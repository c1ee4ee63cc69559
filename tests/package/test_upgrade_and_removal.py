"""Upgrades keep changes of the administrator, and a purge removes all files of the package."""

from package import CONFIGURATION, KEEP_EDITED, STARTED, WANTED_BY


def test_upgrade_keeps_an_edited_configuration(changeable):
    configuration = changeable.path(CONFIGURATION)
    configuration.write_text('{"module": {"reverseShell": {}}}\n')
    changeable.install(changeable.next_version(), KEEP_EDITED)
    assert changeable.state() == f"installed {changeable.field('Version')}+next"
    assert configuration.read_text() == '{"module": {"reverseShell": {}}}\n'
    assert "of the next version" in changeable.path(CONFIGURATION + ".dpkg-dist").read_text()
    assert changeable.path(WANTED_BY).is_symlink()
    with changeable.start() as watch:
        watch.wait_for(STARTED)
        assert watch.stop() == 0, watch.said()


def test_upgrade_does_not_enable_a_disabled_unit(changeable):
    changeable.path(WANTED_BY).unlink()
    changeable.install(changeable.next_version(), KEEP_EDITED)
    assert not changeable.path(WANTED_BY).is_symlink()


def test_removal_keeps_the_configuration(changeable):
    changeable.path(CONFIGURATION).write_text("{}\n")
    changeable.remove()
    assert changeable.state().split()[0] == "config-files"
    assert changeable.path(CONFIGURATION).read_text() == "{}\n"
    assert not changeable.path("usr/sbin/orlim-agent").exists()
    assert not changeable.path("usr/lib/orlim-agent").exists()


def test_purge_removes_all_files(package):
    package.install()
    package.path(CONFIGURATION).write_text("{}\n")
    package.install(package.next_version(), KEEP_EDITED)
    assert package.path(CONFIGURATION + ".dpkg-dist").exists()
    package.remove()
    package.purge()
    assert package.state() in ("", "not-installed")
    assert package.files() == package.files_before
