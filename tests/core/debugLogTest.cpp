#include "core/debugLog.h"

#include <regex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <windows.h>

#include "support/e2e.h"
#include "support/files.h"

namespace {

using hmtest::readFile;
using hmtest::withoutPrefixes;

const char kNewLog[] = "*********** New Log ****************\n";
const char kEndLog[] = "*********** End Log ****************\n";

class DebugLogTest : public ::testing::Test {
protected:
    void TearDown() override { closeDebugLog(); }
    hmtest::TempDir dir;
};

// Each line carries the time and the thread as its prefix. Each run appends to its file;
// opening another file ends the first log; nothing is written while the log is closed, and
// a second close writes no second banner.
TEST_F(DebugLogTest, PrefixedLinesAppendedBetweenBanners) {
    std::string first = dir / "first.log", second = dir / "second.log";
    hmtest::writeFile(first, "earlier run\n");
    testing::internal::CaptureStdout();
    debugLog("dropped before open\n");
    openDebugLog(first.c_str(), 10);
    debugLog("in first\n");
    openDebugLog(second.c_str(), 10);
    debugLog("value %d and %s\n", 42, "text");
    debugLog("no line end");
    debugLog(" then the rest\n");
    closeDebugLog();
    debugLog("dropped after close\n");
    closeDebugLog();
    EXPECT_EQ("", testing::internal::GetCapturedStdout());
    EXPECT_EQ(std::string("earlier run\n") + kNewLog + "in first\n" + kEndLog,
              withoutPrefixes(readFile(first)));
    const std::regex prefix(R"(\d\d:\d\d:\d\d: \()" + std::to_string(GetCurrentThreadId()) + R"(\) )");
    EXPECT_EQ(std::string(kNewLog) + "@value 42 and text\n@no line end@ then the rest\n" + kEndLog,
              std::regex_replace(readFile(second), prefix, "@"));
}

// An unopenable path sends everything to standard output, as does no path (without the
// opening banner); closing does not close standard output.
TEST_F(DebugLogTest, UnopenableOrNoPathFallsBackToStdout) {
    const std::string rest = std::string(kNewLog) + "to stdout 7\n" + kEndLog + "stdout still open\n";
    const std::pair<const char*, std::string> cases[] = {
        {"/nonexistent-hm-dir/trace.log",
         "Error opening File \"/nonexistent-hm-dir/trace.log\"\nAll messages will go to stdout\n" + rest},
        {nullptr, std::string("to stdout 7\n") + kEndLog + "stdout still open\n"},
    };
    for (const auto& [path, expected] : cases) {
        testing::internal::CaptureStdout();
        openDebugLog(path, 10);
        debugLog("to stdout %d\n", 7);
        closeDebugLog();
        printf("stdout still open\n");
        fflush(stdout);
        EXPECT_EQ(expected, withoutPrefixes(testing::internal::GetCapturedStdout()))
            << (path ? path : "null");
    }
}

// Lines traced from several threads stay whole and name their own thread.
TEST_F(DebugLogTest, ConcurrentTracesKeepTheirLines) {
    std::string path = dir / "trace.log";
    openDebugLog(path.c_str(), 10);
    std::vector<std::thread> threads;
    std::vector<unsigned> ids(4);
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([t, &ids] {
            ids[t] = GetCurrentThreadId();
            for (int i = 0; i < 200; ++i)
                debugLog("thread %d line %d\n", t, i);
        });
    for (std::thread& thread : threads)
        thread.join();
    closeDebugLog();
    const std::vector<std::string> lines = hmtest::linesOf(readFile(path));
    ASSERT_EQ(802u, lines.size()); // and the two banners
    const std::regex lineShape(R"(\d\d:\d\d:\d\d: \((\d+)\) thread (\d) line (\d+))");
    for (size_t i = 1; i + 1 < lines.size(); ++i) {
        std::smatch m;
        ASSERT_TRUE(std::regex_match(lines[i], m, lineShape)) << lines[i];
        EXPECT_EQ(std::to_string(ids[std::stoi(m[2].str())]), m[1].str()) << lines[i];
    }
}

} // namespace
