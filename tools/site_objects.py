"""The objects of a site that make-manifest --site writes: every release file as it is under the
URL prefix, its compressed form when smaller, and patches from the same file of earlier releases
when smaller still. Each object is named by the SHA-1 of what it decodes to (and of the file a
patch applies to), so that the objects of one release can stay beside those of the next.
Compression is Debian's zstd program."""
import hashlib
import os
import shutil
import subprocess
import tempfile

# The manifest's "format" that says its files may have compressed objects and patches.
FORMAT = 2
# zstd 1.5.4 makes no patch from a base of 2 GiB or more.
MAX_PATCH_BASE = (1 << 31) - 1


class SiteError(Exception):
    pass


class Settings:
    def __init__(self, level, window_log, object_prefix, threads=None):
        if not 1 <= level <= 22:
            raise SiteError(f"--level {level} is not between 1 and 22")
        if not 10 <= window_log <= 31:
            raise SiteError(f"--window-log {window_log} is not between 10 and 31")
        if threads is not None and not 1 <= threads <= 64:
            raise SiteError(f"--threads {threads} is not between 1 and 64")
        self.level = level
        self.window_log = window_log
        self.threads = threads
        self.object_prefix = "/" + object_prefix.strip("/")
        if self.object_prefix == "/":
            raise SiteError("--object-prefix must name a folder, not the site's root")

    def zstd(self):
        command = ["zstd", "-q", "-f", f"-{self.level}", f"--long={self.window_log}"]
        if self.level > 19:
            command.insert(1, "--ultra")
        if self.threads:
            command.append(f"-T{self.threads}")
        return command


def sha1_of(path):
    digest = hashlib.sha1()
    with open(path, "rb") as f:
        for block in iter(lambda: f.read(1 << 20), b""):
            digest.update(block)
    return digest.hexdigest().upper()


def site_path(site, url_path):
    return os.path.join(site, *[part for part in url_path.split("/") if part])


def place_file(source, destination):
    """The release file in the site: a hard link when the two share a file system, else a copy."""
    os.makedirs(os.path.dirname(destination), exist_ok=True)
    if os.path.lexists(destination):
        os.remove(destination)
    try:
        os.link(source, destination)
    except OSError:
        shutil.copyfile(source, destination)


def run_zstd(command, output):
    """Runs zstd writing to a temporary file beside output; the size written, or None when zstd
    refused (the temporary file is then removed)."""
    folder = os.path.dirname(output)
    os.makedirs(folder, exist_ok=True)
    descriptor, partial = tempfile.mkstemp(dir=folder, prefix=".partial-")
    os.close(descriptor)
    done = subprocess.run(command + ["-o", partial], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                          stderr=subprocess.PIPE)
    if done.returncode != 0:
        os.remove(partial)
        return None
    os.replace(partial, output)
    return os.path.getsize(output)


def compress(settings, site, source, sha1):
    """(member "z", bytes) of the file's compressed object, or (None, None) when it is no smaller."""
    url = f"{settings.object_prefix}/{sha1}.zst"
    output = site_path(site, url)
    size = run_zstd(settings.zstd() + [source], output)
    if size is None:
        raise SiteError(f"zstd could not compress {source}")
    if size >= os.path.getsize(source):
        os.remove(output)
        return None
    return {"u": url, "s": size}


def patch(settings, site, base, base_sha1, source, sha1):
    """The member of one patch from base to source, or None when zstd made none."""
    url = f"{settings.object_prefix}/{base_sha1}-{sha1}.zst"
    size = run_zstd(settings.zstd() + [f"--patch-from={base}", source], site_path(site, url))
    return None if size is None else {"h": base_sha1, "u": url, "s": size}


def write_site(site, release, url_prefix, files, previous, settings):
    """Writes every file and its objects into site and adds the members "z" and "p" to the
    manifest entries in files."""
    os.makedirs(site, exist_ok=True)
    prefix_path = site_path(site, url_prefix)
    objects_path = site_path(site, settings.object_prefix)
    if os.path.commonpath([prefix_path, objects_path]) == prefix_path:
        for entry in files:
            if os.path.commonpath([site_path(prefix_path, entry["n"]), objects_path]) == objects_path:
                raise SiteError(f'{entry["n"]} would lie among the objects under {settings.object_prefix}: '
                                "choose another --object-prefix or --url-prefix")
    if prefix_path == os.path.normpath(site):
        for entry in files:
            if entry["n"] in ("manifest.json", "manifest.json.sig"):
                raise SiteError(f'{entry["n"]} would be replaced by the site\'s manifest: give --url-prefix')
    for entry in files:
        source = os.path.join(release, *entry["n"].split("/"))
        place_file(source, site_path(prefix_path, entry["n"]))
        compressed = compress(settings, site, source, entry["h"])
        if compressed:
            entry["z"] = compressed
        smallest = compressed["s"] if compressed else entry["s"]
        patches = {}
        for folder in previous:
            base = os.path.join(folder, *entry["n"].split("/"))
            if not os.path.isfile(base) or os.path.getsize(base) > MAX_PATCH_BASE:
                continue
            base_sha1 = sha1_of(base)
            if base_sha1 == entry["h"] or base_sha1 in patches:
                continue
            made = patch(settings, site, base, base_sha1, source, entry["h"])
            if made and made["s"] < smallest:
                patches[base_sha1] = made
            elif made:
                os.remove(site_path(site, made["u"]))
        if patches:
            entry["p"] = list(patches.values())
