#!/usr/bin/env python3
"""Writes hmsubagent-template.yaml, the Zabbix 6.0 template of hmSubagent, from the tables
below (one row per sensor table of the private MIB). Run it after changing a row:
    python3 integrations/zabbix/make-template.py > integrations/zabbix/hmsubagent-template.yaml
"""
import hashlib

TEMPLATE = "hmSubagent SNMP"
ROOT = "1.3.6.1.4.1.64999.2.10.3.5"
# Status column values (every table's Status column and the overall health).
STATUSES = [(1, "other"), (2, "unknown"), (3, "ok"), (4, "nonCritical"), (5, "critical"), (6, "nonRecoverable")]
SEVERITY = {4: "WARNING", 5: "HIGH", 6: "DISASTER"}

# Threshold-sensor tables: key, name, OID, reading units, multiplier, {threshold macro: column}.
PROBES = [
    ("temperature", "Temperature probe", ROOT + ".600.40", "°C", "0.1",
     {"UNR": 7, "UCR": 8, "UNC": 9, "LNR": 10, "LCR": 11, "LNC": 12}),
    ("voltage", "Voltage probe", ROOT + ".400.30", "V", "0.001",
     {"UNR": 7, "UCR": 8, "UNC": 9, "LNC": 10, "LCR": 11, "LNR": 12}),
    ("fan", "Fan", ROOT + ".600.20", "rpm", None,
     {"UNR": 7, "UCR": 8, "UNC": 9, "LNC": 10, "LCR": 11, "LNR": 12}),
]
# Tables with a status only: key, name, OID.
STATES = [
    ("powerunit", "Power unit", ROOT + ".400.10"),
    ("powersupply", "Power supply", ROOT + ".400.20"),
    ("discretevoltage", "Discrete voltage sensor", ROOT + ".400.40"),
    ("coolingunit", "Cooling unit", ROOT + ".600.10"),
    ("discretecooling", "Discrete cooling sensor", ROOT + ".600.30"),
    ("driveslot", "Drive slot", ROOT + ".700.10"),
]
# The notifications' subtrees (hmEvents): one trap item each.
TRAPS = [("20", "health"), ("30", "chassis"), ("40", "processor"), ("50", "power"), ("60", "memory"),
         ("70", "cooling"), ("80", "hot-plug slot"), ("90", "BIOS"), ("100", "drive slot")]
ABSENT = 2147483647


def uuid(*parts):
    """A fixed UUID (version 4 in form, as Zabbix asks) for each element, from its names."""
    h = hashlib.md5("/".join(("hmsubagent",) + parts).encode()).hexdigest()
    return h[:12] + "4" + h[13:16] + "89ab"[int(h[16], 16) % 4] + h[17:]


def q(text):
    return "'" + str(text).replace("'", "''") + "'"


def status_item(key, name, oid, indent):
    p = " " * indent
    out = [p + "- uuid: " + uuid("item", key),
           p + "  name: " + q(name),
           p + "  type: SNMP_AGENT",
           p + "  snmp_oid: " + q(oid),
           p + "  key: " + q(key),
           p + "  delay: '{$HMSUBAGENT.INTERVAL}'",
           p + "  history: 7d",
           p + "  valuemap:",
           p + "    name: 'hmSubagent status'"]
    return out


def status_triggers(key, what, indent):
    """One trigger per worse-than-ok status of the item `key`, its severity following the status."""
    p = " " * indent
    out = []
    for value, severity in SEVERITY.items():
        label = dict(STATUSES)[value]
        out += [p + "- uuid: " + uuid("status", key, label),
                p + "  expression: " + q("last(/%s/%s)=%d" % (TEMPLATE, key, value)),
                p + "  name: " + q("%s is %s" % (what, label)),
                p + "  priority: " + severity]
    return out


def discovery(key, name, oid, columns):
    spec = ",".join("{#%s},%s.1.%d" % (macro, oid, column) for macro, column in columns)
    return ["        - uuid: " + uuid("lld", key),
            "          name: " + q(name + "s"),
            "          type: SNMP_AGENT",
            "          snmp_oid: " + q("discovery[%s]" % spec),
            "          key: " + q("hmsubagent.%s.discovery" % key),
            "          delay: '{$HMSUBAGENT.LLD.INTERVAL}'",
            "          lifetime: 7d"]


