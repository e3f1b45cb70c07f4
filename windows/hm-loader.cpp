// hm-loader: drives an SNMP extension-agent DLL the way the Windows SNMP service does,
// and prints what it answers.
//
//   hm-loader DLL [--walk OID | --get OID | --inventory]...
//
// The DLL is loaded, its entry points are resolved, SnmpExtensionInit and then
// SnmpExtensionInitEx (until it answers FALSE) hand out the agent's regions, the
// requests run in the order given, and SnmpExtensionClose ends the session.
//
//   --walk OID    GETNEXT from OID for as long as the answers stay below OID
//   --get OID     one GET
//   --inventory   calls the exported processor and memory inventory counters
//
// Output, one line each: "region N: OID" for the regions, "OID = INTEGER: n" or
// "OID = STRING: "text"" for a variable (bytes outside printable ASCII as \xNN),
// "OID: error status S index I" for a failed request, "walk: N variables" at the end of
// a walk. Exit status 0 when every step ran, 1 when loading, start-up or a walk failed,
// 2 for a wrong command line. A GET that the agent answers with an error status is
// printed, not a failure: the caller decides what it expected.
#include <windows.h>

#include <snmp.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

using AssertTrapFn = int (*)();
using GetCountFn = int32_t (*)(uint32_t*);
using GetIndexedCountFn = int32_t (*)(uint32_t, uint32_t*);

struct Agent {
    PFNSNMPEXTENSIONINIT init = nullptr;
    PFNSNMPEXTENSIONINITEX initEx = nullptr;
    PFNSNMPEXTENSIONQUERYEX queryEx = nullptr;
    PFNSNMPEXTENSIONTRAP trap = nullptr;
    PFNSNMPEXTENSIONCLOSE close = nullptr;
    AssertTrapFn assertTrap = nullptr;
    HMODULE module = nullptr;
};

// GetProcAddress hands back a generic function pointer; copy it into the real type.
template <typename Fn> bool resolve(HMODULE module, const char* name, Fn& out) {
    FARPROC address = GetProcAddress(module, name);
    if (address == nullptr) {
        std::printf("missing entry point: %s\n", name);
        return false;
    }
    static_assert(sizeof out == sizeof address, "function pointers differ in size");
    std::memcpy(&out, &address, sizeof out);
    return true;
}

std::string oidText(const AsnObjectIdentifier& oid) {
    std::string text;
    const UINT* ids = oid.ids;
    for (UINT i = 0; i < oid.idLength; ++i) {
        if (i > 0)
            text += '.';
        text += std::to_string(ids[i]);
    }
    return text;
}

// Parses dotted decimal text into arcs; false for anything else.
bool parseOid(const char* text, std::vector<UINT>& arcs) {
    arcs.clear();
    const char* p = text;
    if (*p == '.')
        ++p;
    while (*p != '\0') {
        if (*p < '0' || *p > '9')
            return false;
        char* end = nullptr;
        const unsigned long long arc = std::strtoull(p, &end, 10);
        if (arc > 0xFFFFFFFFull || (*end != '.' && *end != '\0') || (*end == '.' && end[1] == '\0'))
            return false;
        arcs.push_back(static_cast<UINT>(arc));
        p = *end == '.' ? end + 1 : end;
    }
    return !arcs.empty();
}

// A one-binding list allocated with the SNMP utility allocator, as the service does,
// so that the agent may free and replace the name and the value.
class OneBinding {
public:
    explicit OneBinding(const std::vector<UINT>& arcs) {
        m_list.len = 0;
        m_list.list = static_cast<SnmpVarBind*>(SnmpUtilMemAlloc(sizeof(SnmpVarBind)));
        if (m_list.list == nullptr)
            return;
        std::memset(m_list.list, 0, sizeof(SnmpVarBind));
        m_list.len = 1;
        setName(arcs);
    }
    ~OneBinding() { SnmpUtilVarBindListFree(&m_list); }
    OneBinding(const OneBinding&) = delete;
    OneBinding& operator=(const OneBinding&) = delete;

    bool ok() const { return m_list.len == 1 && m_list.list[0].name.ids != nullptr; }
    SnmpVarBindList* list() { return &m_list; }
    SnmpVarBind& bind() { return m_list.list[0]; }

private:
    void setName(const std::vector<UINT>& arcs) {
        AsnObjectIdentifier& name = m_list.list[0].name;
        UINT* ids = static_cast<UINT*>(SnmpUtilMemAlloc(static_cast<UINT>(arcs.size() * sizeof(UINT))));
        if (ids == nullptr)
            return;
        std::memcpy(ids, arcs.data(), arcs.size() * sizeof(UINT));
        name.ids = ids;
        name.idLength = static_cast<UINT>(arcs.size());
    }

