"""The drivers of a guest and their order."""

import lzma

import pytest

import guest
import sources


def module(depends):
    return b"\x7fELF\0license=GPL\0depends=" + depends + b"\0name=any\0"


@pytest.fixture
def modules(tmp_path):
    (tmp_path / "deep").mkdir()
    (tmp_path / "deep/top-most.ko").write_bytes(module(b"middle,other-one"))
    (tmp_path / "middle.ko.xz").write_bytes(lzma.compress(module(b"base")))
    (tmp_path / "base.ko").write_bytes(module(b""))
    (tmp_path / "other_one.ko").write_bytes(module(b"base"))
    return guest.Modules(tmp_path)


def test_module_follows_its_dependencies(modules):
    assert list(modules.in_order(["top_most"])) == ["base", "middle", "other_one", "top_most"]


def test_compressed_module_is_unpacked(modules):
    assert modules.in_order(["middle"])["middle"] == module(b"base")


def test_built_in_drivers_are_omitted(modules):
    assert list(modules.in_order(["ext4", "base"])) == ["base"]


def test_missing_option_of_the_kernel_is_reported(tmp_path):
    options = [line for line in sources.CONFIGURATION.read_text().splitlines() if line.startswith("CONFIG_")]
    (tmp_path / ".config").write_text("\n".join(options))
    sources.demand_configuration(tmp_path / ".config")
    (tmp_path / ".config").write_text("\n".join(options[1:]))
    with pytest.raises(RuntimeError, match=options[0].split("=")[0]):
        sources.demand_configuration(tmp_path / ".config")