def main():
    out = ["zabbix_export:", "  version: '6.0'", "  groups:",
           "    - uuid: 7df96b18c230490a9a0a9e2307226338", "      name: Templates", "  templates:",
           "    - uuid: " + uuid("template"), "      template: " + q(TEMPLATE), "      name: " + q(TEMPLATE),
           "      description: " + q("hmSubagent: the server's health, IPMI sensors and hardware events "
                                     "over SNMP (HM-SUBAGENT-MIB)."),
           "      groups:", "        - name: Templates", "      items:"]
    out += status_item("hmsubagent.health", "Server health", ROOT + ".100.1.0", 8)
    out += ["          triggers:"] + status_triggers("hmsubagent.health", "Server health", 12)
    for subtree, what in TRAPS:
        key = "snmptrap[\"%s\\.%s\\.\"]" % (ROOT.replace(".", "\\.") + "\\.1000", subtree)
        out += ["        - uuid: " + uuid("trap", subtree),
                "          name: " + q("Hardware events: %s" % what),
                "          type: SNMP_TRAP",
                "          key: " + q(key),
                "          delay: '0'",
                "          history: 30d",
                "          trends: '0'",
                "          value_type: LOG",
                "          triggers:",
                "            - uuid: " + uuid("traptrigger", subtree),
                "              expression: " + q("nodata(/%s/%s,1h)=0" % (TEMPLATE, key)),
                "              name: " + q("Hardware event: %s (last hour)" % what),
                "              priority: INFO",
                "              manual_close: 'YES'"]
    out.append("      discovery_rules:")
    for key, name, oid, units, multiplier, thresholds in PROBES:
        out += discovery(key, name, oid, [("NAME", 3), ("ID", 2)] + sorted(thresholds.items()))
        reading = "hmsubagent.%s.reading[{#SNMPINDEX}]" % key
        status = "hmsubagent.%s.status[{#SNMPINDEX}]" % key
        out += ["          item_prototypes:",
                "            - uuid: " + uuid("reading", key),
                "              name: " + q("%s {#NAME}: reading" % name),
                "              type: SNMP_AGENT",
                "              snmp_oid: " + q(oid + ".1.6.{#SNMPINDEX}"),
                "              key: " + q(reading),
                "              delay: '{$HMSUBAGENT.INTERVAL}'",
                "              history: 7d",
                "              value_type: FLOAT",
                "              units: " + q(units),
                "              description: " + q("Absent readings (%d) are discarded." % ABSENT),
                "              preprocessing:",
                "                - type: IN_RANGE",
                "                  parameters:",
                "                    - '-2147483648'",
                "                    - '2147483646'",
                "                  error_handler: DISCARD_VALUE"]
        if multiplier:
            out += ["                - type: MULTIPLIER", "                  parameters:",
                    "                    - " + q(multiplier)]
        out += ["              tags:", "                - tag: sensor", "                  value: '{#NAME}'"]
        out += status_item(status, "%s {#NAME}: status" % name, oid + ".1.5.{#SNMPINDEX}", 12)
        out += ["          trigger_prototypes:"]
        scale = "*%s" % multiplier if multiplier else ""
        for macro, label, op, severity in [("UNR", "upper non-recoverable", ">=", "DISASTER"),
                                           ("UCR", "upper critical", ">=", "HIGH"),
                                           ("UNC", "upper non-critical", ">=", "WARNING"),
                                           ("LNC", "lower non-critical", "<=", "WARNING"),
                                           ("LCR", "lower critical", "<=", "HIGH"),
                                           ("LNR", "lower non-recoverable", "<=", "DISASTER")]:
            expr = "{#%s}<%d and last(/%s/%s)%s{#%s}%s" % (macro, ABSENT, TEMPLATE, reading, op, macro, scale)
            out += ["            - uuid: " + uuid("threshold", key, macro),
                    "              expression: " + q(expr),
                    "              name: " + q("%s {#NAME}: at or beyond its %s threshold" % (name, label)),
                    "              priority: " + severity]
        out += status_triggers(status, "%s {#NAME}" % name, 12)
    for key, name, oid in STATES:
        out += discovery(key, name, oid, [("NAME", 3), ("ID", 2)])
        status = "hmsubagent.%s.status[{#SNMPINDEX}]" % key
        out += ["          item_prototypes:"]
        out += status_item(status, "%s {#NAME}: status" % name, oid + ".1.5.{#SNMPINDEX}", 12)
        out += ["          trigger_prototypes:"]
        out += status_triggers(status, "%s {#NAME}" % name, 12)
    out += ["      macros:",
            "        - macro: '{$HMSUBAGENT.INTERVAL}'", "          value: 1m",
            "          description: 'How often readings and statuses are polled.'",
            "        - macro: '{$HMSUBAGENT.LLD.INTERVAL}'", "          value: 1h",
            "          description: 'How often the sensor tables are discovered again.'",
            "      valuemaps:",
            "        - uuid: " + uuid("valuemap"),
            "          name: 'hmSubagent status'",
            "          mappings:"]
    for value, label in STATUSES:
        out += ["            - value: '%d'" % value, "              newvalue: " + label]
    print("\n".join(out))


main()
