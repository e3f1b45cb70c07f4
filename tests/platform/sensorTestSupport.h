// Shared by the sensor tests: a query source answering from a script or from a
// platform file, and the trace written during a test, read back without its
// time and thread prefixes.
#ifndef HM_TESTS_PLATFORM_SENSORTESTSUPPORT_H
#define HM_TESTS_PLATFORM_SENSORTESTSUPPORT_H

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "core/debugLog.h"
#include "kelvarn/Platform.h"
#include "kelvarn/PlatformFile.h"
#include "kelvarn/Responder.h"
#include "platform/queryService.h"
#include "support/files.h"

namespace sensortest {

inline RStatus failure(int operation, uint16_t code, const char* message) {
    return RStatus{0, code, message, "", operation};
}

// A result node: a value (type 0) or a container listing child paths (type 1).
inline _XNode node(std::vector<std::string> values, int type = 0) {
    return _XNode{type, std::move(values), ""};
}

// Answers from a script: one result map per path, or a failure to throw (for every path
// when `failAll`, as an unreachable service); any other path gets an empty result.
// Records every path asked, in order.
class ScriptedResponder : public kelvarn::Responder {
public:
    std::map<std::string, QueryResult> answers;
    std::map<std::string, std::vector<RStatus>> failures;
    std::vector<std::string> calls;
    std::vector<int> flags; // the flags in force at each call
    bool failAll = false;

    void answer(const std::string& path, const std::vector<kelvarn::PathSegment>&, const kelvarn::Parameters&,
                uint8_t flagsInForce, kelvarn::ResultMap& out) override {
        calls.push_back(path);
        flags.push_back(flagsInForce);
        if (failAll)
            throw ResultStatus(std::vector<RStatus>{failure(1, 1086, "data source unavailable")});
        if (failures.count(path))
            throw ResultStatus(failures[path]);
        if (answers.count(path))
            out = answers[path];
    }

    // A single-valued answer keyed by its own path.
    void value(const std::string& path, const std::string& text) { answers[path] = {{path, node({text})}}; }
};

inline kelvarn::PlatformModel loadModel(const std::string& name) {
    return kelvarn::loadPlatformFile(std::string(HM_TEST_DATA_DIR) + "/sensors/" + name);
}

// Serves `model` as the process's query source (the tables query it live: serving another
// model changes what they read).
inline void serveModel(kelvarn::PlatformModel model) {
    kelvarn::setProcessResponder(kelvarn::makePlatformResponder(
        std::make_shared<kelvarn::SimulatedSource>("test platform", std::move(model))));
}

// Serves the platform file tests/data/sensors/<name>.
inline void usePlatformFile(const std::string& name) {
    serveModel(loadModel(name));
}

// Changes the raw reading of sensor `number` (owner 0x20, LUN 0) in `model`.
inline void setRawReading(kelvarn::PlatformModel& model, uint8_t number, uint8_t raw) {
    model.readings[kelvarn::SensorAddress{0x20, 0, number}].raw = raw;
}

// Opens a fresh trace file per test and closes it (and drops the query source) after.
class TracedTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(m_traceDir.made());
        openDebugLog(tracePath.c_str(), 10);
    }
    void TearDown() override {
        closeDebugLog();
        kelvarn::setProcessResponder(nullptr);
    }

    std::shared_ptr<ScriptedResponder> useScript() {
        auto responder = std::make_shared<ScriptedResponder>();
        kelvarn::setProcessResponder(responder);
        return responder;
    }

    // The trace written since SetUp, without the line prefixes.
    std::string trace() const { return hmtest::withoutPrefixes(hmtest::readFile(tracePath)); }

    hmtest::TempDir m_traceDir{"hm-sensor-trace-"};
    std::string tracePath = m_traceDir / "trace.log";
};

// A traced test whose query source is a fresh script.
class ScriptedTest : public TracedTest {
protected:
    void SetUp() override {
        TracedTest::SetUp();
        script = useScript();
    }
    std::shared_ptr<ScriptedResponder> script;
};

using hmtest::containsInOrder;

inline size_t countOf(const std::string& text, const std::string& piece) {
    size_t n = 0;
    for (size_t at = text.find(piece); at != std::string::npos; at = text.find(piece, at + piece.size()))
        ++n;
    return n;
}

} // namespace sensortest

#endif
