#!/usr/bin/python3
"""Writes the platform file of a simulated server with a given number of sensors.

Usage: bench/gen-platform.py SENSORS [OUTPUT]

The mix follows a large rack server: of every 20 sensors, 8 temperature probes,
5 voltage probes and 4 fans (threshold sensors with full records, readings in
their normal range), and 3 discrete sensors (power supply status, fan
redundancy, a discrete voltage "state" sensor) as compact records. Sensor
numbers run 1..254 per owner/LUN pair, so the sensors spread over the four
LUNs of owner 0x20, then of 0x22, and so on. Names are unique ("Temp 0007"), so
kelvarn-sim can address any of them. The SMBIOS, FRU and OEM parts are a small
fixed two-socket server; the SEL holds one old entry.

The output is deterministic for a given size.
"""
import json
import sys

# Kinds of sensor in the order of one block of 20.
PATTERN = ["temp"] * 8 + ["volt"] * 5 + ["fan"] * 4 + ["psu", "redundancy", "vstate"]


def sensor_key(index):
    """(owner, lun byte, number) of the sensor at position `index`."""
    group, slot = divmod(index, 254)
    return 0x20 + 2 * (group // 4), group % 4, slot + 1


def make_sensor(index):
    kind = PATTERN[index % len(PATTERN)]
    owner, lun, number = sensor_key(index)
    seq = index + 1
    sensor = {"number": number}
    if owner != 0x20:
        sensor["owner"] = owner
    if lun != 0:
        sensor["lun"] = lun
    vary = (index * 7) % 11  # a deterministic spread of readings
    if kind == "temp":
        sensor.update(name="Temp %04d" % seq, sensorType=1, eventReadingType=1, entityId=3,
                      entityInstance=1 + index % 8, units=1,
                      thresholds={"LOWER_CRITICAL": 0, "LOWER_NONCRITICAL": 5, "UPPER_NONCRITICAL": 80,
                                  "UPPER_CRITICAL": 90, "UPPER_NONRECOVERABLE": 100},
                      tolerance=2, accuracy=100, hysteresis=[2, 2], reading=30 + 2 * vary)
    elif kind == "volt":
        sensor.update(name="Volt %04d" % seq, sensorType=2, eventReadingType=1, entityId=7, units=4, m=8,
                      rExp=-3,
                      thresholds={"LOWER_CRITICAL": 125, "LOWER_NONCRITICAL": 131, "UPPER_NONCRITICAL": 169,
                                  "UPPER_CRITICAL": 175},
                      tolerance=1, reading=145 + vary)
    elif kind == "fan":
        sensor.update(name="Fan %04d" % seq, sensorType=4, eventReadingType=1, entityId=29,
                      entityInstance=1 + index % 8, units=18, m=60,
                      thresholds={"LOWER_CRITICAL": 10, "LOWER_NONCRITICAL": 20},
                      tolerance=1, reading=90 + vary)
    elif kind == "psu":
        sensor.update(name="PSU %04d" % seq, record="compact", sensorType=8, eventReadingType=0x6F,
                      entityId=10, entityInstance=1 + index % 4, states=["PRESENCE_DETECTED"])
    elif kind == "redundancy":
        sensor.update(name="FanRed %04d" % seq, record="compact", sensorType=4, eventReadingType=0x0B,
                      entityId=30, states=[0])
    else:
        sensor.update(name="VState %04d" % seq, record="compact", sensorType=2, eventReadingType=0x03,
                      entityId=7, states=[0])
    return sensor


def platform(count):
    return {
        "format": "kelvarn-platform",
        "version": 1,
        "description": "Generated benchmark server with %d sensors" % count,
        "bmc": {
            "oem": {"manufacturerId": 64999, "productId": 4000, "firmwareRevision": "1.00"},
            "fru": {"chassisType": 23, "chassisSerialNumber": "BENCH-%d" % count,
                    "productManufacturer": "Example Systems", "productName": "Bench Server"},
            "sensors": [make_sensor(i) for i in range(count)],
            # One old entry: a server's SEL is rarely empty, and the agent's poller
            # takes the newest entry it first sees as its starting point.
            "sel": [{"timestamp": 1700000000, "sensor": 1, "offset": 7, "deassertion": True}],
        },
        "smbios": {
            "chassis": {"manufacturer": "Example Systems", "serialNumber": "BENCH-%d" % count},
            "processors": [
                {"socketDesignation": "CPU%d" % n, "manufacturer": "Example", "version": "Bench CPU",
                 "clockMHz": 100, "maxSpeedMHz": 3600, "currentSpeedMHz": 2400, "coreCount": 16,
                 "threadCount": 32} for n in (1, 2)],
            "memoryArrays": [
                {"maxCapacityKB": 1073741824,
                 "devices": [{"deviceLocator": "DIMM_%s%d" % (bank, n), "bankLocator": "NODE %s" % bank,
                              "memoryType": "DDR4", "speedMHz": 2933, "sizeMB": 32768,
                              "manufacturer": "Example", "serialNumber": "%s%d" % (bank, n)}
                             for n in range(1, 9)]}
                for bank in ("A", "B")],
        },
    }


def main(argv):
    if len(argv) not in (2, 3) or not argv[1].isdigit() or not 1 <= int(argv[1]) <= 254 * 4 * 64:
        sys.stderr.write("usage: gen-platform.py SENSORS [OUTPUT]  (1 <= SENSORS <= 16256)\n")
        return 2
    text = json.dumps(platform(int(argv[1])), indent=1) + "\n"
    if len(argv) == 3:
        with open(argv[2], "w") as out:
            out.write(text)
    else:
        sys.stdout.write(text)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
