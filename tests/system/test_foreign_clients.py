"""What a correct client may do differently from those that the other tests use: byte order, contexts, sizes, pieces, numbers,
verifiers, kinds of NTLM and Negotiate; and the protocol's answer to what it may not do."""

import os
import struct
import unittest

import wire_client as wire
import wire_ntlm as ntlm
from tape_server import PASSWORD, TapeServer
from wire_client import CONNECT, INTEGRITY, INVOKER, MANAGEMENT, NDR, NDR64, NO_SYNTAX, PACKET, PRIVACY, Fault, Security
from wire_client import WireClient

FRAME_NAME = "IInvokeDispatcher.IsSerialInvokerEnabled"
EMPTY = "<InputArguments />"
SERVED = (1, '<OutputArguments><IsEnabled value="false" /></OutputArguments>', None)
LEVELS = (CONNECT, wire.CALL, PACKET, INTEGRITY, PRIVACY)
SIGNING = (PACKET, INTEGRITY, PRIVACY)
NOTHING_KNOWN = ("12345678-1234-abcd-ef00-0123456789ab", 1, 0)
INVOKER_ONLY = [(0, INVOKER, (NDR,))]
PLAIN_STUB = 2  # the operation that answers success to anybody
MOVE = ('<InputArguments><SymLinkName value="\\\\.\\Changer0" /><SourceSlotNum value="{}" /><destinationSlotNum value="{}" />'
        '<OwnerName value="CONSOLE" /></InputArguments>')
NEGOEX_TOKEN = b"NEGOEXTS" + bytes(90)
#: What clients of the usual kind add to the target's information.
TARGET_PAIRS = [(ntlm.AV_SINGLE_HOST, bytes(48)), (ntlm.AV_BINDINGS, bytes(16)),
                (ntlm.AV_TARGET_NAME, "TarnoTapeSvc/server".encode("utf-16le"))]
OK_RESULT = struct.pack("<II", 1, 0)


