"""The release pairs of the changed-bytes benchmark: two versions of one Debian package, fetched
with apt-get download, unpacked with dpkg-deb -x, and the site make-manifest --site writes for the
newer one with the older as --previous. Everything is kept in a cache folder between runs, since
the sites of the largest pairs take minutes to make."""
import os
import re
import shutil
import subprocess

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
MAKE_MANIFEST = os.path.join(ROOT, "tools", "make-manifest")
PACKAGES = ("libreoffice-core", "openjdk-17-jre-headless", "chromium")


def offered_versions(package):
    """(older, newer): the two highest versions the configured archives offer (a version known
    only from the local dpkg status is not offered)."""
    text = subprocess.run(["apt-cache", "policy", package], capture_output=True, text=True, check=True).stdout
    versions = []
    current = None
    for line in text.split("Version table:", 1)[-1].splitlines():
        version = re.match(r"^ (?:\*\*\*| {3}) (\S+) -?\d+$", line)
        if version:
            current = version.group(1)
        elif current and re.match(r"^ +-?\d+ (?!/var/lib/dpkg/status)\S+", line) and current not in versions:
            versions.append(current)
    if len(versions) < 2:
        raise RuntimeError(f"apt-cache policy {package} offers fewer than two versions: {versions}")
    return versions[1], versions[0]


def plain(version):
    """A version as a folder name (no ":" of the epoch)."""
    return version.replace(":", "_")


class Pair:
    def __init__(self, package, cache):
        self.package = package
        self.cache = cache
        self.old_version, self.new_version = offered_versions(package)
        self.old = self.tree(self.old_version)
        self.new = self.tree(self.new_version)

    def deb(self, version):
        folder = os.path.join(self.cache, "debs")
        os.makedirs(folder, exist_ok=True)
        wanted = f"{self.package}_{version.replace(':', '%3a')}_"
        found = [name for name in os.listdir(folder) if name.startswith(wanted) and name.endswith(".deb")]
        if not found:
            subprocess.run(["apt-get", "download", f"{self.package}={version}"], cwd=folder, check=True,
                           stdout=subprocess.DEVNULL)
            found = [name for name in os.listdir(folder) if name.startswith(wanted) and name.endswith(".deb")]
        return os.path.join(folder, found[0])

    def tree(self, version):
        """The package's files as a release folder: regular files only (symbolic links, which point
        outside the package or to its own files, are not part of what an updater installs)."""
        folder = os.path.join(self.cache, "trees", f"{self.package}_{plain(version)}")
        if not os.path.isdir(folder):
            partial = folder + ".partial"
            shutil.rmtree(partial, ignore_errors=True)
            os.makedirs(partial)
            subprocess.run(["dpkg-deb", "-x", self.deb(version), partial], check=True)
            subprocess.run(["find", partial, "-type", "l", "-delete"], check=True)
            os.replace(partial, folder)
        return folder

    def site(self, level, window_log, threads=None):
        """The site of the newer version with patches from the older, made once per level, window and
        number of zstd's threads (which may change the objects, so it names the site too)."""
        name = f"{self.package}_{plain(self.old_version)}_{plain(self.new_version)}_L{level}_W{window_log}"
        name += f"_T{threads}" if threads else ""
        folder = os.path.join(self.cache, "sites", name)
        if not os.path.isfile(os.path.join(folder, "manifest.json")):
            partial = folder + ".partial"
            shutil.rmtree(partial, ignore_errors=True)
            os.makedirs(os.path.dirname(partial), exist_ok=True)
            subprocess.run(["nice", "-n", "19", MAKE_MANIFEST, self.new, "--site", partial, "--url-prefix", "/files",
                            "--previous", self.old, "--level", str(level), "--window-log", str(window_log),
                            *(["--threads", str(threads)] if threads else [])],
                           check=True)
            shutil.rmtree(folder, ignore_errors=True)
            os.replace(partial, folder)
        return folder
