#include "platform/queryService.h"

#include <cstdio>
#include <cstdlib>

#include "core/debugLog.h"

const char* const kSdrFullRecordsPath = "/BMC/SDR/RECORD_TYPE[1]";
const char* const kSdrCompactRecordsPath = "/BMC/SDR/RECORD_TYPE[2]";

SDK::System& queryService() {
    // Never destroyed: the SEL poller thread goes on querying after the agent is closed and
    // while the process exits, and must never meet a destroyed object.
    static SDK::System* const system = new SDK::System();
    return *system;
}

namespace {
// Builds the shared object while the module loads.
SDK::System& g_queryServiceAtLoad = queryService();
} // namespace

void ExeIntegerQuery(const char* path, uint32_t* out) {
    if (path == nullptr || out == nullptr) {
        return;
    }
    SDK::System& system = queryService();
    try {
        QueryResult result;
        system.SetFlags(1);
        debugLog("\n Executing the query:%s", path);
        system.Get(path, result);
        *out = 0;
        QueryResult::const_iterator it = result.find(path);
        if (it != result.end() && !it->second.Values.empty()) {
            *out = static_cast<uint32_t>(atoi(it->second.Values[0].c_str()));
        }
    } catch (const ResultStatus& status) {
        debugLog("\n Query Failed is %s:", path);
        logQueryFailure(status, path, QUERY_FAILURE_INTEGER);
    } catch (...) {
        // Out of memory while building the request: the caller's value stays.
    }
}

void dumpResultMap(const QueryResult& result) {
    for (QueryResult::const_iterator it = result.begin(); it != result.end(); ++it) {
        debugLog("Key = \"%s\"\n", it->first.c_str());
        debugLog("\tNodeType = %d\n", it->second.NodeType);
        for (size_t i = 0; i < it->second.Values.size(); ++i) {
            debugLog("\t\tValue[%d] = %s\n", static_cast<int>(i), it->second.Values[i].c_str());
        }
    }
}

void logQueryFailure(const ResultStatus& status, const char* path, QueryFailureStyle style) {
    const std::vector<RStatus>& statuses = status.Get();
    for (size_t i = 0; i < statuses.size(); ++i) {
        const RStatus& s = statuses[i];
        debugLog("Operation: %d", s.Operation);
        debugLog("on :%s", path ? path : "");
        switch (style) {
        case QUERY_FAILURE_INTEGER:
            debugLog(" failed. %d code \n ", s.Code);
            debugLog("error is: %s--\n ", s.Message.c_str());
            break;
        case QUERY_FAILURE_VALUE:
            debugLog(" failed. %d", s.Code);
            debugLog(": %s", s.Message.c_str());
            break;
        case QUERY_FAILURE_SCAN:
            debugLog(" failed Error code. %d  -", s.Code);
            break;
        }
    }
}

int composePath(char* buffer, size_t size, const char* a, int n, const char* b) {
    return snprintf(buffer, size, "%s%d%s", a, n, b);
}

int composePath(char* buffer, size_t size, const char* a, int n1, const char* b, int n2, const char* c) {
    return snprintf(buffer, size, "%s%d%s%d%s", a, n1, b, n2, c);
}

int composeSensorPath(char* buffer, size_t size, int sensor, int owner, int lun, const char* tail) {
    return snprintf(buffer, size, "%s%d%s%d%s%d%s", "/BMC/SENSOR[", sensor, "]/OWNER[", owner, "]/LUN[", lun,
                    tail);
}

int composeSensorPath(char* buffer, size_t size, int sensor, int owner, int lun, const char* sep,
                      const char* key) {
    return snprintf(buffer, size, "%s%d%s%d%s%d%s%s", "/BMC/SENSOR[", sensor, "]/OWNER[", owner, "]/LUN[",
                    lun, sep, key);
}

int composeSensorValuePath(char* buffer, size_t size, int sensor, int owner, int lun, int raw) {
    return snprintf(buffer, size, "%s%d%s%d%s%d%s%d%s", "/BMC/SENSOR[", sensor, "]/OWNER[", owner, "]/LUN[",
                    lun, "]/INTERPRET_SENSOR_VALUE[", raw, "]");
}
