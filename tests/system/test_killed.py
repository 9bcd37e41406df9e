"""A server killed at any moment loses nothing: neither the owner nor a cartridge."""

import random
import threading
import time
import unittest

from tape_server import TapeServer
from test_movement import Library

ROUNDS = 8


class Killed(unittest.TestCase):
    def test_kill_during_moves(self):
        server = TapeServer()
        self.addCleanup(server.close)
        client = server.client()
        cartridges = sorted(Library(client, False).contents().values())
        self.assertEqual(len(cartridges), 20)
        dice = random.Random(20)
        for round_number in range(ROUNDS):
            owner = f"OWNER{round_number}"
            client.call("SetOwnerName", NewOwnerName=owner)
            client.owner = owner
            stop = threading.Event()

            def shuffle(library=Library(client, bool(round_number % 2)), seed=round_number):
                order = random.Random(seed)
                try:
                    while not stop.is_set():
                        held = [number for kind, number in library.contents() if kind == "slot"]
                        empty = [number for number in range(24) if number not in held]
                        library.call("MoveToSlot", SourceSlotNum=order.choice(held), destinationSlotNum=order.choice(empty))
                except Exception:  # the server was killed: whatever the client makes of that
                    pass

            mover = threading.Thread(target=shuffle)
            mover.start()
            time.sleep(dice.uniform(0.05, 0.4))
            server.kill()
            stop.set()
            mover.join(60)
            self.assertFalse(mover.is_alive(), "the client hangs after the server's death")
            client.close()
            server.start()
            client = server.client(owner=owner)
            self.assertEqual(client.call("GetOwnerName")["OwnerName"], owner)
            self.assertEqual(sorted(Library(client, False).contents().values()), cartridges)
        client.close()


if __name__ == "__main__":
    unittest.main()
