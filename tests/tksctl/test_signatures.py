"""sign, verify, assess and provenance, and tkssign."""
import os
import plistlib
import struct
import unittest

from support import *


kArm64 = 0x0100000C


def image(processor):
    """The least of a program for macOS: a segment of code, and an empty one that the signature goes into."""
    page = 0x4000
    head = struct.pack("<8I", 0xFEEDFACF, processor, 0, 2, 2, 2 * 72, 0, 0)
    segment = lambda name, at, size: struct.pack("<II16s4Q4I", 0x19, 72, name, at, page, at, size, 7, 5, 0, 0)
    content = head + segment(b"__TEXT", 0, page) + segment(b"__LINKEDIT", page, 16)
    return content.ljust(page, b"\0") + bytes(16)


class Sign(ToolTest):
    def test_makes_an_identity_and_signs_with_it(self):
        folder = self.folder()
        made = self.expect(tool("sign", "--make-identity", folder / "id"), OK, err="")
        self.assertRegex(made.out, r"^root SHA-256: [0-9a-f]{64}\n$")
        (folder / "file").write_text("content")
        self.expect(tool("sign", "-i", folder / "id", folder / "file"), OK, "", "")
        self.expect(tool("verify", folder / "file"), OK, err="")

    def test_is_the_same_as_tkssign(self):
        folder = self.folder()
        (folder / "file").write_text("content")
        self.expect(run([SIGN, "--ad-hoc", str(folder / "file")]), OK, "", "")
        self.expect_bad_input(run([SIGN]), USAGE, "tkssign: say what to sign")
        self.expect_bad_input(run([SIGN, "--nonsense"]), USAGE, "tkssign: The following argument was not expected: --nonsense (see tkssign --help)")
        self.assertTrue(run([SIGN, "--help"]).out.startswith("tkssign: signs bundles"))
        document = self.expect(run([SIGN, "--json", "--ad-hoc", str(folder / "file")]), OK).json()
        self.assertEqual((document["tool"], document["command"]), ("tkssign", "sign"))

    def test_refuses_bad_input(self):
        folder = self.folder()
        (folder / "file").write_text("content")
        identity = Maker.identity()
        for words, code, named in (
                ((), USAGE, "say what to sign"),
                ((folder / "file",), USAGE, "with which identity"),
                (("-i", folder / "none", folder / "file"), FAILED, "none"),
                (("-i", identity, folder / "missing"), FAILED, "missing"),
                (("--pkcs12", folder / "file", folder / "file"), FAILED, "file"),
                (("-i", identity, "--entitlements", folder / "none", folder / "file"), FAILED, "cannot read"),
                (("-i", identity, "--entitlements", folder, folder / "file"), FAILED, "cannot read"),
                (("--ad-hoc", "--timestamp", folder / "file"), FAILED, "a time stamp needs an identity"),
                (("--ad-hoc", "--digest", "md5", folder / "file"), USAGE, "md5")):
            with self.subTest(words):
                shown = self.expect_bad_input(tool("sign", *words), code, named)
                self.assertNotRegex(shown.err, r"(\S+): \1: ")
        self.expect(tool("verify", folder / "file"), NOT_TRUSTED)


