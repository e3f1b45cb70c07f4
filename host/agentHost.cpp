// Requests and traps between net-snmp and the extension agent.
#include "host/agentHost.h"

#include <algorithm>
#include <cstring>

namespace hmhost {

namespace {

const oid kSysUpTime[] = {1, 3, 6, 1, 2, 1, 1, 3, 0};
const oid kSnmpTrapOid[] = {1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0};
const oid kSnmpTraps[] = {1, 3, 6, 1, 6, 3, 1, 1, 5};

constexpr int32_t kEnterpriseSpecific = 6;

// Extension-agent statuses that have an SNMPv2 counterpart of their own.
struct StatusRule {
    int32_t agent;
    int get; // GET and GETNEXT
    int set; // SET phases
};
const StatusRule kStatusRules[] = {
    {kNoError, SNMP_ERR_NOERROR, SNMP_ERR_NOERROR},
    {kTooBig, SNMP_ERR_TOOBIG, SNMP_ERR_TOOBIG},
    {kNoSuchName, SNMP_NOSUCHOBJECT, SNMP_ERR_NOCREATION},
    {kBadValue, SNMP_ERR_BADVALUE, SNMP_ERR_WRONGVALUE},
    {kReadOnly, SNMP_ERR_NOTWRITABLE, SNMP_ERR_NOTWRITABLE},
    {kGenErr, SNMP_ERR_GENERR, SNMP_ERR_GENERR},
};

struct ModeRule {
    int mode;
    uint32_t requestType;
};
const ModeRule kModeRules[] = {
    {MODE_GET, kGet},
    {MODE_GETNEXT, kGetNext},
    {MODE_SET_RESERVE1, kSetTest},
    {MODE_SET_COMMIT, kSetCommit},
    {MODE_SET_UNDO, kSetUndo},
    {MODE_SET_FREE, kSetCleanup},
};

bool startsWith(const Arcs& name, const Arcs& prefix) {
    return name.size() >= prefix.size() && std::equal(prefix.begin(), prefix.end(), name.begin());
}

} // namespace

int netSnmpStatus(int32_t agentStatus, bool setRequest, bool instanceExists) {
    for (const StatusRule& rule : kStatusRules) {
        if (rule.agent != agentStatus)
            continue;
        if (rule.agent == kNoSuchName && !setRequest)
            return instanceExists ? SNMP_NOSUCHINSTANCE : SNMP_NOSUCHOBJECT;
        return setRequest ? rule.set : rule.get;
    }
    // The SNMPv2 statuses keep their numbers; anything else is a general error.
    if (agentStatus > kGenErr && agentStatus <= SNMP_ERR_INCONSISTENTNAME)
        return agentStatus;
    return SNMP_ERR_GENERR;
}

bool requestTypeFor(int mode, uint32_t& requestType) {
    for (const ModeRule& rule : kModeRules) {
        if (rule.mode == mode) {
            requestType = rule.requestType;
            return true;
        }
    }
    return false;
}

Arcs arcsOf(const oid* name, size_t length) {
    Arcs arcs;
    arcs.reserve(length);
    for (size_t n = 0; n < length; ++n)
        arcs.push_back(static_cast<uint32_t>(name[n]));
    return arcs;
}

std::vector<oid> oidsOf(const Arcs& arcs) {
    return std::vector<oid>(arcs.begin(), arcs.end());
}

Value valueOf(const netsnmp_variable_list& variable) {
    Value value;
    switch (variable.type) {
    case ASN_INTEGER:
        value.type = ValueType::Integer;
        value.number = *variable.val.integer;
        break;
    case ASN_COUNTER:
    case ASN_GAUGE:
    case ASN_TIMETICKS:
    case ASN_UINTEGER:
        value.type = static_cast<ValueType>(variable.type);
        value.number = static_cast<uint32_t>(*variable.val.integer);
        break;
    case ASN_COUNTER64:
        value.type = ValueType::Counter64;
        value.counter64 = (static_cast<uint64_t>(variable.val.counter64->high) << 32) |
                          (variable.val.counter64->low & 0xFFFFFFFFu);
        break;
    case ASN_OCTET_STR:
    case ASN_BIT_STR:
    case ASN_IPADDRESS:
    case ASN_OPAQUE:
        value.type = static_cast<ValueType>(variable.type);
        if (variable.val.string != nullptr)
            value.bytes.assign(variable.val.string, variable.val.string + variable.val_len);
        break;
    case ASN_OBJECT_ID:
        value.type = ValueType::ObjectId;
        if (variable.val.objid != nullptr)
            value.oid = arcsOf(variable.val.objid, variable.val_len / sizeof(oid));
        break;
    default:
        value.type = ValueType::Null;
        break;
    }
    return value;
}

bool storeValue(netsnmp_variable_list* variable, const Value& value) {
    const auto type = static_cast<u_char>(value.type);
    switch (value.type) {
    case ValueType::Integer:
    case ValueType::Counter32:
    case ValueType::Gauge32:
    case ValueType::TimeTicks:
    case ValueType::Unsigned32: {
        long number = static_cast<long>(value.number);
        return snmp_set_var_typed_value(variable, type, &number, sizeof number) == 0;
    }
    case ValueType::Counter64: {
        counter64 counter{};
        counter.high = static_cast<u_long>(value.counter64 >> 32);
        counter.low = static_cast<u_long>(value.counter64 & 0xFFFFFFFFu);
        return snmp_set_var_typed_value(variable, type, &counter, sizeof counter) == 0;
    }
    case ValueType::OctetString:
    case ValueType::Bits:
    case ValueType::IpAddress:
    case ValueType::Opaque:
        return snmp_set_var_typed_value(variable, type, value.bytes.data(), value.bytes.size()) == 0;
    case ValueType::ObjectId: {
        const std::vector<oid> arcs = oidsOf(value.oid);
        return snmp_set_var_typed_value(variable, type, arcs.data(), arcs.size() * sizeof(oid)) == 0;
    }
    case ValueType::Null:
        return false;
    }
    return false;
}

netsnmp_variable_list* notificationFor(const Trap& trap) {
    netsnmp_variable_list* vars = nullptr;
    const long stamp = trap.timeStamp;
    snmp_varlist_add_variable(&vars, kSysUpTime, OID_LENGTH(kSysUpTime), ASN_TIMETICKS, &stamp, sizeof stamp);
    std::vector<oid> trapOid;
    if (trap.generic == kEnterpriseSpecific) {
        trapOid = oidsOf(trap.enterprise);
        trapOid.push_back(0);
        trapOid.push_back(static_cast<oid>(trap.specific));
    } else {
        trapOid.assign(kSnmpTraps, kSnmpTraps + OID_LENGTH(kSnmpTraps));
        trapOid.push_back(static_cast<oid>(trap.generic + 1));
    }
    snmp_varlist_add_variable(&vars, kSnmpTrapOid, OID_LENGTH(kSnmpTrapOid), ASN_OBJECT_ID, trapOid.data(),
                              trapOid.size() * sizeof(oid));
    for (const Binding& binding : trap.bindings) {
        const std::vector<oid> name = oidsOf(binding.name);
        netsnmp_variable_list* added =
            snmp_varlist_add_variable(&vars, name.data(), name.size(), ASN_NULL, nullptr, 0);
        if (added != nullptr && !storeValue(added, binding.value))
            snmp_set_var_typed_value(added, ASN_NULL, nullptr, 0);
    }
    return vars;
}

AgentHost::~AgentHost() {
    stop();
}

bool AgentHost::start(const std::string& name, uint32_t uptimeReference, std::string& error) {
    if (!m_agent.start(uptimeReference, m_regions)) {
        error = "SnmpExtensionInit failed: the agent did not start";
        return false;
    }
    m_started = true;
    for (const Arcs& root : m_regions) {
        auto region = std::make_unique<Region>(Region{this, root, nullptr});
        const std::vector<oid> rootOid = oidsOf(root);
        netsnmp_handler_registration* registration = m_snmp.createHandlerRegistration(
            name.c_str(), &AgentHost::handle, rootOid.data(), rootOid.size(), HANDLER_CAN_RWRITE);
        if (registration == nullptr) {
            error = "cannot create the registration of a region";
            return false;
        }
        registration->handler->myvoid = region.get();
        if (m_snmp.registerHandler(registration) != MIB_REGISTERED_OK) {
            // net-snmp releases a registration it refused.
            char text[256];
            snprint_objid(text, sizeof text, rootOid.data(), rootOid.size());
            error = std::string("cannot register region ") + text;
            return false;
        }
        region->registration = registration;
        m_registered.push_back(std::move(region));
    }
    m_trapFd = m_agent.trapEventFd();
    if (m_trapFd >= 0 && m_snmp.registerReadfd(m_trapFd, &AgentHost::trapEventReadable, this) != 0) {
        m_trapFd = -1;
        error = "cannot wait on the agent's trap event";
        return false;
    }
    return true;
}

void AgentHost::stop() {
    if (m_trapFd >= 0) {
        m_snmp.unregisterReadfd(m_trapFd);
        m_trapFd = -1;
    }
    for (auto it = m_registered.rbegin(); it != m_registered.rend(); ++it)
        m_snmp.unregisterHandler((*it)->registration);
    m_registered.clear();
    if (m_started) {
        m_agent.close();
        m_started = false;
    }
}

int AgentHost::handle(netsnmp_mib_handler* handler, netsnmp_handler_registration* /*reginfo*/,
                      netsnmp_agent_request_info* reqinfo, netsnmp_request_info* requests) {
    auto* region = static_cast<Region*>(handler->myvoid);
    long version = SNMP_VERSION_2c;
    if (reqinfo->asp != nullptr && reqinfo->asp->pdu != nullptr)
        version = reqinfo->asp->pdu->version;
    region->host->serve(region->root, reqinfo, requests, version);
    return SNMP_ERR_NOERROR;
}

void AgentHost::serve(const Arcs& region, netsnmp_agent_request_info* reqinfo, netsnmp_request_info* requests,
                      long version) {
    uint32_t requestType = 0;
    if (!requestTypeFor(reqinfo->mode, requestType))
        return;
    for (netsnmp_request_info* request = requests; request != nullptr; request = request->next) {
        if (request->processed || request->status != SNMP_ERR_NOERROR)
            continue;
        switch (requestType) {
        case kGet:
            serveGet(region, reqinfo, request, version);
            break;
        case kGetNext:
            serveGetNext(region, reqinfo, request);
            break;
        default:
            serveSet(requestType, reqinfo, request);
            break;
        }
    }
}

void AgentHost::serveGet(const Arcs& region, netsnmp_agent_request_info* reqinfo,
                         netsnmp_request_info* request, long version) {
    netsnmp_variable_list* variable = request->requestvb;
    Binding binding{arcsOf(variable->name, variable->name_length), Value{}};
    const Arcs asked = binding.name;
    const int32_t status = m_agent.query(kGet, binding);
    if (status == kNoError) {
        if (!storeValue(variable, binding.value))
            m_snmp.setRequestError(reqinfo, request, SNMP_ERR_GENERR);
        return;
    }
    // An SNMPv1 manager sees noSuchName either way; only v2c and v3 need to know.
    const bool exists = status == kNoSuchName && version != SNMP_VERSION_1 && instanceExists(region, asked);
    m_snmp.setRequestError(reqinfo, request, netSnmpStatus(status, false, exists));
}

// Whether the object the name belongs to (the name without its last arc) has any
// instance in the region: then a missing name is a missing instance.
bool AgentHost::instanceExists(const Arcs& region, const Arcs& name) {
    if (name.size() < region.size() + 2)
        return false;
    const Arcs object(name.begin(), name.end() - 1);
    Binding probe{object, Value{}};
    if (m_agent.query(kGetNext, probe) != kNoError)
        return false;
    return probe.name.size() > object.size() && startsWith(probe.name, object);
}

void AgentHost::serveGetNext(const Arcs& region, netsnmp_agent_request_info* reqinfo,
                             netsnmp_request_info* request) {
    netsnmp_variable_list* variable = request->requestvb;
    const Arcs asked = arcsOf(variable->name, variable->name_length);
    // A name before the region starts the region from its root.
    Binding binding{asked < region ? region : asked, Value{}};
    const int32_t status = m_agent.query(kGetNext, binding);
    if (status == kNoSuchName)
        return; // nothing after the name in this region: net-snmp asks the next one
    if (status != kNoError) {
        m_snmp.setRequestError(reqinfo, request, netSnmpStatus(status, false, false));
        return;
    }
    // An answer outside the region (the next region's first variable or the end of
    // the agent's view) leaves the binding unanswered: net-snmp then continues in
    // the next registration.
    if (!startsWith(binding.name, region) || !(asked < binding.name))
        return;
    const std::vector<oid> name = oidsOf(binding.name);
    if (snmp_set_var_objid(variable, name.data(), name.size()) != 0 || !storeValue(variable, binding.value))
        m_snmp.setRequestError(reqinfo, request, SNMP_ERR_GENERR);
}

void AgentHost::serveSet(uint32_t requestType, netsnmp_agent_request_info* reqinfo,
                         netsnmp_request_info* request) {
    netsnmp_variable_list* variable = request->requestvb;
    Binding binding{arcsOf(variable->name, variable->name_length), valueOf(*variable)};
    const int32_t status = m_agent.query(requestType, binding);
    if (status != kNoError)
        m_snmp.setRequestError(reqinfo, request, netSnmpStatus(status, true, false));
}

void AgentHost::trapEventReadable(int /*fd*/, void* data) {
    static_cast<AgentHost*>(data)->collectTraps();
}

void AgentHost::collectTraps() {
    if (!m_agent.takeTrapSignal())
        return;
    for (int n = 0; n < kTrapsPerWake; ++n) {
        Trap trap;
        if (!m_agent.nextTrap(trap))
            return;
        netsnmp_variable_list* vars = notificationFor(trap);
        m_snmp.sendV2trap(vars);
        snmp_free_varbind(vars);
        ++m_trapsSent;
    }
    // More traps are queued: come back after the sockets have been served.
    m_agent.resignalTrap();
}

} // namespace hmhost
