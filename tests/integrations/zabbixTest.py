"""Debian's Zabbix 6.0 server, its PostgreSQL back-end and its frontend's API, started on
loopback: the template integrations/zabbix/hmsubagent-template.yaml is imported through the
API, a host using it at hmagentd's address discovers the sensor tables, and the temperature
items receive the walk's readings."""
import contextlib
import glob
import json
import os
import shutil
import subprocess
import unittest
import urllib.request

import servers
from servers import TABLES

TEMPLATE = os.path.join(servers.SOURCE, "integrations/zabbix/hmsubagent-template.yaml")
PG_BIN = sorted(glob.glob("/usr/lib/postgresql/*/bin"))[-1]
SCHEMA = "/usr/share/zabbix-server-pgsql"


def as_user(user):
    """The prefix that runs a server as `user` when the test runs as root (PostgreSQL refuses root)."""
    if os.geteuid() != 0:
        return []
    return ["setpriv", "--reuid=" + user, "--regid=" + user, "--init-groups"]


def start_postgres(stack, d):
    """A PostgreSQL cluster listening on a socket in d/pg only; the database zabbix, its schema loaded."""
    data, sock = d + "/pg/data", d + "/pg"
    os.makedirs(data)
    if os.geteuid() == 0:
        shutil.chown(d + "/pg", "postgres", "postgres")
        shutil.chown(data, "postgres", "postgres")
    subprocess.run(as_user("postgres") + [PG_BIN + "/initdb", "-D", data, "-U", "zabbix", "--auth=trust", "-E",
                                          "UTF8", "--locale=C.UTF-8"], check=True, capture_output=True)
    pg = servers.start(stack, as_user("postgres") + [PG_BIN + "/postgres", "-D", data, "-k", sock, "-c",
                                                     "listen_addresses=", "-c", "fsync=off"], d + "/postgres.log")
    psql = ["psql", "-q", "-v", "ON_ERROR_STOP=1", "-h", sock, "-U", "zabbix"]
    servers.wait_until(lambda: subprocess.run(psql + ["-d", "postgres", "-c", "select 1"],
                                              capture_output=True).returncode == 0, 30, "postgres: " + pg.output())
    subprocess.run(psql + ["-d", "postgres", "-c", "create database zabbix"], check=True, capture_output=True)
    for part in ("schema", "images", "data"):
        with subprocess.Popen(["zcat", "%s/%s.sql.gz" % (SCHEMA, part)], stdout=subprocess.PIPE) as sql:
            subprocess.run(psql + ["-d", "zabbix"], stdin=sql.stdout, check=True, capture_output=True)
    return sock


def start_zabbix(stack, d, sock):
    """zabbix_server and the frontend (PHP's own web server on a copy of the frontend that
    reads its configuration from d); the API's address."""
    server_port = servers.free_low_port()
    servers.write(d + "/zabbix_server.conf", "\n".join([
        "LogType=console", "PidFile=%s/zabbix_server.pid" % d, "SocketDir=%s" % d,
        "DBHost=" + sock, "DBName=zabbix", "DBUser=zabbix", "ListenIP=127.0.0.1", "ListenPort=%d" % server_port,
        "CacheUpdateFrequency=1", "HousekeepingFrequency=0", "StartPollers=2", "StartDiscoverers=0",
        "StartHTTPPollers=0", "StartPingers=0", "AllowRoot=1", "Timeout=5", ""]))
    server = servers.start(stack, ["/usr/sbin/zabbix_server", "-f", "-c", d + "/zabbix_server.conf"],
                           d + "/zabbix_server.out")
    web = d + "/web"
    shutil.copytree("/usr/share/zabbix", web, symlinks=True)
    config = web + "/include/classes/core/CConfigFile.php"
    with open(config) as f:
        text = f.read().replace("'/etc/zabbix/zabbix.conf.php'", repr(d + "/zabbix.conf.php"))
    servers.write(config, text)
    servers.write(d + "/zabbix.conf.php", "<?php\n" + "".join("$DB['%s'] = %s;\n" % kv for kv in [
        ("TYPE", "'POSTGRESQL'"), ("SERVER", repr(sock)), ("PORT", "'0'"), ("DATABASE", "'zabbix'"),
        ("USER", "'zabbix'"), ("PASSWORD", "''"), ("SCHEMA", "''"), ("DOUBLE_IEEE754", "true")]) +
        "$ZBX_SERVER = '127.0.0.1';\n$ZBX_SERVER_PORT = '%d';\n$ZBX_SERVER_NAME = 'hmsubagent-test';\n"
        "$IMAGE_FORMAT_DEFAULT = IMAGE_FORMAT_PNG;\n" % server_port)
    web_port = servers.free_port(servers.socket.SOCK_STREAM)
    servers.start(stack, ["php", "-S", "127.0.0.1:%d" % web_port, "-t", web], d + "/php.log")
    api = Api("http://127.0.0.1:%d/api_jsonrpc.php" % web_port)
    servers.wait_until(api.reachable, 30, "the frontend's API")
    servers.wait_until(lambda: "server #0 started" in server.output() or server.proc.poll() is not None, 60,
                       "zabbix_server")
    assert server.proc.poll() is None, server.output()
    return api


