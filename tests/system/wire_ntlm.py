"""NTLM version 2 of a client, with everything that clients do in different ways as an option; and its framing by Negotiate."""

import hashlib
import hmac
import os
import struct

from Cryptodome.Cipher import ARC4
from impacket.ntlm import compute_nthash

UNICODE, REQUEST_TARGET, SIGN, SEAL, NTLM_FLAG = 0x1, 0x4, 0x10, 0x20, 0x200
DOMAIN_SUPPLIED, WORKSTATION_SUPPLIED, ALWAYS_SIGN = 0x1000, 0x2000, 0x8000
EXTENDED, TARGET_INFO, VERSION, KEY_128, KEY_EXCHANGE, KEY_56 = 0x80000, 0x800000, 0x2000000, 0x20000000, 0x40000000, 0x80000000
USUAL = (UNICODE | REQUEST_TARGET | SIGN | SEAL | NTLM_FLAG | ALWAYS_SIGN | EXTENDED | TARGET_INFO | VERSION | KEY_128 | KEY_EXCHANGE
         | KEY_56)

AV_END, AV_FLAGS, AV_TIMESTAMP, AV_SINGLE_HOST, AV_TARGET_NAME, AV_BINDINGS = 0, 6, 7, 8, 9, 10


def md5_mac(key, *parts):
    return hmac.new(key, b"".join(parts), hashlib.md5).digest()


def pairs_of(info):
    found = []
    at = 0
    while True:
        number, size = struct.unpack_from("<HH", info, at)
        if number == AV_END:
            return found
        found.append((number, info[at + 4:at + 4 + size]))
        at += 4 + size


class Ntlm:
    """`mic`: bear an integrity code, as current clients do. `pairs`: more target information (number, bytes) for the answer.
    `target_info` False: none of the server's."""

    signature_size = 16

    def __init__(self, user, password, domain="", workstation="", flags=USUAL, mic=True, pairs=(), target_info=True, supplied=False):
        self.user, self.password, self.domain, self.workstation = user, password, domain, workstation
        self.flags, self.mic, self.pairs, self.target_info, self.supplied = flags, mic, pairs, target_info, supplied
        self.header_signing = False  # covers the whole PDU in any case

    def first(self):
        if self.supplied:
            domain, workstation = self.domain.upper().encode(), self.workstation.upper().encode()
            self.negotiate = struct.pack("<8sIIHHIHHI8s", b"NTLMSSP\0", 1, self.flags | DOMAIN_SUPPLIED | WORKSTATION_SUPPLIED,
                                         len(domain), len(domain), 40 + len(workstation), len(workstation), len(workstation), 40,
                                         bytes((10, 0, 0x61, 0x4A, 0, 0, 0, 15))) + workstation + domain
        else:
            self.negotiate = struct.pack("<8sIIQQ8s", b"NTLMSSP\0", 1, self.flags, 0, 0, bytes((10, 0, 0x61, 0x4A, 0, 0, 0, 15)))
        return self.negotiate

    def next(self, challenge):
        """The AUTHENTICATE_MESSAGE; nothing behind it."""
        if not challenge.startswith(b"NTLMSSP\0\2\0\0\0"):
            return b""
        agreed = self.flags & struct.unpack_from("<I", challenge, 20)[0]
        size, _, at = struct.unpack_from("<HHI", challenge, 40)
        given = pairs_of(challenge[at:at + size])
        info = list(given) if self.target_info else []
        if self.mic:
            info.append((AV_FLAGS, struct.pack("<I", 2)))
        info += self.pairs
        time = dict(given).get(AV_TIMESTAMP, bytes(8))
        blob = b"\1\1" + bytes(6) + time + os.urandom(8) + bytes(4)
        blob += b"".join(struct.pack("<HH", number, len(value)) + value for number, value in info) + bytes(8)
        key = md5_mac(compute_nthash(self.password), (self.user.upper() + self.domain).encode("utf-16le"))
        proof = md5_mac(key, challenge[24:32], blob)
        base = md5_mac(key, proof)
        exported, wrapped = base, b""
        if agreed & KEY_EXCHANGE:
            exported = os.urandom(16)
            wrapped = ARC4.new(base).encrypt(exported)
        self.establish(agreed, exported)
        payload = [self.domain.encode("utf-16le"), self.user.encode("utf-16le"), self.workstation.encode("utf-16le"), bytes(24),
                   proof + blob, wrapped]
        at = 88 if self.mic else 72 if agreed & VERSION else 64
        places = []
        for part in payload:
            places.append(struct.pack("<HHI", len(part), len(part), at))
            at += len(part)
        domain, user, workstation, lm, nt, session = places
        fixed = b"NTLMSSP\0" + struct.pack("<I", 3) + lm + nt + domain + user + workstation + session + struct.pack("<I", agreed)
        if self.mic or agreed & VERSION:
            fixed += bytes((10, 0, 0x61, 0x4A, 0, 0, 0, 15))
        payload = b"".join(payload)
        if self.mic:
            fixed += md5_mac(exported, self.negotiate, challenge, fixed, bytes(16), payload)
        return fixed + payload

    def establish(self, agreed, exported):
        def keys(way):
            strength = exported if agreed & KEY_128 else exported[:7] if agreed & KEY_56 else exported[:5]
            return (hashlib.md5(exported + f"session key to {way} signing key magic constant\0".encode()).digest(),
                    hashlib.md5(strength + f"session key to {way} sealing key magic constant\0".encode()).digest())

        self.exchanged = bool(agreed & KEY_EXCHANGE)
        self.out_key, self.out_sealing = keys("client-to-server")
        self.in_key, self.in_sealing = keys("server-to-client")
        self.out_number = self.in_number = 0
        self.restart()

    def restart(self):
        self.out_stream, self.in_stream = ARC4.new(self.out_sealing), ARC4.new(self.in_sealing)

    def mac(self, key, stream, number, data):
        checksum = md5_mac(key, struct.pack("<I", number), data)[:8]
        return struct.pack("<I", 1) + (stream.encrypt(checksum) if self.exchanged else checksum) + struct.pack("<I", number)

    def sign(self, data):
        self.out_number += 1
        return self.mac(self.out_key, self.out_stream, self.out_number - 1, data)

    def check(self, data, signature):
        self.in_number += 1
        assert self.mac(self.in_key, self.in_stream, self.in_number - 1, data) == signature, "the server's signature is wrong"

    def protect(self, blank, body, level):
        """A PDU whose signature is blank yet."""
        plain = blank[:-16]
        if level != PRIVACY:
            return plain + (self.sign(plain) if level >= CALL else bytes(16))
        sealed = plain[:body] + self.out_stream.encrypt(plain[body:-8]) + plain[-8:]
        return sealed + self.sign(plain)

    def unprotect(self, pdu, level):
        plain = pdu[:-16]
        if level == PRIVACY:
            plain = plain[:24] + self.in_stream.decrypt(plain[24:-8]) + plain[-8:]
        self.check(plain, pdu[-16:])
        return plain + pdu[-16:]


