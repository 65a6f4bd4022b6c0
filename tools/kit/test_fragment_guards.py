"""The guards of the fragments: each mistake in a package stops the compiler, with a message that says what to do."""

import os
import tempfile
import unittest
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

from packages.compiler import Compilation, CompilerError
from support import TOOLS, load_script

ROOT = TOOLS.parent
FACTS = load_script("kit/package_facts.py")

# The fragments that must come before each fragment, in an order that works.
BEFORE = {
    "library": (),
    "notices": (),
    "audit_file": ("library",),
    "installed_programs": ("library",),
    "user_interface": ("library",),
    "client_upgrade": ("library",),
    "client_close": ("library", "notices", "client_upgrade"),
    "client_settings": ("library", "client_upgrade"),
    "client_tasks": ("library", "client_upgrade"),
    "client_restart": ("library", "client_upgrade", "client_tasks"),
    "tracking_hook": ("library", "client_upgrade"),
    "server_replaced": (),
    "server_data_folder": ("library",),
    "server_migration": ("library", "notices", "server_data_folder"),
    "service_account": ("library", "notices", "server_replaced"),
    "server_access": ("library", "notices", "server_replaced", "service_account"),
    "firewall": ("library", "notices", "server_replaced"),
    "service_configuration": ("library", "server_replaced"),
}
# The fragments that a fragment's own guards ask for. The guards of those ask for the rest.
OWN = {**BEFORE, "server_access": ("library", "service_account")}

VARIABLES = {"LibraryFile": "hxsetup.dll", "DisplayVersion": "1.0.0"}
OTHER_SERVER = {"ServiceName": "Gauge", "ServerKey": "SOFTWARE\\Maker\\Gauge", "ServerName": "gauge", "AccountId": "gauge"}

ONE_PLACE = ("{0}.wxi and {1}.wxi use the same places of the sequences. Make two packages, one for the client and one for "
             "the server.")
OSTREL = "{0}.wxi is for the client Ostrel only: it {1}. Leave it out of a package that defines ClientKey."
OSTREL_JOBS = {
    "client_close": "closes the tools and stops the service of that client",
    "client_settings": "reads and deletes the settings of that client",
    "client_tasks": "makes and deletes the tasks of that client",
    "client_restart": "starts the agents of that client",
    "tracking_hook": "hooks and unhooks the tracking library of that client",
}
WITHOUT_SERVICE = ("server_replaced.wxi finds the variable {0} without ServiceName. Define ServiceName, ServerKey, "
                   "ServerName and AccountId, or none of them.")
SERVER_VARIABLES = {
    "ServerKey": "Define the key of the server's values, such as SOFTWARE\\Maker\\Server.",
    "ServerName": 'Define what people call the server in a sentence, after "the".',
    "AccountId": "Define the name of the service's account, another one than vantor.",
}


