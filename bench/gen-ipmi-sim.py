#!/usr/bin/python3
"""Writes a command file (.emu) for OpenIPMI's BMC simulator ipmi_sim with N sensors.

Usage: bench/gen-ipmi-sim.py N OUTPUT.emu [PER]     (1 <= N <= 4 x PER, PER 250 unless given)

The BMC (0x20) holds the first 250 sensors on its LUN 0; beyond 250, satellite
management controllers on the IPMB (0x22, 0x24, 0x26) hold 250 more each, on
their LUN 0, which a client reads by bridging through the BMC (Send Message:
ipmi-sensors and ipmimonitoring with --bridge-sensors; ipmitool bridges on its
own). Every sensor has its record in the BMC's SDR, record IDs 1..N, with the
owner that holds it and sensor numbers 1..250 on each owner. The sensors come in
the same mix as the simulated servers of gen-platform.py: of every 20 sensors,
8 temperature, 5 voltage and 4 fan threshold sensors (full records with
readable thresholds, readings in their normal range) and 3 discrete sensors as
compact records (a power supply's status, a fan redundancy sensor and a
discrete voltage state). The records are those of the lab configuration of the
end-to-end tests (tests/data/ipmi/bmc.emu) with their record ID, owner, sensor
number and name changed. Also one SEL entry and no FRU data. A server of up to
250 sensors is the BMC alone, as it always was. PER, when given, puts that many
sensors on each controller instead of 250 (a small server that still takes the
bridged path, for a quick run).
"""
import sys

# Full threshold record of the temperature sensor "CPU Temp" of the lab
# configuration: record ID 0-1, owner 5, LUN 6, sensor number 7, sensor type
# 12, thresholds 36-41 (UNR, UC, UNC, LNR, LC, LNC), ID string from 47.
TEMPERATURE = [
    0x01, 0x00, 0x51, 0x01, 0x00, 0x20, 0x00, 0x00, 0x03, 0x01, 0x7f, 0x68, 0x01, 0x01,
    0x85, 0x72, 0x85, 0x72, 0x1b, 0x1b, 0x00, 0x01, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00,
    0x00, 0x00, 0x00, 0x00, 0xff, 0x00, 0x00, 0x5a, 0x50, 0x00, 0x05, 0x0a, 0x02, 0x02, 0x00, 0x00, 0x00]
# "12V": volts, y = 6x * 10^-2.
VOLTAGE = [
    0x02, 0x00, 0x51, 0x01, 0x00, 0x20, 0x00, 0x00, 0x07, 0x01, 0x7f, 0x68, 0x02, 0x01,
    0x85, 0x72, 0x85, 0x72, 0x1b, 0x1b, 0x00, 0x04, 0x00, 0x00, 0x06, 0x00, 0x00, 0x00, 0x00, 0xe0,
    0x00, 0x00, 0x00, 0x00, 0xff, 0x00, 0x00, 0xd7, 0xd2, 0x00, 0xb9, 0xbe, 0x02, 0x02, 0x00, 0x00, 0x00]
# "FAN1": RPM, y = 50x, lower thresholds only.
FAN = [
    0x03, 0x00, 0x51, 0x01, 0x00, 0x20, 0x00, 0x00, 0x1d, 0x01, 0x7f, 0x68, 0x04, 0x01,
    0x05, 0x70, 0x05, 0x00, 0x03, 0x03, 0x00, 0x12, 0x00, 0x00, 0x32, 0x00, 0x00, 0x00, 0x00, 0x00,
    0x00, 0x00, 0x00, 0x00, 0xff, 0x00, 0x00, 0x00, 0x00, 0x00, 0x14, 0x1e, 0x02, 0x02, 0x00, 0x00, 0x00]
# Compact records: sensor type 12, event/reading type 13, ID string from 31.
SUPPLY = [
    0x04, 0x00, 0x51, 0x02, 0x00, 0x20, 0x00, 0x00, 0x0a, 0x01, 0x7f, 0x40, 0x08, 0x6f,
    0x0f, 0x00, 0x0f, 0x00, 0x0f, 0x00, 0xc0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00]
REDUNDANCY = [
    0x05, 0x00, 0x51, 0x02, 0x00, 0x20, 0x00, 0x00, 0x1d, 0x01, 0x7f, 0x40, 0x04, 0x0b,
    0xff, 0x00, 0xff, 0x00, 0xff, 0x00, 0xc0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00]
# Voltage, generic "limit not exceeded / exceeded" states (event/reading type 0x05).
VOLTAGE_STATE = [
    0x06, 0x00, 0x51, 0x02, 0x00, 0x20, 0x00, 0x00, 0x14, 0x01, 0x7f, 0x40, 0x02, 0x05,
    0x03, 0x00, 0x03, 0x00, 0x03, 0x00, 0xc0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00]

