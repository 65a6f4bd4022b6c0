"""dist.py signs the libraries so that the signature verifies, and changes nothing else in them."""

import http.server
import re
import shlex
import struct
import sys
import tempfile
import threading
import unittest
import zipfile
from pathlib import Path

from release.dist_support import PROCESSORS, copy_project, open_shop, run
from support import TOOLS, load_script

PROJECT = TOOLS.parent
dist = load_script("release/dist.py")
PASSWORD = "throw-away phrase"
MOMENT = 1763717001

CHECKSUM_IN_OPTIONAL_HEADER = 64
CERTIFICATES_IN_OPTIONAL_HEADER = 112 + 4 * 8

# The configuration of the time-stamp authority that the test plays.
TSA_CONFIGURATION = """
[tsa]
default_tsa = it
[it]
serial = serial
default_policy = 1.2.3.4.1
digests = sha256, sha384, sha512
signer_digest = sha256
"""


def make_certificate(name, usage, *more):
    """Makes a self-signed certificate and its key: NAME.pem and NAME.key."""
    run("openssl", "req", "-x509", "-newkey", "rsa:2048", "-noenc", "-days", "3", "-subj", f"/CN={name}",
        "-addext", f"extendedKeyUsage={usage}", "-keyout", f"{name}.key", "-out", f"{name}.pem", *more, cwd=shop)


def setUpModule():
    global shop, libraries, checkout, unsigned
    shop, libraries = open_shop()
    checkout = copy_project(PROJECT, shop)
    unsigned = {processor: libraries / processor / "hxsetup.dll" for processor in PROCESSORS}
    make_certificate("maker", "codeSigning")
    make_certificate("stranger", "codeSigning")
    (shop / "password").write_text(PASSWORD)
    run("openssl", "pkcs12", "-export", "-in", "maker.pem", "-inkey", "maker.key", "-passout", "file:password",
        "-out", "maker.p12", cwd=shop)
    run("openssl", "rsa", "-aes256", "-in", "maker.key", "-passout", "file:password", "-out", "locked.key", cwd=shop)


def settings(**files):
    return {f"HX_SIGN_{name}": str(shop / file) for name, file in files.items()}


def with_container():
    return settings(PKCS12="maker.p12", PASSWORD_FILE="password")


def verify(library, authority="maker.pem", *more):
    return run("osslsigncode", "verify", "-in", library, "-CAfile", shop / authority, *more, check=False)


class Timestamps(http.server.BaseHTTPRequestHandler):
    """Plays a time-stamp authority."""

    def do_POST(self):
        query = shop / "query.tsq"
        query.write_bytes(self.rfile.read(int(self.headers["Content-Length"])))
        run("openssl", "ts", "-reply", "-config", "tsa.cnf", "-queryfile", "query.tsq", "-signer", "clock.pem",
            "-inkey", "clock.key", "-out", "reply.tsr", cwd=shop)
        reply = (shop / "reply.tsr").read_bytes()
        self.send_response(200)
        self.send_header("Content-Type", "application/timestamp-reply")
        self.send_header("Content-Length", str(len(reply)))
        self.end_headers()
        self.wfile.write(reply)

    def log_message(self, *arguments):
        pass


