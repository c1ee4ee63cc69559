"""What an upgrade leaves alone, and that the package goes without a trace."""

from package import CONFIGURATION, KEEP_EDITED, STARTED, WANTED_BY


def test_an_edited_configuration_survives_an_upgrade(changeable):
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


def test_an_upgrade_does_not_enable_what_was_disabled(changeable):
    changeable.path(WANTED_BY).unlink()
    changeable.install(changeable.next_version(), KEEP_EDITED)
    assert not changeable.path(WANTED_BY).is_symlink()


def test_removal_leaves_the_configuration_alone(changeable):
    changeable.path(CONFIGURATION).write_text("{}\n")
    changeable.remove()
    assert changeable.state().split()[0] == "config-files"
    assert changeable.path(CONFIGURATION).read_text() == "{}\n"
    assert not changeable.path("usr/sbin/orlim-agent").exists()
    assert not changeable.path("usr/lib/orlim-agent").exists()


def test_nothing_is_left_of_a_purged_package(package):
    package.install()
    package.path(CONFIGURATION).write_text("{}\n")
    package.install(package.next_version(), KEEP_EDITED)
    assert package.path(CONFIGURATION + ".dpkg-dist").exists()
    package.remove()
    package.purge()
    assert package.state() in ("", "not-installed")
    assert package.files() == package.files_before
