"""The packages come, are used, give way to the next build, and go."""

import json
import re
import shutil
import subprocess
import time

from service import UNIT, Service

PACKAGES = ("liblum1", "liblum-linux1", "liblum-dev", "lumd")
EARLIER = "0.9.0"
MODULE = "/usr/share/doc/lumd/examples/simulated/modules/iivi-new-map.toml"


def built(root):
    """The packages by their names, those of debug symbols among them."""
    found = {}
    for file in sorted(root.packages.glob("*.deb")):
        found[file.name.split("_")[0]] = file
    return found


def put(root, name, files):
    """The folder, as the root sees it, with these packages."""
    folder = root / "srv" / name
    folder.mkdir()
    for file in files:
        shutil.copy(file, folder)
    return [f"/srv/{name}/{file.name}" for file in sorted(folder.iterdir())]


def earlier(root, file):
    """The same package under a lower version."""
    work = root / "srv" / "work"
    subprocess.run(["dpkg-deb", "-R", file, work], check=True)
    control = work / "DEBIAN/control"
    text = control.read_text()
    version = re.search(r"^Version: (.*)$", text, re.MULTILINE).group(1)
    control.write_text(text.replace(f"Version: {version}", f"Version: {EARLIER}")
                       .replace(f"(= {version})", f"(= {EARLIER})"))
    packed = root / "srv" / f"{file.name.split('_')[0]}_{EARLIER}.deb"
    subprocess.run(["dpkg-deb", "-b", "--root-owner-group", "-Zgzip", work, packed], check=True,
                   stdout=subprocess.DEVNULL)
    shutil.rmtree(work)
    return packed


def version_of(root, package):
    return root.run("dpkg-query", "-W", "-f", "${Version}", package)


def install_earlier_build(steps, root):
    steps.say("An earlier build is installed")
    packages = built(root)
    for package in PACKAGES:
        steps.check(f"{package} is built", package in packages)
    for package in PACKAGES:
        if package != "liblum-dev":
            steps.check(f"{package} has its debug symbols beside it", f"{package}-dbgsym" in packages)
    root.before = root.names()
    root.apt("install", *put(root, "earlier", [earlier(root, packages[one]) for one in PACKAGES if one != "liblum-dev"]))
    shutil.rmtree(root / "srv/earlier")
    steps.check("apt installs them with all they need", version_of(root, "lumd") == EARLIER)
    user = root.run("id", "lumd")
    steps.check("the service's user is there, in the group of the buses", "(i2c)" in user and "(lumd)" in user, user)
    enabled = root.has("etc/systemd/system/multi-user.target.wants/lumd.service")
    steps.check("the service starts with the machine", enabled)
    wrong = root.run("systemd-analyze", "verify", "--man=no", "/" + UNIT)
    steps.check("systemd finds nothing wrong with its unit", not wrong.strip(), wrong)
    for shell in ("bash-completion/completions/lumctl", "zsh/vendor-completions/_lumctl",
                  "fish/vendor_completions.d/lumctl.fish"):
        steps.check(f"{shell.split('/')[0]} completes lumctl", root.has(f"usr/share/{shell}"))
    libraries = [str(one) for one in root.path.glob("usr/lib/*-linux-gnu/liblum*.so.1")]
    steps.check("libraries stand in the machine's own folder", len(libraries) == 2, str(libraries))
    notes = subprocess.run(["readelf", "-S", root / "usr/sbin/lumd"], capture_output=True, text=True).stdout
    steps.check("programs are stripped", ".symtab" not in notes and ".debug_info" not in notes)


def describe_node(root):
    """The example for the service, with modules that are simulated."""
    text = (root / "usr/share/doc/lumd/examples/node.toml").read_text()
    text = re.sub(r'^(backend = )"i2c-dev"$', rf'\1"simulated"\nmodule = "{MODULE}"', text, flags=re.MULTILINE)
    text = re.sub(r"^(bus|address) = .*\n", "", text, flags=re.MULTILINE)
    text = text.replace('"/sys/class/leds"', '"/var/lib/lumd/leds"')
    (root / "etc/lumd/node.toml").write_text(text)
    root.run("chown", "root:lumd", "/etc/lumd/node.toml")
    root.run("chmod", "0640", "/etc/lumd/node.toml")


def ports(root):
    shown = json.loads(root.run("lumctl", "show", "ports", "--json"))
    return {port["name"]: port for port in shown["ports"]}


def all_up(root, patience=60):
    for _ in range(patience):
        if all(port["state"] == "up" for port in ports(root).values()):
            return True
        time.sleep(1)
    return False


def start(steps, root):
    service = Service(root)
    steps.check("the service says that it is ready", service.start(), service.said())
    steps.check("both ports of the description come up", all_up(root), service.said())
    return service


def run_service(steps, root):
    steps.say("The service runs as its unit says")
    describe_node(root)
    found = root.run("setpriv", "--reuid=lumd", "--regid=lumd", "--clear-groups", "lumd", "--check", "--config",
                     "/etc/lumd/node.toml")
    steps.check("its user may read the description, which is right", "node.toml" in found, found)
    service = start(steps, root)
    limits = (root / f"proc/{service.process.pid}/status").read_text()
    steps.check("it has no privileges and can get none",
                "CapBnd:\t0000000000000000" in limits and "NoNewPrivs:\t1" in limits, limits)
    root.run("lumctl", "set", "west:1", "p2-setting=25")
    steps.check("a setting is taken", setting(root) == 25, str(setting(root)))
    traced = root.run("lum-trace", "/var/log/lumd")
    steps.check("lum-trace shows what was traced of it", "saved chkpt entry" in traced, traced[-2000:])
    open_to_others = root.run("find", "/var/lib/lumd", "/var/log/lumd", "-type", "f", "-perm", "/077")
    steps.check("what it writes is its own", not open_to_others.strip(), open_to_others)
    steps.check("it stops in time", service.stop() == 0, service.said())


def setting(root):
    """What is saved of the one setting that was made."""
    shown = json.loads(root.run("lumctl", "show", "config", "west:1", "--json"))
    settings = shown["ports"][0]["sub_ports"][0]["settings"]
    return next(one["saved"]["value"] for one in settings if one["name"] == "p2-setting")


def upgrade(steps, root):
    steps.say("This build takes the earlier one's place")
    description = (root / "etc/lumd/node.toml").read_bytes()
    packages = built(root)
    root.apt("install", *put(root, "packages", packages.values()))
    steps.check("apt upgrades them", version_of(root, "lumd") != EARLIER)
    steps.check("the description is as it was", (root / "etc/lumd/node.toml").read_bytes() == description)
    service = start(steps, root)
    steps.check("the setting is as it was", setting(root) == 25, str(setting(root)))
    steps.check("it stops in time", service.stop() == 0, service.said())


def remove_and_purge(steps, root):
    steps.say("The packages go")
    root.apt("remove", *PACKAGES)
    steps.check("the programs and libraries are gone", not root.has("usr/sbin/lumd") and
                not list(root.path.glob("usr/lib/*/liblum*")))
    steps.check("description and settings stay", root.has("etc/lumd/node.toml") and
                any((root / "var/lib/lumd").iterdir()))
    root.apt("purge", "lumd")
    left = {name for name in root.names() - root.before if not name.startswith(("srv", "var/cache/apt"))}
    steps.check("after a purge nothing is left", not left, "\n".join(sorted(left)))
    accounts = (root / "etc/passwd").read_text() + (root / "etc/group").read_text()
    steps.check("nor user and group", not re.search(r"^lumd:", accounts, re.MULTILINE))