class Api:
    def __init__(self, url):
        self.url, self.auth, self.id = url, None, 0

    def call(self, method, params):
        self.id += 1
        body = {"jsonrpc": "2.0", "method": method, "params": params, "id": self.id}
        if self.auth:
            body["auth"] = self.auth
        request = urllib.request.Request(self.url, json.dumps(body).encode(),
                                         {"Content-Type": "application/json-rpc"})
        with urllib.request.urlopen(request, timeout=60) as r:
            answer = json.load(r)
        if "error" in answer:
            raise AssertionError("%s: %s" % (method, answer["error"]))
        return answer["result"]

    def reachable(self):
        try:
            return self.call("apiinfo.version", {})
        except OSError:
            return None


class ZabbixTemplate(unittest.TestCase):
    def test_import_discover_collect(self):
        with contextlib.ExitStack() as stack:
            d = servers.temp_dir(stack, "hmzabbix")
            address = servers.start_agent(stack, d)
            api = start_zabbix(stack, d, start_postgres(stack, d))
            self.assertTrue(api.reachable().startswith("6.0."))
            api.auth = api.call("user.login", {"username": "Admin", "password": "zabbix"})
            with open(TEMPLATE) as f:
                source = f.read()
            create = {"createMissing": True, "updateExisting": True}
            self.assertTrue(api.call("configuration.import", {"format": "yaml", "source": source, "rules": {
                "groups": {"createMissing": True}, "templates": create, "items": create,
                "discoveryRules": create, "triggers": create, "valueMaps": create}}))
            template = api.call("template.get", {"filter": {"host": "hmSubagent SNMP"}})[0]["templateid"]
            host, port = address.split(":")
            api.call("host.create", {
                "host": "server1", "groups": [{"groupid": "2"}], "templates": [{"templateid": template}],
                "interfaces": [{"type": 2, "main": 1, "useip": 1, "ip": host, "dns": "", "port": port,
                                "details": {"version": 2, "community": "public", "bulk": 1}}],
                "macros": [{"macro": "{$HMSUBAGENT.INTERVAL}", "value": "5s"},
                           {"macro": "{$HMSUBAGENT.LLD.INTERVAL}", "value": "10s"}]})

            def items():
                found = api.call("item.get", {"host": "server1", "output": ["key_", "name", "lastvalue", "lastclock"],
                                              "search": {"key_": "hmsubagent.temperature.reading["}})
                return found if found and all(i["lastclock"] != "0" for i in found) else None

            collected = {i["key_"]: i for i in servers.wait_until(items, 240, "the discovered items' values")}
            # Every temperature row of the walk is discovered, named and read (tenths to degrees).
            walk = {row[1]: row for row in servers.probe_rows(address) if row[0] == "600.40"}
            self.assertEqual(len(collected), len(walk))
            for index, (_, _, description, _, reading) in walk.items():
                item = collected["hmsubagent.temperature.reading[%s]" % index]
                self.assertEqual(item["name"], "Temperature probe %s: reading" % description)
                if reading != servers.ABSENT:
                    self.assertAlmostEqual(float(item["lastvalue"]), reading / 10, places=3)
            for item in collected.values():  # what the test run shows of the collection
                print("zabbix: %s = %s" % (item["name"], item["lastvalue"]))
            cpu2 = collected["hmsubagent.temperature.reading[4]"]
            self.assertEqual((cpu2["name"], float(cpu2["lastvalue"])), ("Temperature probe CPU2 Temp: reading", 87))
            # The threshold triggers came from the published thresholds: CPU2 Temp (87 degrees)
            # is over its upper non-critical threshold (85) only.
            problems = servers.wait_until(lambda: api.call("trigger.get", {
                "host": "server1", "only_true": True, "filter": {"value": 1}, "output": ["description", "priority"]}),
                60, "the triggers' evaluation")
            names = {p["description"]: p["priority"] for p in problems}
            self.assertEqual(names.get("Temperature probe CPU2 Temp: at or beyond its upper non-critical threshold"),
                             "2")
            self.assertNotIn("Temperature probe CPU2 Temp: at or beyond its upper critical threshold", names)
            health = api.call("item.get", {"host": "server1", "filter": {"key_": "hmsubagent.health"},
                                           "output": ["lastvalue"]})[0]
            self.assertEqual(health["lastvalue"], servers.walk(address, TABLES + ".100.1.0")[TABLES + ".100.1.0"])


if __name__ == "__main__":
    unittest.main()
