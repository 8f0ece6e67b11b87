#!/usr/bin/env python3
"""Writes countries.txt from the package iso-codes: alpha-2 code, TAB, numeric code of ISO 3166-1."""
import json
import pathlib

SOURCE = pathlib.Path("/usr/share/iso-codes/json/iso_3166-1.json")


def main():
    countries = json.loads(SOURCE.read_text(encoding="utf-8"))["3166-1"]
    lines = sorted(f"{country['alpha_2']}\t{int(country['numeric'])}" for country in countries)
    target = pathlib.Path(__file__).with_name("countries.txt")
    target.write_text("# Made by make_countries.py; do not edit.\n" + "\n".join(lines) + "\n", encoding="ascii")


if __name__ == "__main__":
    main()
