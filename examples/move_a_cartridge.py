#!/usr/bin/env python3
"""Finds a tape library, shows what is in it, loads a cartridge into a drive and takes it out again.

The caller is the packaged RPC library impacket, over TCP with NTLM: what a backup console on another machine does.
"""

import argparse
import sys

from impacket_client import CallFailed, TapeClient

FULL = 0x1


def show_elements(title, elements):
    for element in elements:
        address = element.find("Element").get("ElementAddress")
        full = int(element.get("Flags")) & FULL
        yield title, address, "full" if full else "-", element.get("PrimaryVolumeID"), element.get("SerialNumber")


def inventory(client, link):
    rows = [("ELEMENT", "NUMBER", "STATE", "BAR CODE", "SERIAL")]
    drives = client.call("GetElementsStatuses", SymLinkName=link, ElementAddress=0, ElementsCount=100, ElementType=4)
    rows += show_elements("drive", drives["ElementsStatuses"].findall("ElementStatus"))
    rows += show_elements("port", client.call("GetIEPortsStatuses", SymLinkName=link)["IEPortsStatuses"].findall("IEPortStatus"))
    rows += show_elements("slot", client.call("GetSlotsStatuses", SymLinkName=link)["SlotsStatuses"].findall("SlotStatus"))
    for row in rows:
        print("   {:<8} {:>6}  {:<5}  {:<10} {}".format(*row).rstrip())
    return rows[1:]


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--host", default="127.0.0.1")
    parser.add_argument("--port", type=int, default=6166)
    parser.add_argument("--user", required=True)
    parser.add_argument("--password-file", required=True, type=argparse.FileType())
    parser.add_argument("--owner", default="EXAMPLE-CONSOLE")
    options = parser.parse_args()
    password = options.password_file.readline().rstrip("\n")
    client = TapeClient(options.host, options.port, options.user, password, owner=options.owner)
    try:
        # The console becomes the owner of the machine's tape devices: only the owner's calls reach them.
        client.call("SetOwnerName", NewOwnerName=options.owner)
        changers = client.call("GetChangers")["Changers"].findall("Changer")
        if not changers:
            print("No changer was found.")
            return 1
        for changer in changers:
            data, parameters = changer.find("Data"), changer.find("Parameters")
            print(f"-- Changer {changer.get('DeviceName')} ({changer.get('SymbolicLink')}): {data.get('VendorId')} {data.get('ProductId')}, "
                  f"serial {data.get('SerialNumber')}, {parameters.get('NumberStorageElements')} slots, "
                  f"{parameters.get('NumberIEElements')} ports, {parameters.get('NumberDataTransferElements')} drives")
        link = changers[0].get("SymbolicLink")
        print("-- Inventory")
        rows = inventory(client, link)
        slot = next(row[1] for row in rows if row[0] == "slot" and row[2] == "full")
        drive = next(row[1] for row in rows if row[0] == "drive" and row[2] != "full")
        print(f"-- Load: slot {slot} to drive {drive}")
        client.call("LoadMedium", SymLinkName=link, SlotNum=slot, DriveNum=drive)
        print("-- Inventory after the load")
        inventory(client, link)
        print(f"-- Unload: drive {drive} to slot {slot}")
        client.call("UnloadMedium", SymLinkName=link, SlotNum=slot, DriveNum=drive)
        print("-- The cartridge is back in its slot.")
    except CallFailed as failure:
        print(f"The server says: {failure}", file=sys.stderr)
        return 1
    finally:
        client.close()
    return 0


if __name__ == "__main__":
    sys.exit(main())