    SnmpVarBindList m_list;
};

std::string valueText(const AsnAny& value) {
    switch (value.asnType) {
    case ASN_INTEGER:
        return "INTEGER: " + std::to_string(value.asnValue.number);
    case ASN_OCTETSTRING: {
        std::string text = "STRING: \"";
        const BYTE* stream = value.asnValue.string.stream;
        for (UINT i = 0; stream != nullptr && i < value.asnValue.string.length; ++i) {
            const unsigned char c = stream[i];
            if (c >= 0x20 && c < 0x7F && c != '"' && c != '\\') {
                text += static_cast<char>(c);
            } else {
                char escaped[8];
                std::snprintf(escaped, sizeof escaped, "\\x%02X", c);
                text += escaped;
            }
        }
        return text + "\"";
    }
    case ASN_NULL:
        return "NULL";
    default: {
        char other[32];
        std::snprintf(other, sizeof other, "type 0x%02X", static_cast<unsigned>(value.asnType));
        return other;
    }
    }
}

// Sends one request; prints the binding or the error. Returns the error status.
AsnInteger32 request(const Agent& agent, UINT type, OneBinding& binding, std::string& answeredName) {
    AsnInteger32 status = 0;
    AsnInteger32 index = 0;
    const std::string asked = oidText(binding.bind().name);
    agent.queryEx(type, 1, binding.list(), nullptr, &status, &index);
    answeredName = oidText(binding.bind().name);
    if (status != SNMP_ERRORSTATUS_NOERROR)
        std::printf("%s: error status %d index %d\n", asked.c_str(), static_cast<int>(status),
                    static_cast<int>(index));
    return status;
}

// True when oid lies below prefix (or is prefix itself, when orEqual).
bool under(const AsnObjectIdentifier& oid, const std::vector<UINT>& prefix, bool orEqual) {
    if (oid.idLength < prefix.size() || (!orEqual && oid.idLength == prefix.size()))
        return false;
    const UINT* ids = oid.ids;
    for (size_t i = 0; i < prefix.size(); ++i)
        if (ids[i] != prefix[i])
            return false;
    return true;
}

void freeOid(AsnObjectIdentifier& oid) {
    if (oid.ids != nullptr)
        SnmpUtilOidFree(&oid);
    oid.ids = nullptr;
    oid.idLength = 0;
}

// The regions the agent registered: like the service, the loader takes an answer
// outside all of them as the end of the agent's view.
std::vector<std::vector<UINT>> gRegions;

void addRegion(const AsnObjectIdentifier& region) {
    const UINT* ids = region.ids;
    gRegions.emplace_back(ids, ids + region.idLength);
}

bool inAgentView(const AsnObjectIdentifier& oid) {
    for (const auto& region : gRegions)
        if (under(oid, region, true))
            return true;
    return false;
}

bool walk(const Agent& agent, const std::vector<UINT>& root) {
    OneBinding binding(root);
    if (!binding.ok()) {
        std::printf("walk: out of memory\n");
        return false;
    }
    // Far more than the agent's variables; guards against an answer that never moves on.
    const unsigned kLimit = 100000;
    unsigned count = 0;
    std::string previous = oidText(binding.bind().name);
    AsnObjectIdentifier last = {};
    for (; count < kLimit; ++count) {
        std::string name;
        if (request(agent, SNMP_EXTENSION_GET_NEXT, binding, name) != SNMP_ERRORSTATUS_NOERROR) {
            freeOid(last);
            return false;
        }
        AsnObjectIdentifier& answered = binding.bind().name;
        if (!under(answered, root, false) || !inAgentView(answered)) {
            std::printf("walk: %u variables, next name %s\n", count, name.c_str());
            freeOid(last);
            return true;
        }
        if (count > 0 && SnmpUtilOidCmp(&answered, &last) <= 0) {
            std::printf("walk: %s does not follow %s\n", name.c_str(), previous.c_str());
            freeOid(last);
            return false;
        }
        std::printf("%s = %s\n", name.c_str(), valueText(binding.bind().value).c_str());
        freeOid(last);
        if (!SnmpUtilOidCpy(&last, &answered)) {
            std::printf("walk: out of memory\n");
            return false;
        }
        previous = name;
        // The next request asks for the successor of the name alone.
        SnmpUtilAsnAnyFree(&binding.bind().value);
        binding.bind().value.asnType = ASN_NULL;
    }
    freeOid(last);
    std::printf("walk: no end after %u variables\n", kLimit);
    return false;
}

