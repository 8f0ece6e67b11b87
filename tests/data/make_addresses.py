#!/usr/bin/env python3
"""Writes addresses.txt: texts of IP addresses, valid and invalid, with what Python's ipaddress module says of them.

One line each, TAB between the fields: "valid", text, address bytes in hexadecimal, the text to print; or "invalid", text.
Left out is what is read differently on purpose: parts of an IPv4 address with leading zeros (allowed) and IPv6 zones
(refused); the test has cases of its own for both.
"""
import ipaddress
import pathlib
import random
import re

FIXED = """
0.0.0.0 1.2.3.4 127.0.0.1 255.255.255.255 192.168.0.1 10.20.30.40 9.99.199.249 256.1.1.1 1.256.1.1 1.1.1.256 1.1.1.999
1.1.1.1111 1.2.3 1.2.3. .1.2.3 1.2.3.4. .1.2.3.4 1..2.3 1.2.3.4.5 1.2.3.a 1.2.3.-1 1.2.3.+1 0x1.2.3.4 1 167772161 1,2,3,4
1.2.3.4:80 [1.2.3.4] 1.2.3.4/24 a.b.c.d ... .
:: ::1 1:: ::ffff:1.2.3.4 ::ffff:0:0 ::1.2.3.4 ::0.0.0.0 64:ff9b::192.0.2.33 2001:db8::1 2001:DB8::A 2001:db8:0:0:1:0:0:1
2001:db8:0:1:1:1:1:1 2001:0:0:1::1 1:2:3:4:5:6:7:8 1:2:3:4:5:6:7:: ::2:3:4:5:6:7:8 1:2:3:4:5:6::8 1::3:4:5:6:7:8
1:0:0:4:5:0:0:8 1:0:0:0:5:0:0:8 0:0:0:0:0:0:0:0 0:0:0:0:0:0:0:1 1:0:0:0:0:0:0:0 ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff
1:2:3:4:5:6:1.2.3.4 ::2:3:4:5:6:1.2.3.4 1:2:3:4:5::1.2.3.4 1:2:3:4:5:6::1.2.3.4 1:2:3:4:5:6:7:1.2.3.4 1.2.3.4:: 1.2.3.4::1
::1.2.3 ::1.2.3.256 ::1.2.3.4.5 ::1.2.3.4:1 1:1.2.3.4::1 fe80::1 00001::1 12345::1 ::00001 1::g ::G : ::: :::: 1: :1 1:2 ::1:
:::1 1::: 1:::2 1::2::3 ::1::2 1:2:3:4:5:6:7 1:2:3:4:5:6:7:8:9 1:2:3:4:5:6:7:8: :1:2:3:4:5:6:7:8 1:2:3:4::5:6:7:8
1:2:3:4:5:6:7:8:: ::1:2:3:4:5:6:7:8 [::1] [::1]:80 ::1/64 -1::1 +1::1 0x1::1 localhost
""".split()

WITH_BLANKS = ["", " ", " 1.2.3.4", "1.2.3.4 ", "1. 2.3.4", "1 2 3 4", " ::1", "::1 ", ":: 1", "1: 2::3"]


def read_differently(text):
    return "%" in text or re.search(r"(?:^|[:.])0[0-9]+\.|\.0[0-9]", text)


def forms(rng):
    """Random addresses in random spellings."""
    for _ in range(150):
        yield ".".join(str(rng.choice([0, 1, 9, 10, 99, 100, 199, 249, 255, rng.randrange(256)])) for _ in range(4))
    for _ in range(250):
        groups = [rng.choice([0, 0, 0, 1, 0xFFFF, rng.randrange(0x10000)]) for _ in range(8)]
        parts = [rng.choice(["%x", "%X", "%04x"]) % group for group in groups]
        if rng.random() < 0.3:
            low = groups[6] << 16 | groups[7]
            parts[6:] = [str(ipaddress.IPv4Address(low))]
        text = ":".join(parts)
        if rng.random() < 0.6:
            text = re.sub(r"(^|:)(0+:)+0+(:|$)", "::", text, count=1)
        yield text


def spoiled(rng, texts):
    for text in texts:
        at = rng.randrange(len(text) + 1)
        yield rng.choice([
            text[:at] + text[at + 1:],
            text[:at] + rng.choice(":.0gF-") + text[at:],
            text[:at] + text[at:at + 1] * 2 + text[at + 1:],
        ])


def describe(text):
    try:
        address = ipaddress.ip_address(text)
    except ValueError:
        return f"invalid\t{text}"
    printed = str(address)
    if address.version == 6 and address.ipv4_mapped:
        printed = f"::ffff:{address.ipv4_mapped}"
    return f"valid\t{text}\t{address.packed.hex()}\t{printed}"


def main():
    rng = random.Random(1)
    random_forms = list(forms(rng))
    texts = FIXED + WITH_BLANKS + random_forms + list(spoiled(rng, random_forms))
    lines = [describe(text) for text in dict.fromkeys(texts) if not read_differently(text)]
    target = pathlib.Path(__file__).with_name("addresses.txt")
    target.write_text("# Made by make_addresses.py; do not edit.\n" + "\n".join(lines) + "\n", encoding="ascii")


if __name__ == "__main__":
    main()
