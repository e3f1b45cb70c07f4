// Helpers of the query-service tests: a System over a platform text, and
// failure capture.
#ifndef HM_TESTS_SERVICE_UTIL_H
#define HM_TESTS_SERVICE_UTIL_H

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>

#include "kelvarn/Platform.h"
#include "kelvarn/PlatformFile.h"
#include "kelvarn/Responder.h"
#include "kelvarn/System.h"

using Result = std::map<std::string, _XNode>;

inline std::unique_ptr<SDK::System> systemOver(const std::string& platformText) {
    auto source = std::make_shared<kelvarn::SimulatedSource>(
        "test platform", kelvarn::parsePlatform(platformText, "test.json"));
    return std::make_unique<SDK::System>(kelvarn::makePlatformResponder(source));
}

inline std::unique_ptr<SDK::System> demoSystem() {
    return systemOver(kelvarn::demoPlatformText());
}

// The value of the entry keyed by `path` after querying it; "" when absent.
inline std::string valueOf(SDK::System& system, const std::string& path) {
    Result r;
    system.Get(path, r);
    auto it = r.find(path);
    if (it == r.end() || it->second.Values.empty())
        return "<no entry>";
    return it->second.Values[0];
}

// The failures of one query (empty when it succeeded).
inline std::vector<RStatus> failuresOf(SDK::System& system, const std::string& path) {
    Result r;
    try {
        system.Get(path, r);
    } catch (const ResultStatus& e) {
        return e.Get();
    }
    return {};
}

// A platform file text holding the given sensors and SEL entries.
inline std::string platformWith(const std::string& sensors, const std::string& sel = "") {
    return R"({"format": "kelvarn-platform", "version": 1, "bmc": {"sensors": [)" + sensors +
           R"(], "sel": [)" + sel + "]}}";
}

#endif
