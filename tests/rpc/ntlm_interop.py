#!/usr/bin/python3
"""The client's side of an NTLM exchange as impacket computes it, over standard input and output.

Started by the test program, which is the server. Each line is hexadecimal: out the NEGOTIATE, in the CHALLENGE, out the
AUTHENTICATE, in "complete" or "refused". After "complete", out three sealed messages with their signatures, in an answer to
each, sealed the other way; "verified" ends it.

    ntlm_interop.py DOMAIN USER PASSWORD [v1]
"""

import sys

from Cryptodome.Cipher import ARC4
from impacket import ntlm

MESSAGES = [b"first message", b"\x00" * 500, b"z"]


def send(*blocks):
    print(" ".join(block.hex() for block in blocks), flush=True)


def receive():
    line = sys.stdin.readline()
    if not line:
        sys.exit("the server is gone")
    return line.split()


class Session:
    """Keys and sequence of both directions."""

    def __init__(self, flags, key):
        self.flags = flags
        self.client_signing = ntlm.SIGNKEY(flags, key)
        self.server_signing = ntlm.SIGNKEY(flags, key, "Server")
        self.client_sealing = ntlm.SEALKEY(flags, key)
        self.client_stream = ARC4.new(self.client_sealing).encrypt
        self.server_stream = ARC4.new(ntlm.SEALKEY(flags, key, "Server")).encrypt

    def seal(self, message, number):
        sealed, signature = ntlm.SEAL(self.flags, self.client_signing, self.client_sealing, message, message, number,
                                      self.client_stream)
        return sealed, signature.getData()

    def unseal(self, sealed, signature, number):
        message = self.server_stream(sealed)
        expected = ntlm.SIGN(self.flags, self.server_signing, message, number, self.server_stream)
        return message if expected.getData() == signature else None


def main():
    domain, user, password = sys.argv[1:4]
    version_2 = "v1" not in sys.argv[4:]
    negotiate = ntlm.getNTLMSSPType1("", "", signingRequired=True, use_ntlmv2=version_2)
    send(negotiate.getData())
    challenge = bytes.fromhex(receive()[0])
    authenticate, key = ntlm.getNTLMSSPType3(negotiate, challenge, user, password, domain, use_ntlmv2=version_2)
    send(authenticate.getData())
    if receive() != ["complete"]:
        return
    session = Session(authenticate["flags"], key)
    for number, message in enumerate(MESSAGES):
        send(*session.seal(message, number))
        sealed, signature = (bytes.fromhex(block) for block in receive())
        if session.unseal(sealed, signature, number) != message[::-1]:
            sys.exit("the server's answer doesn't verify")
    print("verified", flush=True)


if __name__ == "__main__":
    main()
