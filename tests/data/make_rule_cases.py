#!/usr/bin/env python3
"""Writes rule_cases.txt: rule lists, a local address, a peer, and what first match says, by Python's ipaddress module."""
import ipaddress
import pathlib
import random

ADDRESSES = ["0.0.0.0", "0.0.0.1", "10.0.0.0", "10.0.0.5", "10.0.0.255", "10.0.1.0", "10.255.255.255", "11.0.0.0",
             "127.0.0.1", "128.0.0.0", "172.16.0.1", "172.31.255.255", "172.32.0.0", "192.168.0.1", "192.168.0.2",
             "192.168.1.1", "255.255.255.254", "255.255.255.255", "::", "::1", "::ffff:10.0.0.5", "2001:db8::1",
             "2001:db8::ff", "2001:db8:0:1::", "fe80::1", "ff02::1"]

RULES = ["ip=10.0.0.5", "ip=0.0.0.0", "ip=255.255.255.255", "ip=::1", "ip=2001:db8::1", "ip=::ffff:10.0.0.5", "islocal",
         "ipmask=10.0.0.0/255.0.0.0", "ipmask=10.9.9.9/255.0.0.0", "ipmask=10.0.0.0/255.255.255.0",
         "ipmask=10.0.0.5/255.255.255.255", "ipmask=172.16.0.0/255.240.0.0", "ipmask=192.168.0.0/255.255.255.254",
         "ipmask=0.0.0.0/0.0.0.0", "ipmask=1.2.3.4/0.0.0.0", "ipmask=::/::", "ipmask=2001:db8::1/0.0.0.0",
         "ipmask=10.0.0.5/255.0.255.0", "ipmask=0.0.0.1/0.0.0.1", "ipmask=128.0.0.0/128.0.0.0",
         "ipmask=2001:db8::/ffff:ffff::", "ipmask=2001:db8::/ffff:ffff:ffff:ffff::", "ipmask=fe80::/ffc0::",
         "ipmask=fe80::/255.0.0.0", "ipmask=10.0.0.0/ff00::", "ipmask=::1/::1",
         "iprange=10.0.0.0-10.0.0.255", "iprange=10.0.0.5-10.0.0.5", "iprange=10.0.0.6-10.0.0.254",
         "iprange=10.0.0.255-10.0.0.0", "iprange=0.0.0.0-255.255.255.255", "iprange=127.255.255.255-128.0.0.0",
         "iprange=172.16.0.0-172.31.255.255", "iprange=2001:db8::-2001:db8::ff", "iprange=::-ffff::",
         "iprange=192.168.0.2-::1", "iprange=::1-10.0.0.5"]

LOCAL = "192.168.0.1"


def order(address):
    """IPv4 before IPv6, then by number."""
    return address.version, int(address)


def matches(rule, peer):
    if rule == "islocal":
        return peer == ipaddress.ip_address(LOCAL)
    keyword, value = rule.split("=", 1)
    if keyword == "ip":
        return peer == ipaddress.ip_address(value)
    if keyword == "ipmask":
        net, mask = map(ipaddress.ip_address, value.split("/"))
        if int(mask) == 0:
            return True
        if not peer.version == net.version == mask.version:
            return False
        bits = bin(int(mask))[2:].zfill(mask.max_prefixlen)
        if "01" not in bits:  # a mask as networks have it
            network = ipaddress.ip_network(f"{net}/{bits.count('1')}", strict=False)
            return peer in network
        return int(peer) & int(mask) == int(net) & int(mask)
    low, high = map(ipaddress.ip_address, value.split("-"))
    return order(low) <= order(peer) <= order(high)


def decide(rules, peer):
    for rule in rules:
        if matches(rule[1:], ipaddress.ip_address(peer)):
            return "allow" if rule[0] == "+" else "deny"
    return "allow"


def main():
    cases = [(["-" + rule], peer) for rule in RULES for peer in ADDRESSES]
    cases += [(["+" + rule, "-ipmask=0.0.0.0/0.0.0.0"], peer) for rule in RULES for peer in ADDRESSES[::5]]
    chance = random.Random(42)
    for _ in range(300):
        rules = [chance.choice("+-") + chance.choice(RULES) for _ in range(chance.randint(2, 8))]
        cases.append((rules, chance.choice(ADDRESSES)))
    lines = ["# Made by make_rule_cases.py; do not edit. Rules, local address, peer, decision."]
    lines += ["\t".join([" ".join(rules), LOCAL, peer, decide(rules, peer)]) for rules, peer in cases]
    path = pathlib.Path(__file__).with_name("rule_cases.txt")
    path.write_text("\n".join(lines) + "\n", encoding="ascii", newline="\n")


if __name__ == "__main__":
    main()