class Verify(ToolTest):
    @classmethod
    def setUpClass(cls):
        cls.keeper = tempfile.TemporaryDirectory(prefix="tks-ctl-")
        cls.bundle = Maker.launcher(cls.keeper.name)

    @classmethod
    def tearDownClass(cls):
        cls.keeper.cleanup()

    def test_shows_all_that_a_developer_asks(self):
        shown = self.expect(tool("verify", self.bundle, "--deep"), OK, err="").out
        for line in (f"{self.bundle}", "  signature:    good", "  maker's:      yes",
                     "  identifier:   com.tarvo.kovra.Tarvo-Kovra-Start", "  team:         T4RV0K0VRA",
                     "  signed by:    Developer ID Application: Tarvo (T4RV0K0VRA)",
                     "  signed by:    Developer ID Certification Authority", "  signed by:    Apple Root CA"):
            self.assertIn(line + "\n", shown)
        self.assertRegex(shown, r"\n  format:       app bundle with ")
        self.assertRegex(shown, r"\n +SHA-256 [0-9a-f]{64}\n")
        self.assertRegex(shown, r"\n +valid \d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ to \d{4}-")
        self.assertRegex(shown, r"\n  time stamp:   \d{4}-")
        self.assertRegex(shown, r"\n  requirement:  .*identifier")
        self.assertRegex(shown, r"\n  sha256:       [0-9a-f]{64}\n")

    def test_json_has_the_same(self):
        report = self.expect(tool("verify", "--json", self.bundle), OK, err="").json()["result"]["reports"][0]
        self.assertEqual((report["status"], report["maker"], report["team"]), (0, True, "T4RV0K0VRA"))
        self.assertEqual(len(report["chain"]), 3)
        self.assertTrue(report["notarizationTicket"])

    def test_shows_architectures_flags_and_entitlements(self):
        folder = self.folder()
        program = folder / "program"
        program.write_bytes(image(kArm64))
        rights = folder / "rights.plist"
        rights.write_bytes(plistlib.dumps({"com.example.right": True}))
        self.expect(tool("sign", "-i", Maker.identity(), "--flags", "0x10000", "--entitlements", rights, program), OK)
        shown = self.expect(tool("verify", program), OK, err="").out
        self.assertRegex(shown, r"\n  architecture: +arm64\n")
        self.assertRegex(shown, r"\n  flags: +runtime\n")
        self.assertRegex(shown, r"\n  entitlement: +com\.example\.right = ")
        report = self.expect(tool("verify", "--json", program), OK, err="").json()["result"]["reports"][0]
        self.assertEqual((report["architectures"], report["flagBits"], report["flags"]), (["arm64"], 0x10000, ["runtime"]))
        self.assertEqual(list(report["entitlements"]), ["com.example.right"])

    def test_tells_what_is_wrong(self):
        def altered(bundle):
            (bundle / "Contents/Resources").mkdir()
            (bundle / "Contents/Resources/text").write_text("sealed")
        folder = self.folder()
        bundle = Maker.launcher(folder / "a", change=altered)
        (bundle / "Contents/Resources/text").write_text("changed")
        (bundle / "Contents/Resources/more").write_text("added")
        shown = self.expect(tool("verify", bundle), NOT_TRUSTED)
        self.assertIn("a sealed resource is missing or invalid (-67054)", shown.out)
        self.assertIn("more", shown.out)
        self.assertEqual(shown.err.count("\n"), 1, shown)
        unsigned = Maker.launcher(folder / "b", identity=None)
        shown = self.expect(tool("verify", unsigned, "--json"), NOT_TRUSTED).json()
        self.assertEqual(shown["result"]["reports"][0]["status"], -67062)
        self.assertIn("not signed at all", shown["error"]["message"])

    def test_asks_whether_the_maker_signed_it(self):
        stranger = Maker.launcher(self.folder(), identity=("--team", "STR4NG3R00"))
        shown = self.expect(tool("verify", stranger), NOT_TRUSTED)
        self.assertIn("not from Tarvo", shown.err)
        self.expect(tool("verify", "--any-signer", stranger), OK, err="")

    def test_of_several_the_first_failure_gives_the_code(self):
        shown = self.expect(tool("verify", "/nonexistent", self.bundle, "--json"), FAILED).json()
        self.assertEqual(len(shown["result"]["reports"]), 2)
        self.expect_bad_input(tool("verify", "/nonexistent"), FAILED, "nothing that can be signed is at /nonexistent")
        self.expect_bad_input(tool("verify"), USAGE, "path is required")

    def test_of_what_cannot_be_signed_it_says_no_more_than_is_known(self):
        folder = self.folder()
        shown = self.expect(tool("verify", folder), NOT_TRUSTED)
        self.assertEqual(shown.out.splitlines()[-1].split(), ["maker's:", "no"])


class Assess(ToolTest):
    def test_says_the_verdict(self):
        bundle = Maker.launcher(self.folder())
        shown = self.expect(tool("assess", bundle), OK, err="")
        self.assertIn(f"{bundle}: accepted\n", shown.out)
        self.assertIn("source=Notarized Developer ID\n", shown.out)

    def test_rejects_what_is_altered(self):
        bundle = Maker.launcher(self.folder())
        with open(bundle / "Contents/Info.plist", "a") as file:
            file.write("<!-- altered -->")
        shown = self.expect(tool("assess", "--json", bundle), NOT_TRUSTED).json()
        self.assertEqual(shown["result"]["reports"][0]["verdict"], "rejected")

    def test_refuses_bad_input(self):
        self.expect_bad_input(tool("assess", "/nonexistent"), FAILED, "there is nothing at /nonexistent")


class Provenance(ToolTest):
    def test_shows_the_marks_of_a_download(self):
        file = self.folder() / "file"
        file.write_text("content")
        self.expect(tool("provenance", file), NOTHING_TO_DO, "", f"there is no mark of a download at {file}\n")
        try:
            import plistlib
            os.setxattr(file, "user.com.apple.metadata:kMDItemWhereFroms",
                        plistlib.dumps(["https://a.example/f.zip", "https://a.example/"], fmt=plistlib.FMT_BINARY))
            os.setxattr(file, "user.com.apple.quarantine", b"0083;5;Browser;")
        except OSError:
            self.skipTest("needs extended attributes")
        self.expect(tool("provenance", file), OK, "downloaded from: https://a.example/f.zip\n"
                    "by way of:       https://a.example/f.zip\nby way of:       https://a.example/\n"
                    "quarantine:      0083;5;Browser;\n", "")
        document = self.expect(tool("provenance", file, "--json"), OK).json()
        self.assertEqual(document["result"]["downloadedFrom"], "https://a.example/f.zip")

    def test_refuses_bad_input(self):
        self.expect_bad_input(tool("provenance", "/nonexistent"), FAILED, "cannot read /nonexistent")


if __name__ == "__main__":
    unittest.main()
