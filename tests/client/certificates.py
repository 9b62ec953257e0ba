"""Certificates for one test each, made by openssl: nothing of them is kept."""

import datetime
import subprocess

OLD = """[ca]
default_ca = own
[own]
database = {0}/old.index
new_certs_dir = {0}
default_md = sha256
policy = any
rand_serial = yes
x509_extensions = names
[any]
commonName = supplied
[names]
subjectAltName = DNS:localhost
"""


class Authority:
    """A CA in a folder, and what it signs."""

    def __init__(self, folder, name):
        self.folder = folder
        self.file = folder / f"{name}.pem"
        self.key = folder / f"{name}.key"
        self.make(self.file, self.key, name, "basicConstraints=critical,CA:TRUE",
                  "keyUsage=critical,keyCertSign,cRLSign")

    @staticmethod
    def make(file, key, name, *extensions, options=(), days=30):
        added = [word for extension in extensions for word in ("-addext", extension)]
        subprocess.run(
            ["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256",
             "-nodes", "-days", str(days), "-subj", f"/CN={name}", "-keyout", key, "-out", file,
             *added, *options],
            check=True, capture_output=True, timeout=30)

    def run_out(self):
        """The files of one that signs itself and was good until yesterday."""
        file, key, request = (self.folder / f"old.{kind}" for kind in ("pem", "key", "csr"))
        self.make(file, key, "old")
        rules = self.folder / "old.cnf"
        rules.write_text(OLD.format(self.folder))
        (self.folder / "old.index").touch()
        now = datetime.datetime.now(datetime.timezone.utc)
        begun, ended = (f"{now - datetime.timedelta(days):%Y%m%d%H%M%SZ}" for days in (2, 1))
        for words in (("req", "-new", "-key", key, "-subj", "/CN=old", "-out", request),
                      ("ca", "-batch", "-notext", "-config", rules, "-selfsign", "-keyfile", key, "-in", request,
                       "-startdate", begun, "-enddate", ended, "-out", file)):
            subprocess.run(["openssl", *words], check=True, capture_output=True, timeout=30)
        return file, key

    def sign(self, name, names="DNS:localhost,IP:127.0.0.1", days=30):
        """The files of a certificate and its key."""
        file, key = self.folder / f"{name}.pem", self.folder / f"{name}.key"
        self.make(file, key, name, "basicConstraints=critical,CA:FALSE", f"subjectAltName={names}",
                  options=("-CA", self.file, "-CAkey", self.key), days=days)
        return file, key
