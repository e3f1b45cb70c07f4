// The agent's side of the query service: ExeIntegerQuery, the result dump and
// the failure trace, driven through a scripted responder installed as the
// process's query source.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "platform/queryService.h"
#include "sensorTestSupport.h"

namespace {

using sensortest::failure;
using sensortest::node;

using QueryServiceTest = sensortest::ScriptedTest;

// The leading digits of the first value of the entry keyed by the exact path; none, or an
// entry without values, stores 0. Flag 1 is set before the query.
TEST_F(QueryServiceTest, StoresTheLeadingDigitsOfTheEntryKeyedByThePath) {
    const std::string path = "/SMBIOS/MemoryArray[1]/NumMemoryDevices";
    const struct {
        QueryResult answer;
        uint32_t expected;
    } cases[] = {{{{path, node({"12abc"})}}, 12},
                 {{{path, node({"abc"})}}, 0},
                 {{{path, node({"  7"})}}, 7},
                 {{{path, node({"-1"})}}, 0xFFFFFFFFu},
                 {{{path, node({""})}}, 0},
                 {{{path + "/", node({"5"})}, {"/SMBIOS/MemoryArray[1]", node({"6"})}}, 0}, // neighbours only
                 {{{path, node({})}}, 0},
                 {{{path, node({"6", "7"}, 1)}, {path + "X", node({"8"})}}, 6}};
    queryService().SetFlags(14);
    for (const auto& c : cases) {
        script->answers[path] = c.answer;
        uint32_t out = 42;
        ExeIntegerQuery(path.c_str(), &out);
        EXPECT_EQ(out, c.expected) << &c - cases;
    }
    EXPECT_EQ(script->flags[0], 1);
    EXPECT_EQ(queryService().Flags(), 1);
}

TEST_F(QueryServiceTest, FailedQueriesKeepTheValueAndTraceEveryStatus) {
    const char* path = "/SMBIOS/ProcessorInfo/TotalNoOfProcessor";
    script->failures[path] = {failure(3, 1083, "no such instance"), failure(-2, 7, "second")};
    uint32_t out = 31;
    ExeIntegerQuery(path, &out);
    EXPECT_EQ(out, 31u);
    EXPECT_TRUE(sensortest::containsInOrder(trace(), {"\n Query Failed is " + std::string(path),
                                                      " failed. 1083 code", "error is: no such instance",
                                                      "Operation: -2", "error is: second"}));
    // The real front refuses a malformed path before any responder sees it.
    script->calls.clear();
    ExeIntegerQuery("/SMBIOS/MemoryArray[x]/NumMemoryDevices", &out);
    EXPECT_EQ(out, 31u);
    EXPECT_TRUE(script->calls.empty());
    EXPECT_NE(trace().find(" failed. 1082 code \n "), std::string::npos);
}

// A path longer than the buffer is cut; the length it needs is returned.
TEST(QueryPathTest, LongPathIsCutToTheBuffer) {
    char b[64];
    EXPECT_EQ(composeSensorValuePath(b, 20, 1, 32, 0, 200),
              static_cast<int>(strlen("/BMC/SENSOR[1]/OWNER[32]/LUN[0]/INTERPRET_SENSOR_VALUE[200]")));
    EXPECT_STREQ(b, "/BMC/SENSOR[1]/OWNE"); // 19 characters and the NUL
}

} // namespace
