"""What is installed on a router: each file with its mode, the router that runs with these files alone, the feed's
Makefile (with stand-ins for the build system's own files) and the script of the first boot."""

import os
import re
import stat
import subprocess
from pathlib import Path
from typing import Iterator

import pytest
from velasim import Router

pytestmark = pytest.mark.shipped

SOURCE = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ.get("VELA_BUILD") or SOURCE / "build").resolve()
FEED = SOURCE / "openwrt/vela-modem"
EXAMPLES = "/usr/share/doc/vela-modem/examples"
# The files of each package: mode, and what of the source tree or of the build it is; of a link, its text.
PACKAGES = {
    "vela-modem": {
        "/usr/bin/vela_modem": (0o755, BUILD / "vela_modem"),
        "/usr/lib/vela_modem.so": (0o644, BUILD / "vela_modem.so"),
        "/etc/config/velaconfig": (0o600, FEED / "files/velaconfig.config"),
        "/etc/config/velaforward": (0o600, FEED / "files/velaforward.config"),
        "/etc/config/velamodem": (0o600, FEED / "files/velamodem.config"),
        "/etc/uci-defaults/vela-modem": (0o755, FEED / "files/vela-modem.defaults"),
        f"{EXAMPLES}/operator.dat": (0o644, SOURCE / "sim/image/usr/share/modem/operator.dat"),
        f"{EXAMPLES}/apn-config.js": (0o644, SOURCE / "sim/image/www/src/lib/apn-config.js"),
    },
    "vela-modem-rpcd": {
        "/usr/bin/vela_api": (0o755, BUILD / "vela_api"),
        "/usr/libexec/rpcd/vela_modem": "../../bin/vela_api",
        "/usr/share/rpcd/acl.d/vela_modem.json": (0o644, FEED / "files/vela_modem.json"),
    },
    "vela-modem-web": {
        f"/www/vela_modem/{path.relative_to(SOURCE / 'www')}": (0o644, path)
        for path in sorted((SOURCE / "www").rglob("*")) if path.is_file()
    },
    "vela-modem-doc": {
        "/usr/share/man/man8/vela_modem.8": (0o644, SOURCE / "man/vela_modem.8"),
        "/usr/share/man/man8/vela_api.8": (0o644, SOURCE / "man/vela_api.8"),
        "/usr/share/bash-completion/completions/vela_modem": (0o644, SOURCE / "completion/vela_modem.bash"),
        "/usr/share/bash-completion/completions/vela_api": (0o644, SOURCE / "completion/vela_modem.bash"),
    },
}
DEFAULTS = "/etc/uci-defaults/vela-modem"


def run(*argv: object, **options: object) -> str:
    result = subprocess.run([str(word) for word in argv], capture_output=True, text=True, umask=0o022, **options)
    assert result.returncode == 0, result.stdout + result.stderr
    return result.stdout


def files(root: Path) -> dict[str, object]:
    """All that is installed below a directory, in the form of PACKAGES: contents in place of where they come from."""
    found = {}
    for path in sorted(root.rglob("*")):
        if path.is_symlink():
            found[str(path).removeprefix(str(root))] = os.readlink(path)
        elif path.is_file():
            found[str(path).removeprefix(str(root))] = (stat.S_IMODE(path.stat().st_mode), path.read_bytes())
        else:
            assert stat.S_IMODE(path.stat().st_mode) == 0o755, path
    return found


def expected(*packages: str) -> dict[str, object]:
    return {path: (what[0], what[1].read_bytes()) if isinstance(what, tuple) else what
            for package in packages for path, what in PACKAGES[package].items()}


@pytest.fixture(scope="module")
def root(tmp_path_factory) -> Path:
    """Where everything is installed."""
    directory = tmp_path_factory.mktemp("root")
    run("cmake", "--install", BUILD, env={**os.environ, "DESTDIR": str(directory)})
    return directory


@pytest.fixture(scope="module")
def feed(tmp_path_factory) -> Path:
    """Where the feed's Makefile puts the packages."""
    directory = tmp_path_factory.mktemp("feed")
    run("make", "-C", FEED, f"TOPDIR={SOURCE}/tests/openwrt", f"OUT={directory}", f"BUILT={BUILD}", "install")
    return directory


@pytest.fixture(scope="module")
def installed(root) -> Iterator[Router]:
    with Router("ec25", root=root) as r:
        r.start_rpcd()
        yield r


# The files


def test_what_is_installed_file_by_file_with_modes(root):
    assert files(root) == expected(*PACKAGES)


@pytest.mark.parametrize("package", PACKAGES)
def test_the_feed_puts_each_file_into_one_package(feed, package):
    assert files(feed / package) == expected(package)


def test_the_packages_depend_on_the_libraries_that_the_programs_may_need(feed):
    depends = {package: (feed / f"{package}.depends").read_text().split() for package in PACKAGES}
    assert depends == {
        "vela-modem": ["+libjson-c", "+libuci", "+libubus", "+libubox", "+libblobmsg-json"],
        "vela-modem-rpcd": ["+vela-modem", "+rpcd", "+libjson-c"],
        "vela-modem-web": ["+vela-modem-rpcd", "+uhttpd-mod-ubus"],
        "vela-modem-doc": ["+vela-modem"],
    }


def test_the_configuration_survives_an_upgrade_of_the_package(feed):
    kept = (feed / "vela-modem.conffiles").read_text().split()
    assert kept == [path for path in PACKAGES["vela-modem"] if path.startswith("/etc/config/")]
    assert [path.name for path in feed.glob("*.conffiles")] == ["vela-modem.conffiles"]


