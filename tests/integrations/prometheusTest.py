"""Prometheus' snmp_exporter (Debian's prometheus-snmp-exporter) scrapes hmagentd with the
"hmsubagent" module of integrations/prometheus/snmp.yml; promtool checks rules.yml and
evaluates it over the scraped series."""
import contextlib
import os
import re
import subprocess
import unittest
import urllib.request

import servers
from servers import ABSENT, ENTITY_SENSOR_VALUE, PROBE_TABLES, TABLES

MODULE = os.path.join(servers.SOURCE, "integrations/prometheus")
SERIES = re.compile(r'^([A-Za-z_:][A-Za-z0-9_:]*)(?:\{(.*)\})? (\S+)$')
LABEL = re.compile(r'([A-Za-z_][A-Za-z0-9_]*)="((?:[^"\\]|\\.)*)"')


def parse(text):
    """The exposition text's samples: [(name, {label: value}, value)]."""
    samples = []
    for line in text.splitlines():
        m = SERIES.match(line)
        if m and not line.startswith("#"):
            samples.append((m.group(1), dict(LABEL.findall(m.group(2) or "")), float(m.group(3))))
    return samples


def find(samples, name, **labels):
    found = [v for n, l, v in samples if n == name and all(l.get(k) == w for k, w in labels.items())]
    assert len(found) == 1, "%s%s: %d samples" % (name, labels, len(found))
    return found[0]


class SnmpExporter(unittest.TestCase):
    def scrape(self, stack, d, address):
        port = servers.free_port(servers.socket.SOCK_STREAM)
        exporter = servers.start(stack, ["prometheus-snmp-exporter", "--config.file=" + MODULE + "/snmp.yml",
                                         "--web.listen-address=127.0.0.1:%d" % port], d + "/exporter.log")
        url = "http://127.0.0.1:%d/snmp?module=hmsubagent&target=%s" % (port, address)

        def fetch():
            try:
                with urllib.request.urlopen(url, timeout=30) as r:
                    return r.read().decode()
            except OSError:
                return None

        text = servers.wait_until(fetch, 30, "snmp_exporter: " + exporter.output())
        with open(d + "/scrape.txt", "w") as f:
            f.write(text)
        return parse(text)

    def check_against_walk(self, address, samples):
        """Every threshold sensor and entity sensor of the walk has its metric, with the walk's value."""
        rows = servers.probe_rows(address)
        self.assertGreaterEqual(len(rows), 3)
        for key, index, description, sensor_id, reading in rows:
            prefix = PROBE_TABLES[key][0]
            labels = {prefix + "Index": index, prefix + "Description": description, prefix + "Id": sensor_id}
            self.assertEqual(find(samples, prefix + "Reading", **labels), reading, description)
        entity = servers.walk(address, ENTITY_SENSOR_VALUE)
        self.assertGreaterEqual(len(entity), 3)
        for oid, value in entity.items():
            index = oid.rsplit(".", 1)[1]
            self.assertEqual(find(samples, "entPhySensorValue", entPhysicalIndex=index), int(value), oid)
        health = servers.walk(address, TABLES + ".100.1")
        self.assertEqual(find(samples, "hmSystemHealthStatus"), int(list(health.values())[0]))

    def test_demo_server_and_rules(self):
        with contextlib.ExitStack() as stack:
            d = servers.temp_dir(stack, "hmprometheus")
            address = servers.start_agent(stack, d)
            # CPU2 Temp from 87 to 93 degrees: over its upper critical threshold (90).
            servers.kelvarn_sim(d, "set-reading", "CPU2 Temp", "93")
            reading, entity = TABLES + ".600.40.1.6.4", ENTITY_SENSOR_VALUE + ".1032000004"
            servers.wait_until(lambda: servers.walk(address, reading).get(reading) == "930" and servers.walk(
                address, entity).get(entity) == "93", 60, "the new reading in both MIBs")
            samples = self.scrape(stack, d, address)
            self.check_against_walk(address, samples)
            cpu2 = {"hmTemperatureProbeDescription": "CPU2 Temp"}
            self.assertEqual(find(samples, "hmTemperatureProbeUpperCriticalThreshold", **cpu2), 900)
            self.assertEqual(find(samples, "hmTemperatureProbeStatus", **cpu2), 5)
            self.assertEqual(find(samples, "hmVoltageProbeReading", hmVoltageProbeDescription="P3V3"), 3294)
            self.assertEqual(find(samples, "hmProcessorMaxSpeed", hmProcessorIndex="1"), 3166)
            self.rules(d, samples)

    def test_bmc_simulator(self):
        with contextlib.ExitStack() as stack:
            d = servers.temp_dir(stack, "hmprometheus")
            address = servers.start_agent(stack, d, bmc=True)
            self.check_against_walk(address, self.scrape(stack, d, address))

    def rules(self, d, samples):
        """promtool checks rules.yml, then evaluates it over ten minutes of the scraped values."""
        subprocess.run(["promtool", "check", "rules", MODULE + "/rules.yml"], check=True, capture_output=True)
        server = {"instance": "server1", "job": "hmsubagent"}

        def series(name, labels):
            return "'%s{%s}'" % (name, ",".join('%s="%s"' % kv for kv in sorted(dict(labels, **server).items())))

        lines = ["rule_files: [%s/rules.yml]" % MODULE, "evaluation_interval: 1m", "tests:",
                 "  - interval: 1m", "    input_series:"]
        for name, labels, value in samples:
            if not name.startswith("snmp_"):
                lines += ["      - series: " + series(name, labels), "        values: '%rx10'" % value]
        cpu2 = {"hmTemperatureProbeDescription": "CPU2 Temp", "hmTemperatureProbeId": "4",
                "hmTemperatureProbeIndex": "4"}
        lines += ["    alert_rule_test:", "      - eval_time: 5m", "        alertname: HmSensorCriticalThreshold",
                  "        exp_alerts:",
                  "          - exp_labels: {%s}" % ", ".join("%s: '%s'" % kv for kv in sorted(
                      dict(cpu2, severity="critical", **server).items())),
                  "            exp_annotations:",
                  "              summary: 'server1: a sensor is at or beyond its critical threshold'",
                  "    promql_expr_test:"]
        expected = [("hmsubagent_temperature_celsius", cpu2, "93"),
                    ("hmsubagent_entity_sensor_celsius",
                     {"entPhysicalIndex": "1032000004", "entPhysicalName": "CPU2 Temp"}, "93"),
                    ("hmsubagent_entity_sensor_volts", {"entPhysicalIndex": "1032000018", "entPhysicalName": "P3V3"},
                     "3.294"),
                    ("hmsubagent_processor_info",
                     {"hmProcessorIndex": "1", "hmProcessorManufacturer": "Intel",
                      "hmProcessorSocketDesignation": "CPU1",
                      "hmProcessorVersion": "Intel(R) Xeon(R) CPU X5460 @ 3.16GHz",
                      "hmProcessorSerialNumber": "Not Specified"}, "1")]
        for name, labels, value in expected:
            lines += ["      - expr: %s{%s}" % (name, ",".join("%s='%s'" % kv for kv in labels.items())),
                      "        eval_time: 1m", "        exp_samples:", "          - value: " + value,
                      "            labels: " + series(name, labels)]
        with open(d + "/rules_test.yml", "w") as f:
            f.write("\n".join(lines) + "\n")
        run = subprocess.run(["promtool", "test", "rules", d + "/rules_test.yml"], capture_output=True, text=True)
        self.assertEqual(run.returncode, 0, run.stdout + run.stderr)


if __name__ == "__main__":
    unittest.main()
