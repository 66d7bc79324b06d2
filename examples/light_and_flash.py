#!/usr/bin/env python3
"""Sets the light, runs a saturating flash, and prints F, Fm' and the yield of photosystem II:
light_and_flash.py [HOST [PORT [FLUX]]], with FLUX in µmol/m²/s"""
import socket
import sys

host, port, flux = (sys.argv[1:] + ["::1", "7246", "200"][len(sys.argv) - 1 :])[:3]
head = socket.create_connection((host, int(port)), timeout=20)
lines = head.makefile(encoding="utf-8", newline="\n")
columns = next(line for line in lines if line.startswith("DATAH\t")).split("\t")


def request(content):
    """Sends a document, and returns the lines of its answer."""
    head.sendall(f"<nemra><tavo>{content}</tavo></nemra>\n".encode())
    answer = []
    for line in lines:
        if line == "<nemra><tavo><ack>true</ack></tavo></nemra>\n":
            break
        if not line.startswith("DATA"):
            answer.append(line.strip())
        if "<error>" in line or "<Error" in line:
            sys.exit(line)
    return answer


def samples():
    """F and CODE of each row."""
    for line in lines:
        if line.startswith("DATA\t"):
            fields = line.split("\t")
            yield float(fields[columns.index("LUMET")]), int(fields[columns.index("CODE")])


request("<cfg><lightsource><control>setpoint</control>"
        f"<Q_setpoint>{flux}</Q_setpoint></lightsource></cfg>")
steady = [f for f, _ in (next(samples()) for _ in range(30))][-5:]
request("<cmd><rect>true</rect></cmd>")
flash = []
for f, code in samples():
    if code == 3:
        flash.append(f)
    elif flash:
        break
f, fm = sum(steady) / 5, max(flash[5:])  # the light settles in the first five
print(f"F {f:.1f}\nFm' {fm:.1f}\nPhiPSII {1 - f / fm:.3f}")