@pytest.mark.parametrize("script", ["postinst", "postrm"])
@pytest.mark.parametrize("image", ["", "/build/image"])
def test_rpcd_is_told_of_the_package_on_a_router_and_not_in_an_image_build(router, feed, script, image):
    r = router(ubus=False, files={"/tmp/script": (feed / f"vela-modem-rpcd.{script}").read_text()})
    r.stand_in("/etc/init.d/rpcd")
    result = r.run("/bin/dash", "/tmp/script", env={"IPKG_INSTROOT": image})
    assert (result.returncode, result.stdout, result.stderr) == (0, "", "")
    assert r.programs == ([] if image else [["/etc/init.d/rpcd", "reload"]])


def test_what_the_feed_takes_of_the_source_tree_is_all_that_a_build_needs(tmp_path):
    run("make", "-C", FEED, f"TOPDIR={SOURCE}/tests/openwrt", f"OUT={tmp_path}",
        "MORE_OPTIONS=-DVELA_OPENWRT_LIBS=bundled", "configure")
    [tree] = (tmp_path / "build_dir").iterdir()
    assert re.fullmatch(r"vela-modem-\d+\.\d+\.\d+", tree.name) and (tree / "build.ninja").exists()
    assert not (tree / ".git").exists() and not list(tree.glob("build*/"))


# The router that has these programs


def test_what_runs_are_the_installed_programs(installed):
    assert not installed.exists("/usr/bin/vela_modem.so")
    assert not re.search(r" /usr/\S*vela", installed.read("/proc/1/mounts"))
    assert installed.run("vela_modem", "signal").stdout.startswith('{\n  "signals":[')
    assert installed.run("vela_api", "list").stdout.count("\n") == 23


def test_the_installed_program_is_on_the_bus(installed):
    result = installed.run("ubus", "-S", "call", "vela_modem", "sms_list", '{"modem_id":3}')
    assert (result.returncode, result.stdout) == (0, '{"messages":[],"code":0}\n')


def test_the_examples_are_of_the_form_that_the_program_reads(router, root):
    for name, place in (("operator.dat", "/usr/share/modem"), ("apn-config.js", "/www/src/lib")):
        text = (root / f"{EXAMPLES[1:]}/{name}").read_text(encoding="utf-8")
        r = router("ec25", root=root, ubus=False, quick=True, files={f"{place}/{name}": text})
        if name == "operator.dat":
            assert r.run("vela_modem", "carrier").stdout.strip() == "Vodafone.de"
        else:
            r.run("vela_modem", "connect-auto")
            assert "option apn 'web.vodafone.de'" in r.read("/etc/config/network")


# The first boot


def boot(r: Router) -> dict[str, str]:
    """Does what a first boot does with the script, and gives the configuration that is there then."""
    result = r.run("/bin/dash", "-c", f"( . {DEFAULTS} )")
    assert (result.returncode, result.stdout, result.stderr) == (0, "", "")
    return {name: r.read(f"/etc/config/{name}") for name in r.listdir("/etc/config")}


def shown(r: Router, package: str) -> list[str]:
    return r.run("uci", "show", package).stdout.splitlines()


def test_on_a_fresh_installation_the_first_boot_changes_nothing(router, root):
    r = router(root=root, ubus=False)
    before = {name: r.read(f"/etc/config/{name}") for name in r.listdir("/etc/config")}
    assert {"velaconfig", "velaforward", "velamodem", "mwan3"} <= set(before)
    assert boot(r) == before


def test_what_is_missing_is_added_once(router, root):
    member = "config member '{0}_only'\n\toption interface '{0}'\n"
    r = router(root=root, ubus=False, uci={
        "velaconfig": "", "velaforward": "", "velamodem": "",
        "mwan3": "".join(member.format(name) for name in ("wan", "modem_1_1_2", "modem_2_1_2")),
    })
    first = boot(r)
    for package in ("velaconfig", "velaforward", "velamodem"):
        fresh = router(root=root, ubus=False)
        assert shown(r, package) == shown(fresh, package)
    assert [line for line in shown(r, "mwan3") if "default_poli" in line] == [
        "mwan3.default_poli=policy", "mwan3.default_poli.use_member='modem_1_1_2_only' 'modem_2_1_2_only'"]
    assert boot(r) == first


def test_what_is_there_stays(router, root):
    own = {
        "velaconfig": "\nconfig service 'modem'\n\tlist bus '2-1.2'\n\toption operator 'Visible'\n\n"
                      "config service 'modem_sms'\n\toption country 'AT'\n\n"
                      "config service 'passthrough'\n\toption enable '1'\n",
        "velamodem": "\nconfig sim 'sim'\n\toption sim_num '2'\n",
        "velaforward": "\nconfig general 'general'\n\toption phone '43'\n",
        "mwan3": "\nconfig member 'modem_1_1_2_only'\n\toption interface 'modem_1_1_2'\n\n"
                 "config policy 'default_poli'\n\toption last_resort 'blackhole'\n\tlist use_member 'wan_only'\n"
                 "\tlist use_member 'modem_1_1_2_only'\n",
    }
    r = router(root=root, ubus=False, uci=own)
    after = boot(r)
    assert {name: after[name] for name in own} == own


def test_a_list_gets_only_what_it_lacks(router, root):
    r = router(root=root, ubus=False, uci={
        "mwan3": "config member 'modem_1_1_2_only'\n\nconfig policy 'default_poli'\n\tlist use_member 'wan_only'\n"})
    boot(r)
    assert shown(r, "mwan3")[-1] == "mwan3.default_poli.use_member='wan_only' 'modem_1_1_2_only'"


def test_packages_that_the_router_does_not_have_are_not_made(router, root):
    r = router(root=root, ubus=False, uci={"mwan3": None})
    assert "mwan3" not in boot(r)
