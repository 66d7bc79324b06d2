#!/usr/bin/env python3
"""Prints what the heads of a house publish as InfluxDB line protocol, a line each:
line_protocol.py [HOST [PORT [LINES]]]. Without LINES it goes on. It needs paho-mqtt."""
import json
import sys

import paho.mqtt.client as mqtt

host, port, lines = (sys.argv[1:] + ["::1", "1883", "0"][len(sys.argv) - 1 :])[:3]
left = int(lines) or -1


def print_line(client, _, message):
    global left
    _, serial, *_, row = message.topic.split("/")
    values = json.loads(message.payload)
    nanoseconds = round(values.pop("TIME") * 1e6) * 1000
    fields = ",".join(f"{name}={value}" for name, value in values.items())
    if left != 0:
        print(f"{row},serial={serial} {fields} {nanoseconds}", flush=True)
        left -= 1
    if left == 0:
        client.disconnect()


house = mqtt.Client()
house.on_connect = lambda *_: house.subscribe(
    [("heads/+/nemra/tavo/output/DATA", 0), ("heads/+/nemra/tavo/output/DATASTAT", 0)])
house.on_message = print_line
house.connect(host, int(port))
house.loop_forever()
