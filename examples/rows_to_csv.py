#!/usr/bin/env python3
"""Prints the rows of a head as CSV: rows_to_csv.py [HOST [PORT [ROWS]]]"""
import csv
import socket
import sys

host, port, rows = (sys.argv[1:] + ["::1", "7246", "100"][len(sys.argv) - 1 :])[:3]
out = csv.writer(sys.stdout, lineterminator="\n")
left = int(rows)
with socket.create_connection((host, int(port)), timeout=20) as head:
    for line in head.makefile(encoding="utf-8", newline="\n"):
        name, *fields = line.rstrip("\n").split("\t")
        if name == "DATAH":
            out.writerow(fields[:-1])  # without CHK
        elif name == "DATA":
            text = line.encode()
            checked = text[: text.rindex(b"\t") + 1]
            if sum(checked) % 256 != int(fields[-1]):
                sys.exit("damaged row: " + line)
            out.writerow(fields[:-1])
            left -= 1
            if left == 0:
                break
