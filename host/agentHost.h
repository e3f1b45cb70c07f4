// Hosts one extension agent in a net-snmp agent: one handler registration per
// region the agent hands out, requests translated into extension-agent queries,
// and the agent's traps collected when its trap event fires and sent as
// notifications.
#ifndef HM_HOST_AGENTHOST_H
#define HM_HOST_AGENTHOST_H

#include <memory>
#include <string>
#include <vector>

#include "host/extensionAgent.h"
#include "host/netSnmp.h"

namespace hmhost {

// The net-snmp error status (or, for a GET, the exception) that answers an
// extension agent's error status. `setRequest` is true for the SET phases,
// `instanceExists` tells a GET's noSuchInstance from noSuchObject. net-snmp turns
// the SNMPv2 statuses back into SNMPv1 ones for SNMPv1 requests.
int netSnmpStatus(int32_t agentStatus, bool setRequest, bool instanceExists);

// The extension-agent request type for a net-snmp handler mode; false for the
// modes the extension-agent interface has no phase for.
bool requestTypeFor(int mode, uint32_t& requestType);

// Binding conversion to and from net-snmp variables. `toVariable` returns false
// for a value net-snmp cannot carry.
Value valueOf(const netsnmp_variable_list& variable);
bool storeValue(netsnmp_variable_list* variable, const Value& value);
Arcs arcsOf(const oid* name, size_t length);
std::vector<oid> oidsOf(const Arcs& arcs);

// The SNMPv2 notification for an SNMPv1 trap (RFC 3584 form): sysUpTime.0 (the
// trap's time stamp), snmpTrapOID.0 (enterprise.0.specific for an
// enterprise-specific trap), then the trap's bindings. net-snmp turns it back
// into the same SNMPv1 trap for SNMPv1 sinks. Free with snmp_free_varbind.
netsnmp_variable_list* notificationFor(const Trap& trap);

class AgentHost {
public:
    AgentHost(NetSnmp& snmp, ExtensionAgent& agent) : m_snmp(snmp), m_agent(agent) {}
    ~AgentHost();
    AgentHost(const AgentHost&) = delete;
    AgentHost& operator=(const AgentHost&) = delete;

    // Starts the agent, registers its regions and waits on its trap event.
    bool start(const std::string& name, uint32_t uptimeReference, std::string& error);
    // Unregisters, stops waiting and closes the agent.
    void stop();

    const std::vector<Arcs>& regions() const { return m_regions; }

    // Serves the requests net-snmp hands to the registration of `region`.
    void serve(const Arcs& region, netsnmp_agent_request_info* reqinfo, netsnmp_request_info* requests,
               long version);
    // Called when the trap event's descriptor is readable.
    void collectTraps();

    size_t trapsSent() const { return m_trapsSent; }

    // Traps sent per wake-up before the loop serves its sockets again.
    static constexpr int kTrapsPerWake = 256;

private:
    struct Region {
        AgentHost* host;
        Arcs root;
        netsnmp_handler_registration* registration;
    };

    static int handle(netsnmp_mib_handler* handler, netsnmp_handler_registration* reginfo,
                      netsnmp_agent_request_info* reqinfo, netsnmp_request_info* requests);
    static void trapEventReadable(int fd, void* data);

    void serveGet(const Arcs& region, netsnmp_agent_request_info* reqinfo, netsnmp_request_info* request,
                  long version);
    void serveGetNext(const Arcs& region, netsnmp_agent_request_info* reqinfo, netsnmp_request_info* request);
    void serveSet(uint32_t requestType, netsnmp_agent_request_info* reqinfo, netsnmp_request_info* request);
    bool instanceExists(const Arcs& region, const Arcs& name);

    NetSnmp& m_snmp;
    ExtensionAgent& m_agent;
    std::vector<Arcs> m_regions;
    std::vector<std::unique_ptr<Region>> m_registered;
    int m_trapFd = -1;
    bool m_started = false;
    size_t m_trapsSent = 0;
};

} // namespace hmhost

#endif