# The BMC first, then the satellite controllers, 250 sensors each.
CONTROLLERS = (0x20, 0x22, 0x24, 0x26)
PER_CONTROLLER = 250

# Position in each group of 20 -> (record template, name, ipmi_sim lines after sensor_add).
KINDS = (
    [(TEMPERATURE, "Temp", ["sensor_set_threshold {mc} 0 {s} settable 011011 0 90 80 0 5 10",
                            "sensor_set_value {mc} 0 {s} {v} 0"])] * 8 +
    [(VOLTAGE, "Volt", ["sensor_set_threshold {mc} 0 {s} settable 011011 0 215 210 0 185 190",
                        "sensor_set_value {mc} 0 {s} 200 0"])] * 5 +
    [(FAN, "Fan", ["sensor_set_threshold {mc} 0 {s} settable 000011 0 0 0 0 20 30",
                   "sensor_set_value {mc} 0 {s} {f} 0"])] * 4 +
    [(SUPPLY, "PSU", ["sensor_set_bit {mc} 0 {s} 0 1 0"]),
     (REDUNDANCY, "Fan Redund", ["sensor_set_bit {mc} 0 {s} 0 1 0"]),
     (VOLTAGE_STATE, "VState", [])])


def place(n, per=PER_CONTROLLER):
    """(owner's IPMB address, sensor number) of sensor n (1-based)."""
    return CONTROLLERS[(n - 1) // per], (n - 1) % per + 1


def record(template, record_id, owner, number, name):
    r = list(template)
    r[0], r[1] = record_id & 0xFF, record_id >> 8
    r[5] = owner
    r[7] = number
    text = name.encode("ascii")[:16]
    r += [0xC0 | len(text)] + list(text)
    r[4] = len(r) - 5
    return r


def emu(count, per=PER_CONTROLLER):
    owners = sorted({place(n, per)[0] for n in range(1, count + 1)})
    lines = ["# ipmi_sim command file written by bench/gen-ipmi-sim.py: %d sensors." % count,
             "mc_setbmc 0x20",
             "mc_add 0x20 0 no-device-sdrs 0x23 9 8 0x9f 0x1291 0xf02 persist_sdr",
             "sel_enable 0x20 1000 0x0a"]
    # A satellite: a sensor device on the IPMB, its sensors described by the BMC's SDR.
    lines += ["mc_add 0x%02x 0 no-device-sdrs 0x23 9 8 0x01 0x1291 0xf03" % owner for owner in owners[1:]]
    sensors = []
    for n in range(1, count + 1):
        template, stem, settings = KINDS[(n - 1) % 20]
        owner, number = place(n, per)
        r = record(template, n, owner, number, "%s %03d" % (stem, n))
        lines.append("main_sdr_add 0x20 " + " ".join("0x%02x" % b for b in r))
        sensors.append((n, owner, number, r[12], r[13], settings))
    for n, owner, number, sensor_type, reading_type, settings in sensors:
        lines.append("sensor_add 0x%02x 0 %d 0x%02x 0x%02x" % (owner, number, sensor_type, reading_type))
        for s in settings:
            lines.append(s.format(mc="0x%02x" % owner, s=number, v=30 + n % 30, f=80 + n % 40))
    # One old entry: sensor 2 (a voltage), lower non-critical going low, asserted.
    lines.append("sel_add 0x20 0x02 0xb8 0xc3 0x1f 0x69 0x20 0x00 0x04 0x02 0x02 0x01 0x50 0xb2 0xbe")
    lines += ["mc_enable 0x%02x" % owner for owner in owners]
    return "\n".join(lines) + "\n"


def expected(count):
    """How many sensors of each table kind a server of `count` sensors holds."""
    kinds = {"temperature": 0, "voltage": 0, "fan": 0, "discrete": 0}
    for n in range(1, count + 1):
        k = (n - 1) % 20
        kinds["temperature" if k < 8 else "voltage" if k < 13 else "fan" if k < 17 else "discrete"] += 1
    return kinds


def main():
    args = sys.argv[1:]
    if len(args) not in (2, 3) or not all(a.isdigit() for a in args[:1] + args[2:]):
        sys.exit(__doc__)
    per = int(args[2]) if len(args) == 3 else PER_CONTROLLER
    if not 1 <= per <= PER_CONTROLLER or not 1 <= int(args[0]) <= per * len(CONTROLLERS):
        sys.exit(__doc__)
    with open(args[1], "w") as f:
        f.write(emu(int(args[0]), per))
    return 0


if __name__ == "__main__":
    sys.exit(main())
