#include "core/debugLog.h"

#include <regex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <windows.h>

#include "support/files.h"

namespace {

using hmtest::readFile;
using ScratchDir = hmtest::TempDir;
using hmtest::withoutPrefixes;

const char kNewLog[] = "*********** New Log ****************\n";
const char kEndLog[] = "*********** End Log ****************\n";

class DebugLogTest : public ::testing::Test {
protected:
    void TearDown() override { closeDebugLog(); }
    ScratchDir dir;
};

TEST_F(DebugLogTest, LinesCarryTimeAndThreadPrefix) {
    std::string path = dir.file("trace.log");
    openDebugLog(path.c_str(), 10);
    debugLog("value %d and %s\n", 42, "text");
    debugLog("no line end");
    debugLog(" then the rest\n");
    closeDebugLog();

    std::string tid = std::to_string(GetCurrentThreadId());
    std::regex expected(std::string("\\*{11} New Log \\*{16}\n"
                                    "\\d\\d:\\d\\d:\\d\\d: \\(") +
                        tid + "\\) value 42 and text\n" + "\\d\\d:\\d\\d:\\d\\d: \\(" + tid +
                        "\\) no line end" + "\\d\\d:\\d\\d:\\d\\d: \\(" + tid + "\\)  then the rest\n" +
                        "\\*{11} End Log \\*{16}\n");
    std::string trace = readFile(path);
    EXPECT_TRUE(std::regex_match(trace, expected)) << trace;
}

TEST_F(DebugLogTest, NothingIsWrittenWhileClosed) {
    std::string path = dir.file("trace.log");
    testing::internal::CaptureStdout();
    debugLog("dropped before open\n");
    openDebugLog(path.c_str(), 10);
    closeDebugLog();
    debugLog("dropped after close\n");
    closeDebugLog(); // a second close writes no second banner
    EXPECT_EQ("", testing::internal::GetCapturedStdout());
    EXPECT_EQ(std::string(kNewLog) + kEndLog, readFile(path));
}

// Each run appends to its file; opening another file ends the first log.
TEST_F(DebugLogTest, ReopeningEndsTheFirstLogAndEachRunAppends) {
    std::string first = dir.file("first.log");
    std::string second = dir.file("second.log");
    hmtest::writeFile(first, "earlier run\n");
    openDebugLog(first.c_str(), 10);
    debugLog("in first\n");
    openDebugLog(second.c_str(), 10);
    debugLog("in second\n");
    closeDebugLog();

    EXPECT_EQ(std::string("earlier run\n") + kNewLog + "in first\n" + kEndLog,
              withoutPrefixes(readFile(first)));
    EXPECT_EQ(std::string(kNewLog) + "in second\n" + kEndLog, withoutPrefixes(readFile(second)));
}

// An unopenable path sends everything to standard output; closing does not close it.
TEST_F(DebugLogTest, UnopenablePathFallsBackToStdout) {
    const struct {
        const char* path;
        const char* errorLine;
    } cases[] = {
        {"", "Error opening File \"\"\n"},
        {"/nonexistent-hm-dir/trace.log", "Error opening File \"/nonexistent-hm-dir/trace.log\"\n"},
    };
    for (const auto& c : cases) {
        testing::internal::CaptureStdout();
        openDebugLog(c.path, 10);
        debugLog("to stdout %d\n", 7);
        closeDebugLog();
        printf("stdout still open\n");
        fflush(stdout);
        std::string out = testing::internal::GetCapturedStdout();
        EXPECT_EQ(std::string(c.errorLine) + "All messages will go to stdout\n" + kNewLog + "to stdout 7\n" +
                      kEndLog + "stdout still open\n",
                  withoutPrefixes(out))
            << c.path;
    }
}

TEST_F(DebugLogTest, NullPathUsesStdoutWithoutBanner) {
    testing::internal::CaptureStdout();
    openDebugLog(nullptr, 10);
    debugLog("plain\n");
    closeDebugLog();
    EXPECT_EQ(std::string("plain\n") + kEndLog, withoutPrefixes(testing::internal::GetCapturedStdout()));
}

// Lines traced from several threads stay whole and name their own thread.
TEST_F(DebugLogTest, ConcurrentTracesKeepTheirLines) {
    std::string path = dir.file("trace.log");
    openDebugLog(path.c_str(), 10);
    constexpr int kThreads = 4;
    constexpr int kLines = 200;
    std::vector<std::thread> threads;
    std::vector<unsigned> ids(kThreads);
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t, &ids] {
            ids[t] = GetCurrentThreadId();
            for (int i = 0; i < kLines; ++i) {
                debugLog("thread %d line %d\n", t, i);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    closeDebugLog();

    std::istringstream trace(readFile(path));
    std::string line;
    std::regex lineShape(R"(\d\d:\d\d:\d\d: \((\d+)\) thread (\d) line (\d+))");
    int counted = 0;
    while (std::getline(trace, line)) {
        if (line.find("Log ****") != std::string::npos) {
            continue;
        }
        std::smatch m;
        ASSERT_TRUE(std::regex_match(line, m, lineShape)) << line;
        EXPECT_EQ(std::to_string(ids[std::stoi(m[2].str())]), m[1].str()) << line;
        ++counted;
    }
    EXPECT_EQ(kThreads * kLines, counted);
}

} // namespace