class ForeignClients(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.server = TapeServer()
        cls.addClassCleanup(cls.server.close)
        cls.server.add_account("visitor")
        cls.server.add_account("Bjørn Ångström", administrator=True)

    def tearDown(self):
        client = self.connect()
        client.bind()
        self.assertEqual(client.call(PLAIN_STUB, client.text("still there?")), OK_RESULT)
        client.close()

    def connect(self, **how):
        client = WireClient(self.server.port, **how)
        self.addCleanup(client.close)
        return client

    def security(self, level=INTEGRITY, user="operator", password=PASSWORD, context_id=1, **how):
        return Security(ntlm.Ntlm(user, password, **how), level, wire.NTLM, context_id)

    def bound(self, level=None, big_endian=False, flags=0, **how):
        client = self.connect(big_endian=big_endian)
        security = None if level is None else self.security(level)
        self.assertEqual(client.bind(security=security, flags=flags, **how).type, wire.BIND_ACK)
        return client

    def serves(self, client, **how):
        self.assertEqual(client.do_rpc(FRAME_NAME, EMPTY, **how), SERVED)

    def refuses(self, client, status, **how):
        with self.assertRaises(Fault) as caught:
            client.do_rpc(FRAME_NAME, EMPTY, **how)
        self.assertEqual(caught.exception.status, status)

    # The bind

    def test_either_byte_order_at_each_level(self):
        for big_endian in (False, True):
            for level in LEVELS:
                with self.subTest(big_endian=big_endian, level=level):
                    client = self.bound(level, big_endian)
                    for _ in range(3):
                        self.serves(client)
                    self.assertEqual(client.do_rpc("SetOwnerName", "x")[0], 0)

    def test_contexts_in_any_order_with_others_between(self):
        features = wire.feature_negotiation(3)
        offers = [(0, INVOKER, (NDR64,)), (1, INVOKER, (features,)), (2, NOTHING_KNOWN, (NDR,)), (0xFFFF, INVOKER, (NDR64, NDR)),
                  (4, MANAGEMENT, (NDR,)), (5, INVOKER, (NOTHING_KNOWN,))]
        results = [(2, 2, NO_SYNTAX), (3, 3, NO_SYNTAX), (2, 1, NO_SYNTAX), (0, 0, NDR), (0, 0, NDR), (2, 2, NO_SYNTAX)]
        for turn in range(len(offers)):
            for big_endian in (False, True):
                with self.subTest(turn=turn, big_endian=big_endian):
                    client = self.connect(big_endian=big_endian)
                    answer = client.bind(offers[turn:] + offers[:turn], security=self.security())
                    self.assertEqual(answer.results(), results[turn:] + results[:turn])
                    self.serves(client, context=0xFFFF)
                    self.refuses(client, 0x1C010003, context=2)
                    self.refuses(client, 0x1C010003, context=0)
                    self.serves(client, context=0xFFFF)

    def test_a_bind_whose_contexts_are_all_rejected_leaves_room_for_another_try(self):
        client = self.connect()
        self.assertEqual(client.bind([(0, NOTHING_KNOWN, (NDR,))], security=self.security()).results(), [(2, 1, NO_SYNTAX)])
        self.refuses(client, 0x1C010003)
        self.assertEqual(client.alter(INVOKER_ONLY).results(), [(0, 0, NDR)])
        self.serves(client)

    def test_features_are_answered_bit_by_bit(self):
        for asked in range(8):
            answer = self.connect().bind([(0, INVOKER, (NDR,)), (1, INVOKER, (wire.feature_negotiation(asked),))])
            self.assertEqual(answer.results(), [(0, 0, NDR), (3, asked & 3, NO_SYNTAX)])

    def test_fragments_have_the_size_of_the_smaller_side(self):
        name = "N" * 30_000
        for transmit, receive, sends, takes in ((1432, 1432, 1432, 1432), (2048, 4280, 4280, 2048), (4280, 2048, 2048, 4280),
                                                (5840, 5840, 5840, 5840), (65535, 65535, 5840, 5840), (5841, 1433, 1433, 5840)):
            for level in (None, INTEGRITY, PRIVACY):
                with self.subTest(transmit=transmit, receive=receive, level=level):
                    client = self.connect()
                    security = level and self.security(level)
                    answer = client.bind(security=security, max_transmit=transmit, max_receive=receive)
                    self.assertEqual(answer.sizes(), (sends, takes))
                    client.max_fragment = takes
                    fragments = client.fragments(PLAIN_STUB, client.text(name))
                    self.assertGreater(len(fragments[0]), takes - 48)
                    self.assertLessEqual(len(fragments[0]), takes)
                    client.send(b"".join(fragments))
                    client.max_fragment = sends
                    self.assertEqual(client.answer(), OK_RESULT)
                    if level:
                        client.do_rpc("SetOwnerName", f'<InputArguments><NewOwnerName value="{name}"/></InputArguments>', size=takes)
                        self.assertIn(f'<OwnerName value="{name}" />', client.do_rpc("GetOwnerName", EMPTY)[1])

    def test_older_sister_of_the_protocol_version_is_served(self):
        client = self.connect(minor=1)
        self.assertEqual(client.bind(security=self.security()).type, wire.BIND_ACK)
        self.serves(client)

    def test_other_versions_are_refused_with_the_one_that_is_spoken(self):
        for minor in (2, 255):
            client = self.connect(minor=minor)
            client.send(client.pdu(wire.BIND, client.bind_body(INVOKER_ONLY)))
            answer = client.receive()
            self.assertEqual((answer.type, answer.data[16:]), (wire.BIND_NAK, struct.pack("<HBBB", 4, 1, 5, 0)))
            self.assertTrue(client.is_closed())

    def test_groups_are_joined_by_anybody_while_they_live(self):
        first = self.connect()
        group = first.bind(security=self.security()).group()
        second = self.connect(big_endian=True)
        self.assertEqual(second.bind(security=self.security(user="visitor"), group=group).group(), group)
        self.serves(first)
        self.assertEqual(second.do_rpc(FRAME_NAME, EMPTY)[0], 0)
        first.close()
        self.assertEqual(self.connect().bind(group=group).group(), group)
        for unknown in (group + 1000, 0xFFFFFFFF):
            client = self.connect()
            answer = client.bind(group=unknown)
            self.assertEqual((answer.type, answer.reason), (wire.BIND_NAK, 0))
            self.assertTrue(client.is_closed())

    def test_header_signing_is_agreed_to_wherever_it_is_asked_for(self):
        """Whoever asks in the bind and authenticates later has to know what holds then."""
        for asked in (0, wire.HEADER_SIGN):
            for level in (None, CONNECT, *SIGNING):
                client = self.connect()
                answer = client.bind(flags=asked, security=level and self.security(level))
                self.assertEqual(answer.flags & wire.HEADER_SIGN, asked, level)
                client.call(PLAIN_STUB, client.text("x"))

    # Alter context and authentication

    def test_contexts_are_added_at_any_time(self):
        for level in (None, *LEVELS):
            with self.subTest(level):
                client = self.bound(level)
                if level:
                    self.serves(client)
                answer = client.alter([(7, INVOKER, (NDR,)), (8, NOTHING_KNOWN, (NDR,))])
                self.assertEqual(answer.results(), [(0, 0, NDR), (2, 1, NO_SYNTAX)])
                self.assertEqual(client.call(PLAIN_STUB, client.text("x"), context=7), OK_RESULT)
                self.refuses(client, 0x1C010003, context=8)
                self.assertEqual(client.call(PLAIN_STUB, client.text("x"), context=0), OK_RESULT)
                self.assertEqual(client.alter([]).results(), [])
                self.assertEqual(client.call(PLAIN_STUB, client.text("x"), context=7), OK_RESULT)

    def test_authentication_may_begin_after_the_bind(self):
        for level in LEVELS:
            for asked in (0, wire.HEADER_SIGN):
                client = self.bound(flags=asked)
                self.assertIn("Auth context not available", client.do_rpc(FRAME_NAME, EMPTY)[2])
                answer = client.alter(INVOKER_ONLY, flags=asked, security=self.security(level))
                self.assertEqual(answer.flags & wire.HEADER_SIGN, asked)
                self.serves(client)

    def test_the_last_token_may_come_late_or_with_the_first_request(self):
        for late in (False, True):
            client = self.connect()
            security = self.security()
            client.send(client.pdu(wire.BIND, client.bind_body(INVOKER_ONLY), security=security, token=security.mechanism.first()))
            token = security.mechanism.next(client.receive().token)
            last = client.pdu(wire.AUTH3, b"    ", security=security, token=token)
            client.security = security
            client.call_id = 2
            request = b"".join(client.fragments(0, client.text(FRAME_NAME) + client.text(EMPTY)))
            if late:
                self.tearDown()  # others are served meanwhile
                client.send(last)
                self.tearDown()
                client.send(request)
            else:
                client.send(last + request)
            self.assertIn("IsEnabled", client.answer().decode("utf-16le"))
            self.serves(client)

    def test_several_users_on_one_connection(self):
        for levels in ((INTEGRITY, PRIVACY), (PRIVACY, PACKET), (CONNECT, PRIVACY)):
            with self.subTest(levels):
                client = self.connect()
                first, second = self.security(levels[0], context_id=79231), self.security(levels[1], "visitor", context_id=0)
                client.bind(security=first)
                self.assertEqual(client.alter(INVOKER_ONLY, security=second).type, wire.ALTER_CONTEXT_RESP)
                for _ in range(3):
                    self.serves(client, security=first)
                    self.assertIn("not a member", client.do_rpc(FRAME_NAME, EMPTY, security=second)[2])

    def test_who_refuses_to_be_known_is_refused(self):
        """Wrong proof of a second authentication: fault 5 and the end; of a context that isn't there: the same."""
        client = self.bound(INTEGRITY)
        client.alter(INVOKER_ONLY, security=self.security(PRIVACY, password="wrong", context_id=2))
        self.refuses(client, 5)
        self.assertTrue(client.is_closed())
        client = self.bound(INTEGRITY)
        client.security.context_id = 12
        self.refuses(client, 5)
        self.assertTrue(client.is_closed())

    def test_services_and_levels_that_are_not_offered(self):
        for auth_type, level in ((1, INTEGRITY), (68, INTEGRITY), (wire.NTLM, 0), (wire.NTLM, 1), (wire.NTLM, 7), (0, PRIVACY)):
            client = self.connect()
            answer = client.bind(security=Security(ntlm.Ntlm("operator", PASSWORD), level, auth_type))
            self.assertEqual((answer.type, answer.reason), (wire.BIND_NAK, 8))
            self.assertTrue(client.is_closed())

    def test_filling_of_any_length_in_front_of_the_verifier(self):
        for level in LEVELS:
            client = self.bound(level)
            for pad in (*range(20), 31, 32, 100, 254, 255):
                with self.subTest(level=level, pad=pad):
                    self.serves(client, pad=pad)
            client.call_id += 1
            for fragment in client.fragments(PLAIN_STUB, client.text("N" * 2000), pad=37, size=512):
                client.send(fragment)
            self.assertEqual(client.answer(), OK_RESULT)

    # Requests

    def test_what_the_client_expects_to_send_means_nothing(self):
        for level in (None, INTEGRITY):
            client = self.bound(level)
            for hint in (0, 1, 0x7FFFFFFF, 0xFFFFFFFF):
                self.assertEqual(client.call(PLAIN_STUB, client.text("N" * 20_000), alloc_hint=hint), OK_RESULT)

    def test_numbers_of_calls_may_do_what_they_like(self):
        for level in (None, INTEGRITY):
            client = self.bound(level)
            for call_id in (1, 2, 1, 1, 0, 0xFFFFFFFF, 0x80000000, 7, 3):
                self.assertEqual(client.call(PLAIN_STUB, client.text("x"), call_id=call_id), OK_RESULT)

    def test_objects_are_passed_over(self):
        for level in (None, INTEGRITY, PRIVACY):
            client = self.bound(level)
            for length in (1, 20_000):
                self.assertEqual(client.call(PLAIN_STUB, client.text("N" * length), object_id=os.urandom(16)), OK_RESULT)

    def test_requests_in_one_go(self):
        for level in (None, *LEVELS):
            client = self.bound(level)
            sent = b""
            for call_id in range(100, 300):
                client.call_id = call_id
                sent += b"".join(client.fragments(PLAIN_STUB, client.text("N" * (call_id * 37 % 9000))))
            client.socket.settimeout(60)
            client.send(sent)
            for call_id in range(100, 300):
                self.assertEqual(client.answer(call_id=call_id), OK_RESULT)

    def test_segments_may_end_anywhere(self):
        for level in (None, PRIVACY):
            client = self.bound(level)
            length = len(b"".join(client.fragments(PLAIN_STUB, client.text("split"), size=120)))
            client = self.bound(level)
            for split in range(1, length):
                data = b"".join(client.fragments(PLAIN_STUB, client.text("split"), size=120))
                client.send(data[:split])
                client.send(data[split:])
                self.assertEqual(client.answer(), OK_RESULT)
        body = self.connect()
        bind = body.pdu(wire.BIND, body.bind_body(INVOKER_ONLY))
        for split in range(1, len(bind)):
            client = self.connect()
            client.send(bind[:split])
            client.send(bind[split:])
            self.assertEqual(client.receive().type, wire.BIND_ACK)
            client.close()

    def test_fragments_of_any_length(self):
        """Also without stub data, and cut where no number ends."""
        for level in (None, *LEVELS):
            client = self.bound(level)
            stub = client.text("x" * 100)
            for parts in ([b"", stub], [stub, b""], [b"", b"", stub, b""], [stub[:5], stub[5:6], stub[6:]],
                          [stub[at:at + 1] for at in range(len(stub))]):
                with self.subTest(level=level, parts=len(parts)):
                    for index, part in enumerate(parts):
                        flags = (wire.FIRST if index == 0 else 0) | (wire.LAST if index + 1 == len(parts) else 0)
                        client.send(client.protected(wire.REQUEST, client.request_head(PLAIN_STUB), part, flags, 9, client.security))
                    self.assertEqual(client.answer(call_id=9), OK_RESULT)

    def test_clients_with_little_room(self):
        for room in (256, 257, 300, 1000, 1431):
            for level in (None, CONNECT, *SIGNING):
                with self.subTest(room=room, level=level):
                    client = self.bound(level, max_receive=room)
                    client.max_fragment = room
                    if level:
                        self.serves(client, size=5840)
                    else:
                        self.assertIn("Auth context not available", client.do_rpc(FRAME_NAME, EMPTY, size=5840)[2])
        client = self.connect()
        answer = client.bind(max_receive=255)
        self.assertEqual((answer.type, answer.reason), (wire.BIND_NAK, 2))

    def test_other_protocols_are_shown_the_door(self):
        for greeting in (b"GET / HTTP/1.0\r\n\r\n" + bytes(20), bytes.fromhex("160301020001000001fc0303") + bytes(40), bytes(16),
                         b"\xff" * 64, b"\x04\x00" + bytes(78), b"\0\0\0\x55\xffSMB" + bytes(80)):
            client = self.connect()
            client.send(greeting)
            self.assertTrue(client.is_closed())

    def test_cancels_may_bear_verifiers(self):
        """The verifier of a cancel is optional; one that is there counts in the order of signatures as any other does."""
        for level in (None, *LEVELS):
            for kind in (wire.CO_CANCEL, wire.ORPHANED):
                for signs in (False, True):
                    with self.subTest(level=level, kind=kind, signs=signs):
                        client = self.bound(level)
                        for _ in range(2):
                            client.send(client.protected(kind, b"", b"", wire.WHOLE, 99, client.security if signs else None))
                            self.assertEqual(client.call(PLAIN_STUB, client.text("x")), OK_RESULT)

    def test_cancels_during_a_slow_call(self):
        server = TapeServer()
        self.addCleanup(server.close)
        (server.libraries[0] / "faults.xml").write_text('<faults><fault kind="slow-robot" times="0" milliseconds="400"/></faults>')
        source, target = 0, 23
        for level in (CONNECT, INTEGRITY, PRIVACY):
            for multiplex in (0, wire.MULTIPLEX):
                with self.subTest(level=level, multiplex=multiplex):
                    client = WireClient(server.port)
                    self.addCleanup(client.close)
                    security = self.security(level)
                    self.assertEqual(client.bind(security=security, flags=multiplex).flags & wire.MULTIPLEX, multiplex)
                    move = MOVE.format(source, target)
                    source, target = target, source
                    client.send(b"".join(client.fragments(0, client.text("MoveToSlot") + client.text(move), call_id=10, size=300)))
                    client.send(client.protected(wire.CO_CANCEL, b"", b"", wire.WHOLE, 10, security))
                    client.send(b"".join(client.fragments(PLAIN_STUB, client.text("x"), call_id=11)))
                    client.send(client.pdu(wire.CO_CANCEL, b"", call_id=10))
                    client.send(client.pdu(wire.ALTER_CONTEXT, client.bind_body([(3, INVOKER, (NDR,))]), call_id=12))
                    client.send(b"".join(client.fragments(PLAIN_STUB, client.text("x" * 500), context=3, call_id=13)))
                    order = []
                    for _ in range(4):
                        answer = client.receive()
                        if answer.type == wire.RESPONSE and level >= wire.CALL:
                            security.mechanism.unprotect(answer.data, level)
                        self.assertIn(answer.type, (wire.RESPONSE, wire.ALTER_CONTEXT_RESP))
                        order.append(answer.call_id)
                    self.assertEqual(order, [11, 12, 13, 10] if multiplex else [10, 11, 12, 13])

    def test_a_client_of_the_usual_kind(self):
        """Three contexts, signed headers, Negotiate around NTLM with all of its proofs, and a trailer that vouches for the headers."""
        for level in LEVELS:
            with self.subTest(level):
                client = self.connect()
                inner = ntlm.Ntlm("operator", PASSWORD, "CORP", "CONSOLE7", pairs=TARGET_PAIRS)
                outer = ntlm.Negotiated(inner, offered=(ntlm.NEGOEX_ID, ntlm.NTLM_ID), optimistic=NEGOEX_TOKEN)
                security = Security(outer, level, wire.NEGOTIATE, 0)
                answer = client.bind([(0, INVOKER, (NDR,)), (1, INVOKER, (NDR64,)), (2, INVOKER, (wire.feature_negotiation(3),))],
                                     flags=wire.HEADER_SIGN, security=security)
                self.assertEqual(answer.results(), [(0, 0, NDR), (2, 2, NO_SYNTAX), (3, 3, NO_SYNTAX)])
                self.assertTrue(answer.flags & wire.HEADER_SIGN)
                for call_id in (2, 3, 4):
                    stub = client.text(FRAME_NAME) + client.text(EMPTY)
                    contexts = client.syntax(INVOKER) + client.syntax(NDR)
                    stub += (bytes.fromhex("8ae3137102f43671") + client.pack("HHI", 1, 4, 1) + client.pack("HH", 2, 40) + contexts
                             + client.pack("HHBxxxBxxxIHH", 0x4003, 16, wire.REQUEST, 0x10, call_id, 0, 0))
                    self.assertIn("IsEnabled", client.call(0, stub, call_id=call_id).decode("utf-16le", "replace"))

    def test_what_only_servers_send_ends_the_connection(self):
        for kind in (wire.RESPONSE, wire.FAULT, wire.BIND_ACK, wire.BIND_NAK, wire.ALTER_CONTEXT_RESP, wire.SHUTDOWN, 1, 4, 20, 255):
            for level in (None, INTEGRITY):
                client = self.bound(level)
                client.send(client.pdu(kind, bytes(16)))
                self.assertTrue(client.is_closed(), kind)

    # NTLM

    def ntlm_serves(self, level=INTEGRITY, auth_type=wire.NTLM, wrap=lambda inner: inner, big_endian=False, **how):
        given = {"user": "operator", "password": PASSWORD, **how}
        client = self.connect(big_endian=big_endian)
        answer = client.bind(security=Security(wrap(ntlm.Ntlm(**given)), level, auth_type))
        self.assertEqual(answer.type, wire.BIND_ACK)
        for _ in range(3):
            self.serves(client)

    def test_kinds_of_ntlm(self):
        kinds = {
            "usual": {}, "no code": {"mic": False}, "no key exchange": {"flags": ntlm.USUAL & ~ntlm.KEY_EXCHANGE},
            "no key exchange nor code": {"flags": ntlm.USUAL & ~ntlm.KEY_EXCHANGE, "mic": False},
            "no version": {"flags": ntlm.USUAL & ~ntlm.VERSION},
            "no version nor code": {"flags": ntlm.USUAL & ~ntlm.VERSION, "mic": False},
            "no target wanted": {"flags": ntlm.USUAL & ~(ntlm.REQUEST_TARGET | ntlm.TARGET_INFO)},
            "nothing of the target": {"target_info": False, "mic": False}, "56 bits": {"flags": ntlm.USUAL & ~ntlm.KEY_128},
            "no bits for signing": {"flags": ntlm.USUAL & ~(ntlm.SIGN | ntlm.SEAL | ntlm.ALWAYS_SIGN)},
            "no bindings": {"pairs": TARGET_PAIRS}, "bound": {"pairs": [(ntlm.AV_BINDINGS, os.urandom(16))]},
            "unknown pairs": {"pairs": [(4711, b"abc")]},
            "names": {"domain": "corp", "workstation": "Console7", "supplied": True},
            "lower": {"user": "OPERATOR", "domain": "Corp.Example.COM"},
        }
        for name, how in kinds.items():
            for level in LEVELS:
                with self.subTest(name=name, level=level):
                    self.ntlm_serves(level, **how)

    def test_names_beyond_ascii(self):
        for user in ("Bjørn Ångström", "BJØRN ÅNGSTRÖM", "bjørn ångström"):
            self.ntlm_serves(user=user, domain="Überall", workstation="Кабинет")
        for name in ("tape\U0001F600", "оператор", "Ελλάδα", "x" * 104):
            password = "Pässwörd \U0001F600 " + name
            self.server.add_account(name, administrator=True, password=password)
            for user in (name, name.upper(), name.lower()):
                with self.subTest(user):
                    self.ntlm_serves(PRIVACY, user=user, password=password, domain="D" * 200)

    def test_kinds_of_negotiate(self):
        kinds = {
            "usual": {}, "nothing optimistic": {"optimistic": b""}, 
            "another favourite": {"offered": (ntlm.NEGOEX_ID, ntlm.NTLM_ID), "optimistic": NEGOEX_TOKEN},
            "favourite that can't be had": {"offered": (ntlm.KERBEROS_ID, ntlm.NEGOEX_ID, ntlm.NTLM_ID), "optimistic": bytes(2000)},
            "nothing at all": {"offered": (ntlm.KERBEROS_ID, ntlm.NTLM_ID), "optimistic": b""},
            "twice": {"offered": (ntlm.NTLM_ID, ntlm.NTLM_ID)},
        }
        for name, how in kinds.items():
            for level in LEVELS:
                with self.subTest(name=name, level=level):
                    self.ntlm_serves(level, wire.NEGOTIATE, lambda inner: ntlm.Negotiated(inner, **how))
        with self.subTest("no signature where nothing demands one"):
            self.ntlm_serves(INTEGRITY, wire.NEGOTIATE, lambda inner: ntlm.Negotiated(inner, sign_list=False), mic=False)

    def test_negotiate_takes_a_bare_mechanism(self):
        """A client that has nothing to choose from may leave the frame out."""
        for level in LEVELS:
            with self.subTest(level):
                client = self.connect()
                security = Security(ntlm.Ntlm("operator", PASSWORD), level, wire.NEGOTIATE)
                client.send(client.pdu(wire.BIND, client.bind_body(INVOKER_ONLY), security=security, token=security.mechanism.first()))
                answer = client.receive()
                self.assertEqual(answer.type, wire.BIND_ACK)
                token = security.mechanism.next(answer.token)
                client.send(client.pdu(wire.AUTH3, bytes(4), security=security, token=token))
                client.security = security
                self.serves(client)


if __name__ == "__main__":
    unittest.main()
