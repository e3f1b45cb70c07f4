"""A counting UDP relay between IPMI LAN clients and a BMC, for bench/run.

The relay listens on a free port of 127.0.0.1 and forwards every datagram of a
client to the BMC from a socket of its own for that client, and the BMC's
answers back to that client. It counts the datagrams each way and sorts the
client's datagrams by what the RMCP and session headers say:

- "setup": session set-up and discovery, which carry no command of the client:
  an RMCP/ASF presence ping; an IPMI 1.5 message outside a session (session ID 0:
  Get Channel Authentication Capabilities, Get Session Challenge, Activate
  Session); an RMCP+ Open Session Request, RAKP Message 1 or RAKP Message 3
  (payload types 0x10, 0x12, 0x14), or an RMCP+ IPMI message with session ID 0.
- "command": an IPMI message inside a session (IPMI 1.5 with a session ID, or
  RMCP+ payload type 0x00 with a session ID). The payload is encrypted, so the
  commands themselves cannot be told apart: Set Session Privilege Level and
  Close Session, one each per session, count here, and so would a
  retransmission.
- "other": anything else (not RMCP class IPMI or ASF, or cut short).

A BMC is a slow computer that handles one request at a time: with `delay`
seconds, every answer of the BMC is held back until `delay` after the later of
its request's arrival and the previous answer's release.

The relay runs in a thread of the calling program; counts() is a consistent
snapshot, taken under the relay's lock.
"""
import selectors
import socket
import threading
import time

RMCP_CLASS_ASF = 0x06
RMCP_CLASS_IPMI = 0x07
AUTH_RMCP_PLUS = 0x06
SETUP_PAYLOADS = {0x10, 0x12, 0x14}  # Open Session Request, RAKP 1, RAKP 3


def classify(datagram):
    """'setup', 'command' or 'other' for one client-to-BMC datagram."""
    d = datagram
    if len(d) < 5 or d[0] != 0x06:
        return "other"
    if d[3] & 0x1F == RMCP_CLASS_ASF:
        return "setup"
    if d[3] & 0x1F != RMCP_CLASS_IPMI:
        return "other"
    if d[4] == AUTH_RMCP_PLUS:
        if len(d) < 6:
            return "other"
        payload = d[5] & 0x3F
        at = 6 + (6 if payload == 0x02 else 0)  # OEM explicit: IANA and payload ID first
        if len(d) < at + 4:
            return "other"
        session = int.from_bytes(d[at:at + 4], "little")
        if payload in SETUP_PAYLOADS or (payload == 0x00 and session == 0):
            return "setup"
        return "command" if payload == 0x00 else "other"
    # IPMI 1.5: auth type, sequence (4 bytes), session ID (4 bytes).
    if len(d) < 13:
        return "other"
    return "setup" if int.from_bytes(d[9:13], "little") == 0 else "command"


class IpmiRelay:
    def __init__(self, bmc_port, bmc_host="127.0.0.1", delay=0.0):
        self.bmc = (bmc_host, bmc_port)
        self.delay = delay
        self.busy_until = 0.0  # when the simulated BMC is done with the requests so far
        self.held = []  # (release time, answer, client), in release order
        self.front = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.front.bind(("127.0.0.1", 0))
        self.port = self.front.getsockname()[1]
        self.lock = threading.Lock()
        self.totals = {"setup": 0, "command": 0, "other": 0, "answers": 0}
        self.last = 0.0  # monotonic time of the last datagram either way
        self.last_answer = 0.0
        self.clients = {}  # client address -> its socket towards the BMC
        self.selector = selectors.DefaultSelector()
        self.selector.register(self.front, selectors.EVENT_READ, None)
        self.stopping = False
        self.thread = threading.Thread(target=self.run, daemon=True)
        self.thread.start()

    def counts(self):
        with self.lock:
            return dict(self.totals)

    def last_answer_at(self):
        """Monotonic time of the BMC's last answer (0 before the first)."""
        with self.lock:
            return self.last_answer

    def quiet_for(self):
        """Seconds since the last datagram either way (inf before the first)."""
        with self.lock:
            return time.monotonic() - self.last if self.last else float("inf")

    def run(self):
        while not self.stopping:
            now = time.monotonic()
            while self.held and self.held[0][0] <= now:
                _, data, client = self.held.pop(0)
                try:
                    self.front.sendto(data, client)
                except OSError:
                    pass
            wait = min(0.1, self.held[0][0] - now) if self.held else 0.1
            for key, _ in self.selector.select(max(wait, 0.0)):
                sock, client = key.fileobj, key.data
                try:
                    data, sender = sock.recvfrom(65536)
                except OSError:
                    continue
                now = time.monotonic()
                if client is None:
                    back = self.clients.get(sender)
                    if back is None:
                        back = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
                        back.bind(("127.0.0.1", 0))
                        back.connect(self.bmc)
                        self.clients[sender] = back
                        self.selector.register(back, selectors.EVENT_READ, sender)
                    with self.lock:
                        self.totals[classify(data)] += 1
                        self.last = now
                    self.busy_until = max(self.busy_until, now) + self.delay
                    try:
                        back.send(data)
                    except OSError:
                        pass  # the BMC is gone: the client times out as it would
                else:
                    with self.lock:
                        self.totals["answers"] += 1
                        self.last = self.last_answer = now
                    if self.delay > 0:
                        self.held.append((max(self.busy_until, now), data, client))
                        continue
                    try:
                        self.front.sendto(data, client)
                    except OSError:
                        pass

    def stop(self):
        self.stopping = True
        self.thread.join()
        for back in self.clients.values():
            back.close()
        self.front.close()
        self.selector.close()