CALL, PRIVACY = 3, 6

SPNEGO_ID = bytes.fromhex("06062b0601050502")
NTLM_ID = bytes.fromhex("060a2b06010401823702020a")
KERBEROS_ID = bytes.fromhex("06092a864886f712010202")
NEGOEX_ID = bytes.fromhex("060a2b06010401823702021e")


def element(tag, *parts):
    content = b"".join(parts)
    size = len(content)
    length = bytes((size,)) if size < 128 else bytes((0x81, size)) if size < 256 else b"\x82" + size.to_bytes(2, "big")
    return bytes((tag,)) + length + content


def fields_of(response):
    """The fields of a NegTokenResp by their tags."""
    def inside(data):
        size = data[1]
        skip = 2
        if size >= 128:
            skip += size - 128
            size = int.from_bytes(data[2:skip], "big")
        return data[skip:skip + size], data[skip + size:]

    content, _ = inside(inside(response)[0])
    found = {}
    while content:
        tag = content[0]
        value, content = inside(content)
        found[tag] = inside(value)[0]
    return found


class Negotiated:
    """Negotiate around `inner`. `offered`: ids of the mechanisms in their order. `optimistic`: what stands in the first token, None: the
    first token of `inner`, empty: nothing. `sign_list`: whether the client signs the list where nobody forces it to."""

    signature_size = 16

    def __init__(self, inner, offered=(NTLM_ID,), optimistic=None, sign_list=True):
        self.inner, self.offered, self.optimistic, self.sign_list = inner, offered, optimistic, sign_list
        self.begun = False
        self.done = False
        self.header_signing = False

    def first(self):
        self.list = element(0x30, *self.offered)
        token = self.optimistic
        if token is None:
            token = self.inner.first()
            self.begun = True
        content = element(0xA0, self.list) + (element(0xA2, element(0x04, token)) if token else b"")
        return element(0x60, SPNEGO_ID, element(0xA0, element(0x30, content)))

    def next(self, token):
        fields = fields_of(token)
        if self.done:
            assert fields[0xA0] == b"\0", "accepted"
            if self.signed:
                self.inner.check(self.list, fields[0xA3])
                self.inner.restart()
            return b""
        if not self.begun:
            self.begun = True
            return element(0xA1, element(0x30, element(0xA2, element(0x04, self.inner.first()))))
        answer = self.inner.next(fields[0xA2])
        self.signed = self.sign_list
        content = element(0xA2, element(0x04, answer))
        if self.signed:
            content += element(0xA3, element(0x04, self.inner.sign(self.list)))
        self.done = True
        return element(0xA1, element(0x30, content))

    def protect(self, *how):
        return self.inner.protect(*how)

    def unprotect(self, *how):
        return self.inner.unprotect(*how)
