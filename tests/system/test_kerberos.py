"""Who is let in by Kerberos, as tarnoctl asks for it; and what the start says about a keytab that can't be used."""

import os
import subprocess
import unittest
from unittest import mock

from kerberos_realm import KerberosRealm, available
from tape_server import PASSWORD, PROGRAMS, TapeServer

SERVICE = "TarnoTapeSvc/server.tarno.test"


def server_with_keytab(keytab):
    server = TapeServer(start=False)
    with open(server.folder / "settings.reg", "a", encoding="utf-8") as settings:
        settings.write(f'"Keytab"="{keytab}"\n"AdministratorPrincipals"="anna@TARNO.TEST"\n')
    server.start()
    return server


@unittest.skipUnless(available(), "the packages krb5-kdc, krb5-admin-server and krb5-user are not installed")
class Kerberos(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.realm = KerberosRealm(["anna", "bob"], [SERVICE, "TarnoTapeSvc/127.0.0.1"])
        cls.addClassCleanup(cls.realm.close)
        environment = mock.patch.dict(os.environ, cls.realm.environment)
        environment.start()
        cls.addClassCleanup(environment.stop)
        cls.server = server_with_keytab(cls.realm.keytab)
        cls.addClassCleanup(cls.server.close)

    def call(self, *options, server=None):
        command = [PROGRAMS / "tarnoctl", "--host", f"127.0.0.1:{(server or self.server).port}", *options, "call", "EnumLocks"]
        return subprocess.run(command, capture_output=True, text=True, timeout=60, input=PASSWORD + "\n")

    def test_principal_of_the_settings_is_an_administrator(self):
        self.realm.log_in("anna")
        for options in ([], ["--authentication", "kerberos"], ["--service", SERVICE], ["--service", SERVICE + "@TARNO.TEST"]):
            with self.subTest(options):
                answer = self.call(*options)
                self.assertEqual(answer.returncode, 0, answer.stderr)

    def test_another_principal_is_refused_by_the_procedure(self):
        self.realm.log_in("bob")
        answer = self.call()
        self.assertEqual(answer.returncode, 4)
        self.assertIn("RPC client is not a member of built-in Administrators group.", answer.stderr)

    def test_without_tickets_nobody_can_prove_anything(self):
        self.realm.log_out()
        for options in ([], ["--authentication", "kerberos"]):
            answer = self.call(*options)
            self.assertEqual(answer.returncode, 4)
            self.assertIn("This user can't prove who it is: No Kerberos credentials available", answer.stderr)

    def test_accounts_go_on_beside_it(self):
        for options in ([], ["--authentication", "ntlm"], ["--authentication", "negotiate"]):
            answer = self.call("--user", "operator", *options)
            self.assertEqual(answer.returncode, 0, answer.stderr)

    def test_combinations_without_sense_are_usage_failures(self):
        for options in (["--authentication", "ntlm"], ["--authentication", "kerberos", "--user", "operator"], ["--authentication", "basic"]):
            self.assertEqual(self.call(*options).returncode, 2)

    def test_server_without_keys_says_so_and_serves_accounts(self):
        server = server_with_keytab(self.realm.folder / "missing.keytab")
        self.addCleanup(server.close)
        self.assertIn("Kerberos can't be offered: ", server.log())
        self.assertNotIn("Unable to register", server.log())
        self.assertEqual(self.call("--user", "operator", server=server).returncode, 0)
        self.realm.log_in("anna")
        self.assertEqual(self.call(server=server).returncode, 4)

    def test_good_start_has_no_warning_about_authentication(self):
        self.assertNotIn("can't be offered", self.server.log())
        self.assertNotIn("Unable to register", self.server.log())


if __name__ == "__main__":
    unittest.main()
