"""Servers the monitoring-system tests start: hmagentd on the demo server or on OpenIPMI's
ipmi_sim, and the monitoring systems' own programs. Every server listens on loopback
only and is stopped when the test's ExitStack closes (also when a check fails).

The programs come from the environment CTest sets: HM_AGENTD, HM_SUBAGENT_LIBRARY,
HM_KELVARN_SIM, HM_SOURCE_DIR.
"""
import os
import shutil
import signal
import socket
import subprocess
import tempfile
import time

SOURCE = os.environ.get("HM_SOURCE_DIR", os.path.join(os.path.dirname(__file__), "..", ".."))
PRIVATE = "1.3.6.1.4.1.64999"
TABLES = PRIVATE + ".2.10.3.5"
ENTITY_SENSOR_VALUE = "1.3.6.1.2.1.99.1.1.1.4"
ABSENT = 2147483647
# The three threshold-sensor tables: their column prefix, and what divides a reading into base units.
PROBE_TABLES = {"600.40": ("hmTemperatureProbe", 10), "400.30": ("hmVoltageProbe", 1000), "600.20": ("hmCoolingDevice", 1)}


def free_port(kind=socket.SOCK_DGRAM):
    with socket.socket(socket.AF_INET, kind) as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def free_low_port():
    """A free loopback TCP port below 32768, for servers that take no higher one (zabbix_server)."""
    import random
    for _ in range(200):
        port = random.randint(20000, 32767)
        with socket.socket() as s:
            try:
                s.bind(("127.0.0.1", port))
                return port
            except OSError:
                continue
    raise AssertionError("no free port below 32768")


def wait_until(check, seconds, what):
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        result = check()
        if result:
            return result
        time.sleep(0.2)
    raise AssertionError("timed out waiting for " + what)


class Process:
    """A server in its own process group, its output in a file; stop() ends it."""

    def __init__(self, argv, log, env=None, cwd=None):
        self.log = log
        self.out = open(log, "ab")
        self.proc = subprocess.Popen(argv, stdout=self.out, stderr=subprocess.STDOUT, env=env, cwd=cwd,
                                     start_new_session=True, stdin=subprocess.DEVNULL)

    def output(self):
        with open(self.log, errors="replace") as f:
            return f.read()

    def stop(self):
        if self.proc.poll() is None:
            os.killpg(self.proc.pid, signal.SIGTERM)
            try:
                self.proc.wait(10)
            except subprocess.TimeoutExpired:
                os.killpg(self.proc.pid, signal.SIGKILL)
                self.proc.wait()
        self.out.close()


def start(stack, argv, log, **kw):
    p = Process(argv, log, **kw)
    stack.callback(p.stop)
    return p


def temp_dir(stack, name):
    d = tempfile.mkdtemp(prefix=name + ".")
    os.chmod(d, 0o755)
    stack.callback(shutil.rmtree, d, True)
    return d


def write(path, text, mode=0o644):
    with open(path, "w") as f:
        f.write(text)
    os.chmod(path, mode)


def start_ipmi_sim(stack, d):
    """OpenIPMI's BMC simulator with the tests' BMC (tests/data/ipmi/bmc.emu); its LAN port."""
    port, console = free_port(), free_port(socket.SOCK_STREAM)
    with open(os.path.join(SOURCE, "tests/data/ipmi/lan.conf.in")) as f:
        conf = f.read().replace("@PORT@", str(port)).replace("@CONSOLE@", str(console))
    write(d + "/lan.conf", conf)
    os.makedirs(d + "/sim-state", exist_ok=True)
    start(stack, ["ipmi_sim", "-c", d + "/lan.conf", "-f", os.path.join(SOURCE, "tests/data/ipmi/bmc.emu"),
                  "-s", d + "/sim-state", "-n"], d + "/ipmi_sim.log")

    def greeted():
        # The simulator dies of SIGPIPE if a console closes before its greeting: read it.
        try:
            with socket.create_connection(("127.0.0.1", console), timeout=1) as s:
                return b"> " in s.recv(256)
        except OSError:
            return False

    wait_until(greeted, 20, "ipmi_sim's console")
    return port


def start_agent(stack, d, bmc=False):
    """hmagentd as master agent on a free loopback port, on the demo server (with a journal
    kelvarn-sim changes) or on ipmi_sim; returns its address."""
    if bmc:
        port = start_ipmi_sim(stack, d)
        write(d + "/bmc.pass", "test\n", 0o600)
        kelvarn = ("bmc=ipmi-lan\nipmi-host=127.0.0.1\nipmi-port=%d\nipmi-user=ipmiusr\n"
                   "ipmi-password-file=bmc.pass\nipmi-workarounds=opensesspriv\nipmi-sdr-cache=cache\n"
                   "smbios=demo\n" % port)
    else:
        kelvarn = "source=demo\njournal=%s/demo.journal\n" % d
    write(d + "/kelvarn.conf", kelvarn)
    write(d + "/agent.conf", "trapsenabled = 1\n")
    write(d + "/registry.reg",
          "Windows Registry Editor Version 5.00\r\n\r\n"
          "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Arveni\\FleetwatchSNMP\\Parameters]\r\n"
          '"ConfigFile"="%s/agent.conf"\r\n"LogFile"="%s/agent.log"\r\n' % (d, d))
    address = "127.0.0.1:%d" % free_port()
    write(d + "/hmagentd.conf",
          "agentLibrary %s\nagentRegistry %s/registry.reg\nagentRole master\nagentaddress udp:%s\n"
          "rocommunity public 127.0.0.1\n" % (os.environ["HM_SUBAGENT_LIBRARY"], d, address))
    env = dict(os.environ, KELVARN_CONFIG=d + "/kelvarn.conf", SNMP_PERSISTENT_DIR=d + "/snmp-state", MIBS="")
    os.makedirs(d + "/snmp-state", exist_ok=True)
    agent = start(stack, [os.environ["HM_AGENTD"], "-c", d + "/hmagentd.conf"], d + "/hmagentd.out", env=env)
    wait_until(lambda: "serving" in agent.output() or agent.proc.poll() is not None, 60, "hmagentd")
    assert agent.proc.poll() is None, agent.output()
    return address


def kelvarn_sim(d, *args):
    env = dict(os.environ, KELVARN_CONFIG=d + "/kelvarn.conf")
    subprocess.run([os.environ["HM_KELVARN_SIM"], *args], env=env, check=True, capture_output=True)


def walk(address, oid):
    """snmpbulkwalk -On: {numeric OID without the leading dot: value as text}."""
    out = subprocess.run(["snmpbulkwalk", "-v2c", "-c", "public", "-On", "-Oe", "-Oq", "-t", "5", address, oid],
                         check=True, capture_output=True, text=True, env=dict(os.environ, MIBS="")).stdout
    rows = {}
    for line in out.splitlines():
        oid_text, _, value = line.partition(" ")
        rows[oid_text.lstrip(".")] = value.strip().strip('"')
    return rows


def probe_rows(address):
    """The threshold sensors of the walk: [(table key, index, description, id, reading)]."""
    rows = []
    for key in PROBE_TABLES:
        table = walk(address, "%s.%s" % (TABLES, key))
        prefix = "%s.%s.1." % (TABLES, key)
        for oid, value in table.items():
            if oid.startswith(prefix + "1."):
                i = oid[len(prefix) + 2:]
                rows.append((key, i, table[prefix + "3." + i], table[prefix + "2." + i],
                             int(table[prefix + "6." + i])))
    return rows
