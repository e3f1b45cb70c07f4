// hm_fuzz_agent: the agent started once per fuzz process (see fuzzSupport.h).
#include <snmp.h>

#include <cstdlib>

#include "agent/snmpExtension.h"
#include "events/selPoller.h"
#include "fuzz/fuzzSupport.h"

namespace hmfuzz {

const std::shared_ptr<kelvarn::Responder>& agentResponder() {
    static const std::shared_ptr<kelvarn::Responder> responder = demoResponder();
    return responder;
}

void startAgent(bool trapsEnabled) {
    const char* trace = std::getenv("HM_FUZZ_TRACE");
    const std::string logPath = trace != nullptr && *trace != '\0' ? trace : "/dev/null";
    const std::string config = std::string("trapsenabled=") + (trapsEnabled ? "1" : "0") +
                               "\ndebugenabled=" + (logPath == "/dev/null" ? "0" : "1") +
                               "\nplatformdescription=fuzz\n";
    const std::string registry = "Windows Registry Editor Version 5.00\r\n\r\n"
                                 "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Arveni\\FleetwatchSNMP\\Parameters]\r\n"
                                 "\"ConfigFile\"=\"" +
                                 writeScratch("agent.conf", config) + "\"\r\n\"LogFile\"=\"" + logPath +
                                 "\"\r\n";
    setenv(HM_COMPAT_REGISTRY_ENV, writeScratch("registry.reg", registry).c_str(), 1);
    kelvarn::setProcessResponder(agentResponder());
    setSelPollSleep([](DWORD) {
        for (;;)
            Sleep(3600000);
    });
    HANDLE trapEvent = nullptr;
    AsnObjectIdentifier region{0, nullptr};
    if (!SnmpExtensionInit(0, &trapEvent, &region))
        std::abort();
    for (int regions = 0; regions < 1000 && SnmpExtensionInitEx(&region); ++regions) {
    }
    // Released before the static objects go, as the SNMP service does at its end.
    std::atexit([] { SnmpExtensionClose(); });
}

} // namespace hmfuzz