class Signing(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="sign-", dir=shop)
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)

    def sign(self, given, processor="arm64", moment=MOMENT):
        """Signs the library of `processor`; returns the path of the signed file."""
        signed = self.folder / "hxsetup.dll"
        signed.write_bytes(dist.sign(unsigned[processor], dist.signing_options(given), "1.2.3", moment))
        return signed

    def assert_verifies(self, library, *more):
        result = verify(library, *more)
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
        return result.stdout

    def test_signature_verifies(self):
        for processor in PROCESSORS:
            said = self.assert_verifies(self.sign(with_container(), processor))
            self.assertIn("hxsetup 1.2.3", said)
            self.assertRegex(said, r"(?i)message digest algorithm *: SHA256")

    def test_kinds_of_certificate(self):
        of_container = self.sign(with_container()).read_bytes()
        for given in (settings(CERTIFICATE="maker.pem", KEY="maker.key"),
                      settings(CERTIFICATE="maker.pem", KEY="locked.key", PASSWORD_FILE="password")):
            signed = self.sign(given)
            self.assert_verifies(signed)
            self.assertEqual(signed.read_bytes(), of_container)

    def test_chain_is_included(self):
        make_certificate("root", "codeSigning", "-addext", "keyUsage=critical,keyCertSign")
        make_certificate("office", "codeSigning", "-addext", "keyUsage=critical,keyCertSign",
                         "-addext", "basicConstraints=critical,CA:TRUE", "-CA", "root.pem", "-CAkey", "root.key")
        make_certificate("clerk", "codeSigning", "-addext", "basicConstraints=critical,CA:FALSE", "-CA", "office.pem",
                         "-CAkey", "office.key")
        (shop / "chain.pem").write_text((shop / "clerk.pem").read_text() + (shop / "office.pem").read_text())
        run("openssl", "pkcs12", "-export", "-in", "chain.pem", "-inkey", "clerk.key", "-passout", "file:password",
            "-out", "chain.p12", cwd=shop)
        for given in (settings(CERTIFICATE="chain.pem", KEY="clerk.key"),
                      settings(PKCS12="chain.p12", PASSWORD_FILE="password")):
            result = verify(self.sign(given), "root.pem")
            self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
        alone = self.sign(settings(CERTIFICATE="clerk.pem", KEY="clerk.key"))
        self.assertNotEqual(verify(alone, "root.pem").returncode, 0)

    def test_same_in_every_run_but_for_its_time(self):
        first = self.sign(with_container()).read_bytes()
        self.assertEqual(self.sign(with_container()).read_bytes(), first)
        self.assertNotEqual(self.sign(with_container(), moment=MOMENT + 1).read_bytes(), first)

    def test_changes_nothing_else(self):
        for processor in PROCESSORS:
            before = bytearray(unsigned[processor].read_bytes())
            after = bytearray(self.sign(with_container(), processor).read_bytes())
            header = struct.unpack_from("<I", before, 0x3C)[0] + 24
            place, size = struct.unpack_from("<II", after, header + CERTIFICATES_IN_OPTIONAL_HEADER)
            self.assertEqual(struct.unpack_from("<II", before, header + CERTIFICATES_IN_OPTIONAL_HEADER), (0, 0))
            # The certificates are after the image, in a separate part of the file.
            self.assertEqual((place, place + size), ((len(before) + 7) // 8 * 8, len(after)))
            for image in (before, after):
                struct.pack_into("<I", image, header + CHECKSUM_IN_OPTIONAL_HEADER, 0)
                struct.pack_into("<II", image, header + CERTIFICATES_IN_OPTIONAL_HEADER, 0, 0)
            self.assertEqual(after[:len(before)], before)
            self.assertEqual(bytes(after[len(before):place]), bytes(place - len(before)))

    def test_database_still_matches(self):
        signed = self.sign(with_container())
        debug = run("llvm-readobj-19", "--coff-debug-directory", signed).stdout
        known = re.search(r"PDBGUID: \{?([-0-9A-F]+)\}?", debug)[1]
        database = run("llvm-pdbutil-19", "dump", "--summary", libraries / "arm64/hxsetup.pdb").stdout
        self.assertEqual(known, re.search(r"GUID: \{([-0-9A-F]+)\}", database)[1])

    def test_tampering_is_found(self):
        signed = self.sign(with_container())
        good = signed.read_bytes()
        for place in (0x50, len(unsigned["arm64"].read_bytes()) // 2, len(unsigned["arm64"].read_bytes()) - 1):
            signed.write_bytes(good[:place] + bytes([good[place] ^ 1]) + good[place + 1:])
            self.assertNotEqual(verify(signed).returncode, 0, f"byte {place}")
        signed.write_bytes(good)
        self.assert_verifies(signed)

    def test_other_signers_do_not_verify(self):
        self.assertNotEqual(verify(self.sign(with_container()), "stranger.pem").returncode, 0)
        self.assertNotEqual(verify(unsigned["arm64"]).returncode, 0)

    def test_wrong_password(self):
        (self.folder / "wrong").write_text("wrong phrase")
        for given in (settings(PKCS12="maker.p12", PASSWORD_FILE=self.folder / "wrong"), settings(PKCS12="maker.p12"),
                      settings(CERTIFICATE="maker.pem", KEY="stranger.key")):
            with self.assertRaisesRegex(dist.Refusal, "could not be signed"):
                self.sign(given)

    def test_nobody_is_asked_for_a_password(self):
        arguments = (unsigned["x64"], *dist.signing_options(settings(CERTIFICATE="maker.pem", KEY="locked.key")))
        code = "import sys, dist; dist.sign(sys.argv[1], sys.argv[2:], '1.2.3', 1)"
        command = shlex.join([sys.executable, "-B", "-c", code, *map(str, arguments)])
        # At a terminal, where it could ask and would wait for the answer.
        result = run("timeout", "20", "script", "--quiet", "--return", "--command", command, "/dev/null",
                     env={"PYTHONPATH": str(TOOLS / "release")}, check=False)
        self.assertIn("could not be signed", result.stdout)
        self.assertNotEqual(result.returncode, 0)

    def test_password_is_not_printed(self):
        with self.assertRaises(dist.Refusal) as caught:
            self.sign(settings(CERTIFICATE="stranger.pem", KEY="locked.key", PASSWORD_FILE="password"))
        self.assertNotIn(PASSWORD, str(caught.exception))
        self.assertNotIn(PASSWORD, " ".join(dist.signing_options(with_container())))

    def test_time_stamp(self):
        make_certificate("clock", "critical,timeStamping", "-addext", "keyUsage=critical,digitalSignature")
        (shop / "tsa.cnf").write_text(TSA_CONFIGURATION)
        (shop / "serial").write_text("01\n")
        server = http.server.HTTPServer(("127.0.0.1", 0), Timestamps)
        self.addCleanup(server.server_close)
        threading.Thread(target=server.serve_forever, daemon=True).start()
        self.addCleanup(server.shutdown)
        address = f"http://127.0.0.1:{server.server_port}/"
        said = self.assert_verifies(self.sign({**with_container(), "HX_SIGN_TIMESTAMP": address}), "maker.pem",
                                    "-TSA-CAfile", shop / "clock.pem")
        self.assertIn("/CN=clock", said)
        self.assertTrue((shop / "query.tsq").is_file())

    def test_archive(self):
        archive = dist.make_release(checkout, libraries, self.folder / "out", with_container())
        with zipfile.ZipFile(archive) as content:
            content.extractall(self.folder)
        top = self.folder / archive.stem
        run("sha256sum", "--check", "--strict", "SHA256SUMS", cwd=top)
        self.assertIn("The libraries are signed.", (top / "README.txt").read_text())
        for processor in PROCESSORS:
            self.assert_verifies(top / processor / "hxsetup.dll")
            self.assert_verifies(top / processor / "hxrun.exe")
        again = dist.make_release(checkout, libraries, self.folder / "again", with_container())
        self.assertEqual(again.read_bytes(), archive.read_bytes())


if __name__ == "__main__":
    unittest.main()
