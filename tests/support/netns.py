"""Network namespaces for the peer-sharing tests: a small laboratory of namespaces joined by veth
pairs and a bridge, sockets opened inside a namespace, and Windows programs run in a namespace
through a Wine prefix whose server runs in that same namespace.

Nothing here touches the machine's own interfaces: every interface is created inside a namespace
that the laboratory made, and everything is deleted again by close()."""
import ctypes
import os
import re
import shutil
import signal
import subprocess
import threading

from veytest import PATIENCE, WINE_RUN

CLONE_NEWNET = 0x40000000
WINE_PREFIX_SCRIPT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "wine-prefix")
_libc = ctypes.CDLL(None, use_errno=True)


def unavailable_reason():
    """Why namespace tests cannot run on this machine, or None when they can."""
    if os.geteuid() != 0:
        return "network namespace tests need root (ip netns add)"
    if not shutil.which("ip"):
        return "network namespace tests need the ip command (iproute2)"
    probe = f"veyprobe{os.getpid()}"
    if subprocess.run(["ip", "netns", "add", probe], capture_output=True).returncode != 0:
        return "ip netns add is not permitted here"
    subprocess.run(["ip", "netns", "del", probe], capture_output=True)
    return None


def ip(*args):
    subprocess.run(["ip", *args], check=True, capture_output=True)


def in_namespace(namespace, function):
    """Runs function on a thread that has entered the namespace; sockets it opens stay there."""
    outcome = {}

    def enter_and_run():
        fd = os.open(f"/var/run/netns/{namespace}", os.O_RDONLY)
        try:
            if _libc.setns(fd, CLONE_NEWNET) != 0:
                raise OSError(ctypes.get_errno(), f"setns into {namespace}")
            outcome["value"] = function()
        except BaseException as error:  # handed to the caller's thread
            outcome["error"] = error
        finally:
            os.close(fd)

    thread = threading.Thread(target=enter_and_run)
    thread.start()
    thread.join()
    if "error" in outcome:
        raise outcome["error"]
    return outcome["value"]


def namespace_inode(namespace):
    return os.stat(f"/var/run/netns/{namespace}").st_ino


class Lab:
    """Namespaces named after this process, so that parallel runs never share one."""

    def __init__(self):
        self.tag = f"vey{os.getpid()}"
        self.namespaces = []
        # Namespaces of runs whose process is gone (killed before it could clean up).
        existing = os.listdir("/var/run/netns") if os.path.isdir("/var/run/netns") else []
        for name in existing:
            match = re.fullmatch(r"vey(\d+)[a-z]", name)
            if match and not os.path.exists(f"/proc/{match.group(1)}"):
                self.namespaces.append(name)
        self.close()

    def namespace(self, role):
        name = self.tag + role
        ip("netns", "add", name)
        self.namespaces.append(name)
        ip("-n", name, "link", "set", "lo", "up")
        return name

    def bridge(self, namespace, name, address):
        ip("-n", namespace, "link", "add", name, "type", "bridge")
        ip("-n", namespace, "addr", "add", address, "dev", name)
        ip("-n", namespace, "link", "set", name, "up")

    def veth(self, namespace_a, name_a, address_a, namespace_b, name_b, address_b=None, bridge_b=None):
        """A veth pair from one namespace to another; the second end gets an address or joins a bridge."""
        ip("link", "add", name_a, "netns", namespace_a, "type", "veth", "peer", "name", name_b, "netns", namespace_b)
        ip("-n", namespace_a, "addr", "add", address_a, "dev", name_a)
        if address_b:
            ip("-n", namespace_b, "addr", "add", address_b, "dev", name_b)
        if bridge_b:
            ip("-n", namespace_b, "link", "set", name_b, "master", bridge_b)
        ip("-n", namespace_a, "link", "set", name_a, "up")
        ip("-n", namespace_b, "link", "set", name_b, "up")

    def close(self):
        """Ends every process left in the namespaces and deletes them."""
        for name in reversed(self.namespaces):
            pids = subprocess.run(["ip", "netns", "pids", name], capture_output=True, text=True).stdout.split()
            for pid in pids:
                try:
                    os.kill(int(pid), signal.SIGKILL)
                except (ProcessLookupError, ValueError):
                    pass
            subprocess.run(["ip", "netns", "del", name], capture_output=True)
        self.namespaces = []


class WineInNamespace:
    """A Wine prefix whose server runs inside one namespace, so that every socket the programs
    open is created in that namespace. Every run first checks where the server runs."""

    def __init__(self, namespace, prefix):
        self.namespace = namespace
        self.prefix = prefix
        # A server of this prefix left by an earlier run would serve sockets from its own
        # namespace: it is stopped before the prefix's server is started here.
        self.wine_prefix("down")
        self.wine_prefix("up")
        self.check_server()

    def wine_prefix(self, action):
        subprocess.run(["ip", "netns", "exec", self.namespace, WINE_PREFIX_SCRIPT, action, self.prefix],
                       stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                       check=True, timeout=PATIENCE * 2)

    def server_pids(self):
        """The processes of the wineserver that serves this prefix (known by its working folder)."""
        info = os.stat(self.prefix)
        folder = f"server-{info.st_dev:x}-{info.st_ino:x}"
        pids = []
        for entry in os.listdir("/proc"):
            if not entry.isdigit():
                continue
            try:
                if "wineserver" in os.readlink(f"/proc/{entry}/exe") and \
                        os.path.basename(os.readlink(f"/proc/{entry}/cwd")) == folder:
                    pids.append(int(entry))
            except OSError:
                pass
        return pids

    def check_server(self):
        pids = self.server_pids()
        if len(pids) != 1:
            raise AssertionError(f"expected one wineserver for {self.prefix}, found {pids}")
        if os.stat(f"/proc/{pids[0]}/ns/net").st_ino != namespace_inode(self.namespace):
            raise AssertionError(f"the wineserver of {self.prefix} does not run in {self.namespace}")

    def run(self, program, args=(), timeout=PATIENCE):
        """Runs a Windows program in the namespace; returns (exit code & 0xFF, stdout bytes)."""
        self.check_server()
        command = ["ip", "netns", "exec", self.namespace, "env", f"VEY_WINEPREFIX={self.prefix}", WINE_RUN,
                   program, *args]
        done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                              timeout=timeout)
        return done.returncode, done.stdout

    def start(self, program, args=()):
        """Starts a Windows program in the namespace and returns at once with its Popen. The process
        is the Windows program itself (every wrapper execs), so signals sent to it reach it."""
        self.check_server()
        command = ["ip", "netns", "exec", self.namespace, "env", f"VEY_WINEPREFIX={self.prefix}", WINE_RUN,
                   program, *args]
        return subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                stderr=subprocess.DEVNULL)

    def close(self):
        self.wine_prefix("down")
