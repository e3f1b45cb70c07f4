// Helpers of the query-service tests: a System over a platform text, values and
// failures of one query, SEL requests, a configuration in force for one scope.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "kelvarn/Platform.h"
#include "kelvarn/PlatformFile.h"
#include "kelvarn/Responder.h"
#include "kelvarn/System.h"

using Result = std::map<std::string, _XNode>;
using Expected = std::map<std::string, std::string>;

inline std::unique_ptr<SDK::System> systemOver(const std::string& platformText) {
    auto source = std::make_shared<kelvarn::SimulatedSource>(
        "test platform", kelvarn::parsePlatform(platformText, "test.json"));
    return std::make_unique<SDK::System>(kelvarn::makePlatformResponder(source));
}

// The answer to one query.
inline Result resultOf(SDK::System& system, const std::string& path) {
    Result r;
    system.Get(path, r);
    return r;
}

// The value of the entry keyed by `path` after querying it; the failure's text when the query fails.
inline std::string valueOf(SDK::System& system, const std::string& path) {
    Result r;
    try {
        system.Get(path, r);
    } catch (const ResultStatus& e) {
        return "<failed: " + e.Get().at(0).Message + ">";
    }
    auto it = r.find(path);
    if (it == r.end() || it->second.Values.empty())
        return "<no entry>";
    return it->second.Values[0];
}

// The failures `f` throws (empty when it throws none).
template <typename F> std::vector<RStatus> statusesOf(F f) {
    try {
        f();
    } catch (const ResultStatus& e) {
        return e.Get();
    }
    return {};
}

// The failures of one query (empty when it succeeded).
inline std::vector<RStatus> failuresOf(SDK::System& system, const std::string& path) {
    return statusesOf([&] { resultOf(system, path); });
}

// A query's one failure as "code: message"; "<n failures>" otherwise.
inline std::string failureOf(SDK::System& system, const std::string& path) {
    const std::vector<RStatus> f = failuresOf(system, path);
    return f.size() == 1 ? std::to_string(f[0].Code) + ": " + f[0].Message
                         : "<" + std::to_string(f.size()) + " failures>";
}

// The message of the E that `f` throws; "<accepted>" when it throws none.
template <typename E = std::runtime_error, typename F> std::string refusal(F f) {
    try {
        f();
    } catch (const E& e) {
        return e.what();
    }
    return "<accepted>";
}

// The poller's SEL request: from record `id` (hex), at most `range` entries.
inline Result selQuery(SDK::System& system, const char* id, const char* range = "3000") {
    std::map<std::string, std::string> params = {{"RECORD_ID", id}};
    if (range)
        params["RANGE"] = range;
    std::map<std::string, std::map<std::string, std::string>> request = {{"/BMC/SEL/TRANSLATED", params}};
    Result r;
    system.Get(request, r);
    return r;
}

// How many SEL entries a query answers; SIZE_MAX when it fails.
inline size_t selSize(SDK::System& system) {
    Result r;
    return statusesOf([&] { system.Get("/BMC/SEL/TRANSLATED", r); }).empty()
               ? r["/BMC/SEL/TRANSLATED"].Values.size()
               : SIZE_MAX;
}

// "01 a0 ff" as bytes.
inline std::vector<uint8_t> bytesOf(const std::string& text) {
    std::vector<uint8_t> b;
    std::istringstream in(text);
    unsigned v;
    while (in >> std::hex >> v)
        b.push_back(uint8_t(v));
    return b;
}

// "a=b|c=d|" as {a, b}, {c, d}.
inline std::vector<std::pair<std::string, std::string>> pairsOf(const std::string& text) {
    std::vector<std::pair<std::string, std::string>> out;
    for (size_t at = 0, bar; (bar = text.find('|', at)) != std::string::npos; at = bar + 1) {
        const size_t eq = text.find('=', at);
        out.emplace_back(text.substr(at, eq - at), text.substr(eq + 1, bar - eq - 1));
    }
    return out;
}

// Each "path=value|" of `table`, the path after `prefix`, answers its value.
inline void expectValues(SDK::System& system, const std::string& table, const std::string& prefix = "") {
    for (const auto& e : pairsOf(table))
        EXPECT_EQ(valueOf(system, prefix + e.first), e.second) << e.first;
}

// A platform file text holding the given sensors and SEL entries.
inline std::string platformWith(const std::string& sensors, const std::string& sel = "") {
    return R"({"format": "kelvarn-platform", "version": 1, "bmc": {"sensors": [)" + sensors +
           R"(], "sel": [)" + sel + "]}}";
}

// Polls `check` until it holds or `limitMs` passes (a bound for a hung source, not a speed
// check: a loaded machine may take seconds).
template <typename F> bool eventually(F check, int limitMs = 30000) {
    auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(limitMs);
    while (std::chrono::steady_clock::now() < end) {
        if (check())
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return check();
}

// KELVARN_CONFIG names `file` (and the process responder is read again) while
// the object lives; then it names none.
struct ScopedConfig {
    explicit ScopedConfig(const std::string& file) {
        setenv("KELVARN_CONFIG", file.c_str(), 1);
        kelvarn::setProcessResponder(nullptr);
    }
    ~ScopedConfig() {
        unsetenv("KELVARN_CONFIG");
        kelvarn::setProcessResponder(nullptr);
    }
};