void get(const Agent& agent, const std::vector<UINT>& arcs) {
    OneBinding binding(arcs);
    if (!binding.ok()) {
        std::printf("get: out of memory\n");
        return;
    }
    binding.bind().value.asnType = ASN_NULL;
    std::string name;
    if (request(agent, SNMP_EXTENSION_GET, binding, name) == SNMP_ERRORSTATUS_NOERROR)
        std::printf("%s = %s\n", name.c_str(), valueText(binding.bind().value).c_str());
}

bool inventory(HMODULE module) {
    GetCountFn processors = nullptr, processorsPresent = nullptr, arrays = nullptr;
    GetIndexedCountFn devices = nullptr, devicesPresent = nullptr;
    if (!resolve(module, "getNumberOfProcessor", processors) ||
        !resolve(module, "getNumberOfProcessorPresent", processorsPresent) ||
        !resolve(module, "getNumberOfPhysicalMemoryArray", arrays) ||
        !resolve(module, "getNumberOfMemoryDevice", devices) ||
        !resolve(module, "getNumberOfMemoryDevicePresent", devicesPresent))
        return false;
    uint32_t count = 0, present = 0;
    processors(&count);
    processorsPresent(&present);
    std::printf("inventory: %u processors, %u present\n", count, present);
    count = 0;
    arrays(&count);
    std::printf("inventory: %u memory arrays\n", count);
    for (uint32_t a = 0; a < count; ++a) {
        uint32_t n = 0, p = 0;
        devices(a, &n);
        devicesPresent(a, &p);
        std::printf("inventory: memory array %u: %u devices, %u present\n", a, n, p);
    }
    return true;
}

int usage() {
    std::fprintf(stderr, "usage: hm-loader DLL [--walk OID | --get OID | --inventory]...\n");
    return 2;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2)
        return usage();
    // Check the whole command line before loading anything.
    std::vector<UINT> arcs;
    for (int i = 2; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--inventory")
            continue;
        if ((option != "--walk" && option != "--get") || i + 1 >= argc || !parseOid(argv[i + 1], arcs))
            return usage();
        ++i;
    }

    std::setvbuf(stdout, nullptr, _IONBF, 0);
    Agent agent;
    // Let the DLL's own folder be searched for the libraries it depends on.
    agent.module = LoadLibraryExA(argv[1], nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
    if (agent.module == nullptr) {
        std::printf("cannot load %s: error %lu\n", argv[1], static_cast<unsigned long>(GetLastError()));
        return 1;
    }
    if (!resolve(agent.module, "SnmpExtensionInit", agent.init) ||
        !resolve(agent.module, "SnmpExtensionInitEx", agent.initEx) ||
        !resolve(agent.module, "SnmpExtensionQueryEx", agent.queryEx) ||
        !resolve(agent.module, "SnmpExtensionTrap", agent.trap) ||
        !resolve(agent.module, "SnmpExtensionClose", agent.close) ||
        !resolve(agent.module, "AssertTrap", agent.assertTrap))
        return 1;
    std::printf("loaded %s\n", argv[1]);

    HANDLE trapEvent = nullptr;
    AsnObjectIdentifier region = {};
    if (!agent.init(GetTickCount(), &trapEvent, &region)) {
        std::printf("SnmpExtensionInit failed\n");
        return 1;
    }
    if (trapEvent == nullptr) {
        std::printf("SnmpExtensionInit handed out no trap event\n");
        return 1;
    }
    int regions = 1;
    std::printf("region %d: %s\n", regions, oidText(region).c_str());
    addRegion(region);
    // The region OIDs belong to the agent: they are printed, never freed.
    const int kMaxRegions = 1000;
    while (agent.initEx(&region)) {
        if (++regions > kMaxRegions) {
            std::printf("SnmpExtensionInitEx does not end\n");
            return 1;
        }
        std::printf("region %d: %s\n", regions, oidText(region).c_str());
        addRegion(region);
    }
    std::printf("start-up done: %d regions\n", regions);

    bool ok = true;
    for (int i = 2; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--inventory") {
            ok = inventory(agent.module) && ok;
            continue;
        }
        parseOid(argv[++i], arcs);
        if (option == "--walk")
            ok = walk(agent, arcs) && ok;
        else
            get(agent, arcs);
    }

    agent.close();
    std::printf("closed\n");
    // The agent's event poller thread keeps running until the process ends, so the
    // library stays loaded.
    return ok ? 0 : 1;
}
