// hm-show-system: starts the agent's client facade as the SNMP service would and prints
// the system group and the overall health.
//
// Usage: hm-show-system
// The registry file is named by HMSUBAGENT_REGISTRY (default /etc/hmsubagent/registry.reg).
#include <cstdio>
#include <cstdlib>

#include "core/debugLog.h"
#include "core/hmClientApi.h"

namespace {

struct SystemValue {
    uint32_t attribute;
    const char* name;
    bool isText;
};

// The system group's values, in attribute order.
const SystemValue kSystemValues[] = {
    {1, "systemStatus", false},       {2, "platformDescription", true}, {3, "platformId", false},
    {4, "trapsEnabled", false},       {5, "setsEnabled", false},        {6, "manufacturer", true},
    {7, "productName", true},         {8, "productVersion", true},      {9, "productBuildNumber", true},
    {10, "productDescription", true},
};

// Prints one value; returns false when the facade refused it.
bool printValue(const SystemValue& value) {
    if (value.isText) {
        char* text = nullptr;
        uint32_t status = getStrInfo(systemManagementEntity, value.attribute, 1, &text);
        if (status != CLIENT_SUCCESS) {
            printf("%-20s <error %u>\n", value.name, status);
            free(text);
            return false;
        }
        printf("%-20s %s\n", value.name, text != nullptr ? text : "");
        free(text);
        return true;
    }
    int32_t number = -1;
    uint32_t status = getIntInfo(systemManagementEntity, value.attribute, 0, &number);
    if (status != CLIENT_SUCCESS) {
        printf("%-20s <error %u>\n", value.name, status);
        return false;
    }
    printf("%-20s %d\n", value.name, number);
    return true;
}

} // namespace

int main(int argc, char** argv) {
    if (argc > 1) {
        fprintf(stderr, "usage: %s\n  the registry file is named by HMSUBAGENT_REGISTRY\n", argv[0]);
        return 2;
    }
    const char* registry = getenv("HMSUBAGENT_REGISTRY");
    if (registry == nullptr || registry[0] == '\0') {
        registry = "/etc/hmsubagent/registry.reg";
    }
    FILE* probe = fopen(registry, "r");
    if (probe == nullptr) {
        // Start-up goes on without it, as the agent does, but every value will be empty.
        fprintf(stderr,
                "hm-show-system: warning: cannot read the registry file %s; set HMSUBAGENT_REGISTRY\n",
                registry);
    } else {
        fclose(probe);
    }

    uint32_t status = initHMClient();
    if (status != CLIENT_SUCCESS) {
        fprintf(stderr, "hm-show-system: agent start-up failed with client status %u\n", status);
        destroyHMClient();
        closeDebugLog();
        return 1;
    }

    bool allRead = true;
    for (const SystemValue& value : kSystemValues) {
        allRead = printValue(value) && allRead;
    }
    int32_t health = getHealthstatus();
    const char* healthName = mapStatusToName(health);
    printf("%-20s %s (%d)\n", "overallHealth", healthName != nullptr ? healthName : "?", health);

    releaseTables();
    destroyHMClient();
    closeDebugLog();
    return allRead ? 0 : 1;
}