class GuardTest(unittest.TestCase):
    @staticmethod
    def defines(variables):
        return "".join(f'<?define {name} = "{value}"?>\n' for name, value in dict(variables).items())

    @staticmethod
    def include(*fragments):
        return "".join(f"<?include {name}.wxi?>\n" for name in fragments)

    def compile(self, fragments, defined=(), variables=None):
        """Compiles a package with these fragments, in this order, which defines the variables `defined` before them. Returns
        the message that stopped the compiler, or None. `variables` are those of its command line."""
        return self.compile_text(self.defines(defined) + self.include(*fragments), variables)

    def compile_text(self, text, variables=None):
        """The same for a package with this text."""
        try:
            preprocessed = self.preprocess(text, VARIABLES if variables is None else variables)
        except CompilerError as error:
            self.assertEqual(len(error.messages), 1, error)
            place, code, message = error.messages[0]
            self.assertEqual(code, "CNDL0250")
            self.assertRegex(place, rf"/{message.split()[0]}:\d+$")
            return message
        self.assertNotIn("$(var.", preprocessed)
        return None

    @staticmethod
    def preprocess(text, variables):
        with tempfile.TemporaryDirectory(prefix="hx-guards-") as folder:
            source, stage = Path(folder) / "package.wxs", Path(folder) / "stage"
            source.write_text('<Wix xmlns="http://schemas.microsoft.com/wix/2006/wi">\n<Product>\n'
                              f"{text}</Product></Wix>\n", encoding="utf-8")
            stage.mkdir()
            return Compilation(source, [ROOT / "packages"], variables, stage).preprocess()

    def assert_stops(self, message, fragments, **more):
        with self.subTest(f"{fragments} {more}"):
            self.assertEqual(self.compile(fragments, **more), message)

    def test_each_fragment_is_known(self):
        self.assertEqual(sorted(BEFORE), sorted(path.stem for path in (ROOT / "packages").glob("*.wxi")))

    def test_right(self):
        for name, before in BEFORE.items():
            self.assert_stops(None, [*before, name])

    def test_twice(self):
        for name, before in BEFORE.items():
            self.assert_stops(f"{name}.wxi is included twice. Include it once.", [*before, name, name])

    def test_without_what_it_needs(self):
        for name, needs in OWN.items():
            for need in needs:
                # The other fragments, except those that need the missing one; the first guard that fails stops the compiler.
                others = [other for other in BEFORE[name] if other != need and need not in BEFORE[other]]
                missing = next(other for other in needs if other not in others)
                self.assertIn(missing, (need, *(other for other in needs if need in BEFORE[other])))
                self.assert_stops(f"{name}.wxi needs {missing}.wxi. Include {missing}.wxi before it.", [*others, name])

    def test_after_what_needs_it(self):
        self.assert_stops("firewall.wxi needs server_replaced.wxi. Include server_replaced.wxi before it.",
                          ["library", "notices", "firewall", "server_replaced"])

    def test_variables_of_the_command_line(self):
        self.assert_stops("library.wxi needs the variable LibraryFile. Give the compiler the path of the hxsetup.dll of the "
                          "package's processor: -dLibraryFile=PATH (hx package: --define LibraryFile=PATH)", ["library"],
                          variables={"DisplayVersion": "1"})
        self.assert_stops("installed_programs.wxi needs the variable DisplayVersion. Give the compiler the version for the "
                          "list of installed programs: -dDisplayVersion=TEXT (hx package: --define DisplayVersion=TEXT)",
                          ["library", "installed_programs"], variables={"LibraryFile": "hxsetup.dll"})

    def test_client_and_server(self):
        for server in ("server_replaced", "server_data_folder"):
            self.assert_stops(ONE_PLACE.format(server, "client_upgrade"), ["library", "client_upgrade", server])
            self.assert_stops(ONE_PLACE.format("client_upgrade", server), ["library", server, "client_upgrade"])

    def test_every_pair(self):
        """A fragment of the client and one of the server, with all fragments that they need, in both orders."""
        clients = [name for name in BEFORE if name == "client_upgrade" or "client_upgrade" in BEFORE[name]]
        servers = {name for name in BEFORE if name.startswith("serve") or "server_replaced" in BEFORE[name]}
        self.assertEqual((len(clients), len(servers)), (6, 7))
        pairs = [pair for client in clients for server in sorted(servers) for pair in ((client, server), (server, client))]
        packages = [dict.fromkeys([*BEFORE[first], first, *BEFORE[second], second]) for first, second in pairs]
        with ThreadPoolExecutor(os.cpu_count()) as pool:
            for pair, message in zip(pairs, pool.map(self.compile, packages)):
                with self.subTest(pair):
                    self.assertRegex(message, "use the same places of the sequences")

    def test_client_of_another_name(self):
        other = {"ClientKey": "SOFTWARE\\Maker\\Agent"}
        self.assert_stops(None, ["library", "client_upgrade"], defined=other)
        for name, job in OSTREL_JOBS.items():
            before = [need for need in BEFORE[name] if need not in OSTREL_JOBS]
            # A fragment that needs one of the others stops first, because that one is missing.
            expected = OSTREL.format(name, job)
            if before != list(BEFORE[name]):
                expected = OSTREL.format("client_tasks", OSTREL_JOBS["client_tasks"])
            self.assert_stops(expected, [*BEFORE[name], name], defined=other)

    def test_server_of_another_name(self):
        server = [name for name in BEFORE if "server_replaced" in BEFORE[name]]
        self.assert_stops(None, ["library", "notices", "server_replaced", *server], defined=OTHER_SERVER)
        for name, what in SERVER_VARIABLES.items():
            self.assert_stops(f"server_replaced.wxi needs the variable {name}, because the package defines ServiceName. "
                              f"{what}", ["server_replaced"],
                              defined={key: value for key, value in OTHER_SERVER.items() if key != name})
            self.assert_stops(WITHOUT_SERVICE.format(name), ["server_replaced"], defined={name: OTHER_SERVER[name]})

    def test_account_of_vantor_for_another_server(self):
        for spelling in ("vantor", "Vantor", "VANTOR"):
            self.assert_stops("server_replaced.wxi finds vantor in the variable AccountId, which is the account of the "
                              "server Vantor. Define another name, or a removal deletes the account of the other server.",
                              ["server_replaced"], defined={**OTHER_SERVER, "AccountId": spelling})

    def test_audit_file_of_ostrel_for_another_product(self):
        message = ("audit_file.wxi is for the client Ostrel only: it empties the audit file of that client. Leave it out of "
                   "a package that defines ClientKey.")
        other = {"ClientKey": "SOFTWARE\\Maker\\Agent"}
        self.assert_stops(message, ["library", "audit_file"], defined=other)
        self.assert_stops(message, ["library", "client_upgrade", "audit_file"], defined=other)
        self.assert_stops(None, ["library", "client_upgrade", "audit_file"])
        for server in ("server_replaced", "server_data_folder"):
            self.assert_stops(f"audit_file.wxi and {server}.wxi are of two packages, one for the client and one for the "
                              "server. Leave audit_file.wxi out of a server's.", ["library", server, "audit_file"])

    def test_data_of_vantor_before_the_name_of_another_server(self):
        fragments = self.include("library", "server_data_folder")
        self.assertIn("server_replaced.wxi finds server_data_folder.wxi, which is for the service Vantor only",
                      self.compile_text(fragments + self.defines(OTHER_SERVER) + self.include("server_replaced")) or "")

    def test_data_of_vantor_for_another_server(self):
        message = ("server_data_folder.wxi is for the service Vantor only: the library reads where that service has its "
                   "data. Leave it out of a package that defines ServiceName.")
        self.assert_stops(message, ["library", "server_data_folder"], defined=OTHER_SERVER)
        self.assert_stops(message, ["library", "server_replaced", "server_data_folder"], defined=OTHER_SERVER)
        self.assert_stops(None, ["library", "server_replaced", "server_data_folder"])

    def test_names_of_another_product_replace_all_names(self):
        """Such a package searches for nothing of the client or the server, and shows none of their names."""
        for defined, fragments in (({"ClientKey": "SOFTWARE\\Maker\\Agent"}, ["client_upgrade"]),
                                   (OTHER_SERVER, ["server_replaced", "service_account", "server_access", "firewall"])):
            text = self.preprocess(self.defines(defined) + self.include("library", "notices", *fragments), VARIABLES)
            for value in defined.values():
                self.assertIn(value, text)
            self.assertNotRegex(text, "(?i)vantor|ostrel|halvorstead")

    def test_the_table_of_the_guide_lists_the_guards(self):
        fragments = FACTS.read_fragments(ROOT)
        for name, needs in OWN.items():
            self.assertEqual(fragments[f"{name}.wxi"].fronts(), sorted(f"{need}.wxi" for need in needs), name)


if __name__ == "__main__":
    unittest.main()
