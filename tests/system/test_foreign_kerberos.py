"""Kerberos tokens of a library of other origin than the server's, over the bare wire: in either byte order, with headers signed or not,
and in a form that DCE/RPC doesn't know."""

import os
import unittest
from unittest import mock

import wire_client as wire
from kerberos_realm import REALM, KerberosRealm, available
from tape_server import TapeServer
from wire_client import CONNECT, INTEGRITY, INVOKER, NDR, PACKET, Fault, Pdu, Security, WireClient

try:
    from samba import credentials, gensec, param
except ImportError:
    gensec = None

HOST = "server.tarno.test"
KERBEROS = 16
SERVED = (1, '<OutputArguments><IsEnabled value="false" /></OutputArguments>', None)


class Gensec:
    """Tokens and signatures of Samba's library. It has no encryption of packets for Python."""

    def __init__(self, settings, level, auth_type=None, name=None, signs_headers=False):
        identity = credentials.Credentials()
        identity.guess(settings)
        identity.set_kerberos_state(credentials.MUST_USE_KERBEROS)
        identity.set_named_ccache(os.environ["KRB5CCNAME"], credentials.SPECIFIED, settings)
        self.library = gensec.Security.start_client({"target_hostname": HOST, "lp_ctx": settings})
        self.library.set_credentials(identity)
        self.library.set_target_service("TarnoTapeSvc")
        self.library.set_target_hostname(HOST)
        if level >= PACKET:
            self.library.want_feature(gensec.FEATURE_SIGN)
            if signs_headers:
                self.library.want_feature(gensec.FEATURE_SIGN_PKT_HEADER)
        if name:
            self.library.start_mech_by_name(name)
        else:
            self.library.start_mech_by_authtype(auth_type, level)
        self.header_signing = False
        self.done = False

    def first(self):
        self.done, token = self.library.update(b"")
        return token

    def next(self, token):
        if self.done:
            return b""
        self.done, token = self.library.update(token)
        return token

    @property
    def signature_size(self):
        return self.library.sig_size(64)

    def protect(self, blank, body, level):
        plain = blank[:-self.signature_size]
        data = plain[body:-8]
        return plain + self.library.sign_packet(data, plain if self.header_signing else data)

    def unprotect(self, pdu, level):
        token = Pdu(pdu).token
        plain = pdu[:-len(token)]
        self.library.check_packet(plain[24:-8], plain if self.header_signing else plain[24:-8], token)
        return pdu


@unittest.skipUnless(available(), "the packages krb5-kdc, krb5-admin-server and krb5-user are not installed")
@unittest.skipUnless(gensec, "the package python3-samba is not installed")
class ForeignKerberos(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.realm = KerberosRealm(["anna"], ["TarnoTapeSvc/" + HOST])
        cls.addClassCleanup(cls.realm.close)
        environment = mock.patch.dict(os.environ, cls.realm.environment)
        environment.start()
        cls.addClassCleanup(environment.stop)
        cls.realm.log_in("anna")
        cls.server = TapeServer(access={"Keytab": str(cls.realm.keytab), "AdministratorPrincipals": "anna@" + REALM})
        cls.addClassCleanup(cls.server.close)
        cls.settings = param.LoadParm()
        cls.settings.set("realm", REALM)
        for name in ("private dir", "state directory", "cache directory", "lock directory", "pid directory"):
            cls.settings.set(name, str(cls.server.folder))

    def connect(self, **how):
        client = WireClient(self.server.port, **how)
        self.addCleanup(client.close)
        return client

    def serves(self, client):
        self.assertEqual(client.do_rpc("IInvokeDispatcher.IsSerialInvokerEnabled", "<InputArguments />"), SERVED)

    def test_each_form_that_the_protocol_knows(self):
        for auth_type in (KERBEROS, wire.NEGOTIATE):
            for level in (CONNECT, PACKET, INTEGRITY):
                for big_endian in (False, True):
                    for flags in (0, wire.HEADER_SIGN):
                        with self.subTest(auth_type=auth_type, level=level, big_endian=big_endian, flags=flags):
                            client = self.connect(big_endian=big_endian)
                            mechanism = Gensec(self.settings, level, auth_type, signs_headers=flags != 0)
                            answer = client.bind(flags=flags, security=Security(mechanism, level, auth_type))
                            self.assertEqual((answer.type, answer.flags & wire.HEADER_SIGN), (wire.BIND_ACK, flags))
                            for _ in range(3):
                                self.serves(client)
                            self.assertEqual(client.call(2, client.text("N" * 20_000)), b"\1" + bytes(7))

    def test_it_may_begin_after_the_bind(self):
        for flags in (0, wire.HEADER_SIGN):
            client = self.connect()
            self.assertEqual(client.bind(flags=flags).flags & wire.HEADER_SIGN, flags)
            mechanism = Gensec(self.settings, INTEGRITY, KERBEROS, signs_headers=flags != 0)
            mechanism.header_signing = flags != 0
            client.alter([(0, INVOKER, (NDR,))], flags=flags, security=Security(mechanism, INTEGRITY, KERBEROS))
            self.serves(client)

    def test_two_tickets_on_one_connection(self):
        client = self.connect()
        first = Security(Gensec(self.settings, INTEGRITY, KERBEROS), INTEGRITY, KERBEROS, 4)
        second = Security(Gensec(self.settings, PACKET, wire.NEGOTIATE), PACKET, wire.NEGOTIATE, 9)
        client.bind(security=first)
        client.alter([(0, INVOKER, (NDR,))], security=second)
        for security in (first, second, second, first):
            client.security = security
            self.serves(client)

    def test_the_form_of_other_protocols_is_refused(self):
        for name in ("gssapi_krb5", "gssapi_krb5_sasl"):
            client = self.connect()
            answer = client.bind(security=Security(Gensec(self.settings, INTEGRITY, name=name), INTEGRITY, KERBEROS))
            self.assertEqual((answer.type, answer.reason), (wire.BIND_NAK, 9))
            self.assertTrue(client.is_closed())

    def test_unsigned_requests_behind_a_promise_of_signatures(self):
        client = self.connect()
        client.bind(security=Security(Gensec(self.settings, INTEGRITY, KERBEROS), INTEGRITY, KERBEROS))
        client.security = None
        with self.assertRaises(Fault) as caught:
            client.call(2, client.text("x"))
        self.assertEqual(caught.exception.status, 5)
        self.assertTrue(client.is_closed())


if __name__ == "__main__":
    unittest.main()
