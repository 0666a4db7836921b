#!/usr/bin/env python3
"""Property lists as our reader and as Python's plistlib read them: sound lists of every kind, in XML as everybody writes it, in
XML that uses all that XML has, and in the binary form, and the same lists with mistakes in them. A sound list both read alike; of a
broken one they may think differently, but what both read is the same.

  property_list_peers.py READER [--seed N] [--lists N] [--seconds N]      READER: the program of property_list_reader.cpp
"""
import argparse
import datetime
import math
import plistlib
import random
import re
import struct
import subprocess
import sys
import time

EPOCH = datetime.datetime(1970, 1, 1)
PIECES = ["a", "Z", " ", "&", "<", ">", '"', "'", "\n", "\t", "ä", "中", "😀", "\ufffd", "key", "]]>", "plain text"]


class Unknown(Exception):
    """A value that has no form in the other reader."""


def form(value):
    if value is True or value is False:
        return "T" if value else "F"
    if isinstance(value, int):
        # What no 64 bits hold is a real.
        return f"i{value}" if -2**63 <= value < 2**64 else real_form(float(value))
    if isinstance(value, float):
        return real_form(value)
    if isinstance(value, str):
        return "s" + value.encode().hex()
    if isinstance(value, bytes):
        return "d" + value.hex()
    if isinstance(value, datetime.datetime):
        return f"t{math.floor((value - EPOCH).total_seconds())}"
    if isinstance(value, list):
        return "[" + "".join(form(each) + "," for each in value) + "]"
    if isinstance(value, dict):
        entries = sorted((key.encode(), form(each)) for key, each in value.items())
        return "{" + "".join(f"{key.hex()}:{each}," for key, each in entries) + "}"
    raise Unknown(type(value))


def real_form(real):
    return "rnan" if math.isnan(real) else "r" + struct.pack(">d", real).hex()


def peers_form(content):
    """None when it refuses the list, or reads something that is not comparable."""
    try:
        return form(plistlib.loads(content))
    except Exception:  # it throws many kinds, for many reasons
        return None


def sound(rng, depth=3):
    kind = rng.randrange(9 if depth else 7)
    if kind == 0:
        return rng.random() < 0.5
    if kind == 1:
        return rng.choice([1, -1]) * (rng.getrandbits(63) >> rng.randrange(63))
    if kind == 2:
        return struct.unpack(">d", struct.pack(">Q", rng.getrandbits(62)))[0] if rng.random() < 0.5 else rng.random() * 1e6
    if kind in (3, 4):
        return "".join(rng.choice(PIECES) for _ in range(rng.randrange(10)))
    if kind == 5:
        return rng.randbytes(rng.randrange(40))
    if kind == 6:
        return datetime.datetime(2001, 1, 1) + datetime.timedelta(seconds=rng.randrange(-10**9, 10**9))
    if kind == 7:
        return [sound(rng, depth - 1) for _ in range(rng.randrange(6))]
    return dictionary(rng, depth - 1)


def dictionary(rng, depth=3):
    return {"".join(rng.choice(PIECES) for _ in range(rng.randrange(1, 5))): sound(rng, depth) for _ in range(rng.randrange(6))}


def in_pieces(rng, content):
    """The same list in XML, with references, sections, comments and instructions where XML has them and nobody writes them."""
    def between(match):
        return match[0] + rng.choice([b"", b"", b"<!-- \" ]> <key> -->", b"<?x \" ' > ?>", b"\r\n"])

    def dressed(match):
        tag, text = match[1].decode(), match[2].decode()
        return f"<{tag}>{''.join(map(piece, re.findall('&[^;]+;|.', text, re.DOTALL)))}</{tag}>".encode()

    def piece(letter):
        kind = rng.randrange(12)
        if kind == 0 and len(letter) == 1:
            return rng.choice([f"&#{ord(letter)};", f"&#x{ord(letter):x};", f"&#x000{ord(letter):X};"])
        if kind == 1 and len(letter) == 1:
            return f"<![CDATA[{letter}]]>"
        if kind == 2:
            return letter + rng.choice(["<!-- <![CDATA[ -->", "<?x > ?>", "<![CDATA[]]>"])
        return letter

    content = re.sub(rb"(?<=>)\s*\n\s*(?=<[^/])", between, content)
    return re.sub(rb"<(key|string|integer|real|date|data)>([^<]*)</\1>", dressed, content)


def broken(rng, content):
    mutant = bytearray(content)
    for _ in range(rng.randrange(1, 4)):
        at = rng.randrange(len(mutant))
        kind = rng.randrange(4)
        if kind == 0:
            mutant[at] = rng.randrange(256)
        elif kind == 1:
            mutant[at] ^= 1 << rng.randrange(8)
        elif kind == 2:
            del mutant[at:at + rng.randrange(1, 4)]
        else:
            mutant[at:at] = mutant[max(0, at - 8):at]
        if not mutant:
            return b"x"
    return bytes(mutant)


class Reader:
    def __init__(self, program):
        self.process = subprocess.Popen([program], stdin=subprocess.PIPE, stdout=subprocess.PIPE)

    def read(self, content):
        self.process.stdin.write(struct.pack("<I", len(content)) + content)
        self.process.stdin.flush()
        line = self.process.stdout.readline().decode().rstrip("\n")
        if not line:
            sys.exit(f"the reader ended with {self.process.wait()} at {content!r}")
        return line


def check(reader, rng):
    """Compares one list and one broken one in each form; how many both read."""
    value = dictionary(rng)
    both = 0
    xml = plistlib.dumps(value, fmt=plistlib.FMT_XML)
    for content in (xml, in_pieces(rng, xml), plistlib.dumps(value, fmt=plistlib.FMT_BINARY)):
        ours = reader.read(content)
        if ours != peers_form(content) or ours != form(value):
            sys.exit(f"a sound list is read otherwise: {content!r}\n{ours}\n{peers_form(content)}")
        content = broken(rng, content)
        if not content.startswith(b"bplist"):
            content = content.replace(b"\r", b"\n")  # ours keeps line ends, as the platform does
        ours, peers = reader.read(content), peers_form(content)
        if ours != "-" and peers is not None:
            both += 1
            if ours != peers:
                sys.exit(f"a broken list is read otherwise: {content!r}\n{ours}\n{peers}")
    return both


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("reader")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--lists", type=int, default=2000)
    parser.add_argument("--seconds", type=float, default=0)
    options = parser.parse_args()
    reader, rng = Reader(options.reader), random.Random(options.seed)
    end = time.monotonic() + options.seconds
    lists = both = 0
    while lists < options.lists or time.monotonic() < end:
        both += check(reader, rng)
        lists += 1
    print(f"{lists} lists in three forms read alike, and {both} of {3 * lists} broken ones that both read")
    if both < lists // 20:
        sys.exit("hardly any broken list was compared")


main()
