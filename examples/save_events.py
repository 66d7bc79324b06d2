#!/usr/bin/env python3
"""Saves the record of each flash and dark pulse that heads publish, a file each:
save_events.py [HOST [PORT [COUNT]]]. It needs paho-mqtt (Debian: python3-paho-mqtt)."""
import re
import sys

import paho.mqtt.client as mqtt

host, port, count = (sys.argv[1:] + ["::1", "1883", "1"][len(sys.argv) - 1 :])[:3]
left = int(count)


def save(client, _, message):
    global left
    member = lambda name: re.search(rf'"{name}":"?([^",]*)', record)[1]
    record = message.payload.decode()
    path = f"{member('DEVICE')}-{member('EVENT_ID')}.json"
    with open(path, "w", encoding="utf-8") as file:
        file.write(record)
    print(path, member("TYPE"), flush=True)
    left -= 1
    if left == 0:
        client.disconnect()


bus = mqtt.Client()
bus.on_connect = lambda *_: bus.subscribe(
    [("nemra/tavo/output/DATAFLASHEVENT", 0), ("nemra/tavo/output/DATADARKEVENT", 0)])
bus.on_subscribe = lambda *_: print("waiting for events", flush=True)
bus.on_message = save
bus.connect(host, int(port))
bus.loop_forever()
