"""Certificates for one test each, made by openssl: nothing of them is kept."""

import subprocess


class Authority:
    """A CA in a folder, and what it signs."""

    def __init__(self, folder, name):
        self.folder = folder
        self.file = folder / f"{name}.pem"
        self.key = folder / f"{name}.key"
        self.make(self.file, self.key, name, "basicConstraints=critical,CA:TRUE")

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
        file, key = self.folder / "old.pem", self.folder / "old.key"
        self.make(file, key, "old", "subjectAltName=DNS:localhost")
        subprocess.run(["openssl", "x509", "-in", file, "-signkey", key, "-days", "-1", "-out", file],
                       check=True, capture_output=True, timeout=30)
        return file, key

    def sign(self, name, names="DNS:localhost,IP:127.0.0.1", days=30):
        """The files of a certificate and its key."""
        file, key = self.folder / f"{name}.pem", self.folder / f"{name}.key"
        self.make(file, key, name, "basicConstraints=critical,CA:FALSE", f"subjectAltName={names}",
                  options=("-CA", self.file, "-CAkey", self.key), days=days)
        return file, key
