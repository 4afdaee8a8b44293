"""Certificates for tests, good ones and bad ones, made by the openssl program in a folder."""

import pathlib
import ssl
import subprocess

CONFIG = """
[ca]
default_ca = here
[here]
database = {folder}/index
new_certs_dir = {folder}
rand_serial = yes
default_md = sha256
policy = any
unique_subject = no
[any]
commonName = supplied
"""
USUAL = {"basicConstraints": "critical,CA:FALSE", "extendedKeyUsage": "serverAuth",
         "subjectAltName": "IP:127.0.0.1,DNS:pump.example"}
AUTHORITY = {"basicConstraints": "critical,CA:TRUE", "keyUsage": "keyCertSign,cRLSign"}


class Certificates:
    """File names by what they hold: authority(), issue()."""

    def __init__(self, folder):
        self.folder = pathlib.Path(folder)
        (self.folder / "index").touch()
        (self.folder / "config").write_text(CONFIG.format(folder=folder))

    def file(self, name, kind):
        return str(self.folder / f"{name}.{kind}")

    def openssl(self, *words):
        subprocess.run(["openssl", *words], check=True, capture_output=True, cwd=self.folder)

    def key(self, name, size=None):
        kind = ("RSA", f"rsa_keygen_bits:{size}") if size else ("EC", "ec_paramgen_curve:P-256")
        self.openssl("genpkey", "-algorithm", kind[0], "-pkeyopt", kind[1], "-out",
                     self.file(name, "key"))

    def alter(self, name):
        """Spoils the signature of a certificate."""
        pem = pathlib.Path(self.file(name, "pem"))
        der = bytearray(ssl.PEM_cert_to_DER_cert(pem.read_text()))
        der[-1] ^= 1
        pem.write_text(ssl.DER_cert_to_PEM_cert(bytes(der)))

    def issue(self, name, issuer=None, start="20200101000000Z", end="20491231000000Z", size=None,
              **extensions):
        """A certificate of this name, from that issuer (or signed by itself), in NAME.pem, its key
        in NAME.key; in NAME.chain both certificates."""
        self.key(name, size)
        about = extensions or USUAL
        (self.folder / "extensions").write_text(
            "".join(f"{key}={value}\n" for key, value in about.items()))
        self.openssl("req", "-new", "-key", self.file(name, "key"), "-subj", f"/CN={name}",
                     "-out", self.file(name, "csr"))
        by = ["-selfsign", "-keyfile", self.file(name, "key")] if issuer is None else [
            "-cert", self.file(issuer, "pem"), "-keyfile", self.file(issuer, "key")]
        self.openssl("ca", "-batch", "-notext", "-config", "config", *by, "-in",
                     self.file(name, "csr"), "-out", self.file(name, "pem"), "-startdate", start,
                     "-enddate", end, "-extfile", "extensions")
        chain = [self.file(each, "pem") for each in (name, issuer) if each]
        pathlib.Path(self.file(name, "chain")).write_text(
            "".join(pathlib.Path(each).read_text() for each in chain))
