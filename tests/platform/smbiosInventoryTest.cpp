// The SMBIOS inventory: name-to-code conversions, the record queries, the memory array
// details, the exported counters and the start-up load, over scripted service answers.
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cstring>
#include <string>
#include <vector>

#include "core/hmClientApi.h"
#include "platform/smbiosInventory.h"
#include "sensorTestSupport.h"

namespace {

using sensortest::containsInOrder;
using sensortest::ScriptedResponder;

class SmbiosInventoryTest : public sensortest::TracedTest {
protected:
    // Answers `base` with one entry per (sub-key, value).
    void answerRecord(ScriptedResponder& r, const std::string& base,
                      const std::vector<std::pair<std::string, std::string>>& fields) {
        QueryResult result;
        for (const auto& f : fields)
            result[base + "/" + f.first] = ScriptedResponder::node({f.second});
        r.answers[base] = result;
    }
};

// Names and numbers of a processor record; an unanswered field keeps its value (77 for the
// type and family, 0 for the rest), and so does an unknown type or family name.
TEST_F(SmbiosInventoryTest, ProcessorNamesAndNumbers) {
    const char* const keys[] = {"Upgrade",        "VoltageCapability", "ProcessorType", "ProcessorFamily",
                                "ClockFrequency", "MaxSpeed",          "CurrentSpeed"};
    const struct {
        std::vector<const char*> answers; // by key, null: none
        std::vector<uint32_t> expected;   // Upgrade, Voltage, type, family, clock, max and current speed
    } cases[] = {
        {{"Socket F", "1.2V", "Central processor", "Xeon", "133", "3600MHz", "abc"},
         {24, 1200, 3, 179, 133, 3600, 0}},
        {{"ZIF Socket", "3.3V", "videoProcessor", "Opteron", nullptr, nullptr, nullptr},
         {4, 3300, 6, 77, 0, 0, 0}},
        {{"Socket LGA2011", "V", "Unknown", nullptr, nullptr, nullptr, nullptr}, {2, 0, 77, 77, 0, 0, 0}},
        {{"socket f", nullptr, nullptr, nullptr, nullptr, nullptr, nullptr}, {2, 0, 77, 77, 0, 0, 0}}};
    auto r = useScript();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.answers[0]);
        std::vector<std::pair<std::string, std::string>> fields;
        for (size_t k = 0; k < 7; ++k)
            if (c.answers[k] != nullptr)
                fields.emplace_back(keys[k], c.answers[k]);
        answerRecord(*r, "/SMBIOS/ProcessorInfo[1]", fields);
        SmbiosProcessorRecord p = {};
        p.ProcessorType = 77;
        p.ProcessorFamily = 77;
        EXPECT_EQ(0, getProcessorPresentInfo(1, &p));
        EXPECT_EQ((std::vector<uint32_t>{p.Upgrade, p.Voltage, p.ProcessorType, p.ProcessorFamily,
                                         p.ExternalClock, p.MaxSpeed, p.CurrentSpeed}),
                  c.expected);
    }
}

struct DeviceCase {
    std::vector<std::pair<std::string, std::string>> answers;
    uint32_t formFactor, memoryType, typeDetail;
};

TEST_F(SmbiosInventoryTest, MemoryDeviceNamesAndTypeDetail) {
    const DeviceCase cases[] = {
        // No type-detail entry: the field keeps its value.
        {{{"FormFactor", "DIMM"}, {"MemoryType", "DDR3"}}, 9, 21, 99},
        {{{"FormFactor", "Reserved"}, {"MemoryType", "DDR2 FB-DIMM"}}, 16, 20, 99},
        {{{"FormFactor", "Die"}, {"MemoryType", "DDR4"}}, 2, 2, 99},
        {{{"FormFactor", "FB-DIMM"}, {"MemoryType", "Other"}}, 15, 1, 99},
        // The type detail holds the last supported bit, not the sum.
        {{{"TypeDetail/Synchronous", "Supported"}, {"TypeDetail/CMOS", "Supported"}}, 5, 5, 256},
        {{{"TypeDetail/Synchronous", "Supported"}, {"TypeDetail/CMOS", "Not supported"}}, 5, 5, 128},
        {{{"TypeDetail/Non-volatile", "Supported"}, {"TypeDetail/Fast-paged", "Supported"}}, 5, 5, 4096},
        {{{"TypeDetail/EDO", "supported"}}, 5, 5, 99}};
    auto r = useScript();
    for (const DeviceCase& c : cases) {
        SCOPED_TRACE(c.answers[0].first + "=" + c.answers[0].second);
        answerRecord(*r, "/SMBIOS/MemoryArray[0]/MemoryDevice[3]", c.answers);
        SmbiosMemoryDeviceRecord record = {};
        record.FormFactor = 5;
        record.MemoryType = 5;
        record.TypeDetail = 99;
        EXPECT_EQ(0, getMemoryDeviceInfo(0, 3, &record));
        EXPECT_EQ((std::vector<uint32_t>{c.formFactor, c.memoryType, c.typeDetail}),
                  (std::vector<uint32_t>{record.FormFactor, record.MemoryType, record.TypeDetail}));
    }
}

TEST_F(SmbiosInventoryTest, MemoryArrayLocationIsAlwaysTheSystemBoard) {
    auto r = useScript();
    answerRecord(*r, "/SMBIOS/MemoryArray[2]",
                 {{"Location", "Proprietary add-on card"},
                  {"Use", "Video RAM"},
                  {"MemoryErrorCorrection", "ECC"},
                  {"MaxCapacity", "1048576"},
                  {"MemoryErrorInfoHandle", "65534"},
                  {"NumMemoryDevices", "4"},
                  {"TotalNoOfDevicePresent", "3"}});
    SmbiosMemoryArrayRecord record = {};
    record.Use = 9;
    record.MemoryErrorCorrection = 9;
    EXPECT_EQ(0, getPhyMemDevArrayInfo(2, &record));
    // Location 3 whatever the answer; an unknown use is kept (9), an unknown correction is 2.
    EXPECT_EQ((std::vector<uint32_t>{3, 9, 2, 1048576, 65534, 4, 3}),
              (std::vector<uint32_t>{uint32_t(record.Location), uint32_t(record.Use),
                                     uint32_t(record.MemoryErrorCorrection), record.MaxCapacity,
                                     record.MemoryErrorInfoHandle, record.NumMemoryDevices,
                                     record.TotalNoOfDevicePresent}));
    EXPECT_TRUE(containsInOrder(
        trace(), {"Locationcode=3\n", "\n MemoryErrorCorrection = 2:", "Value of maxMemoryCapacity=1048576\n",
                  "Inside MemoryErrorInfoHandle=65534\n", "\n Inside MemoryArray Number of Devices = 4"}));
}

TEST_F(SmbiosInventoryTest, MissingEntriesLeaveFieldsAndLongTextsAreCut) {
    auto r = useScript();
    const std::string longName(600, 'x');
    answerRecord(*r, "/SMBIOS/ProcessorInfo[0]", {{"SocketDesignation", longName}, {"PartNumber", ""}});
    SmbiosProcessorRecord record = {};
    strcpy(record.Version, "kept");
    record.MaxSpeed = 1234;
    strcpy(record.PartNumber, "old");
    getProcessorPresentInfo(0, &record);
    EXPECT_EQ(std::string(kInventoryTextSize - 1, 'x'), record.SocketDesignation);
    EXPECT_STREQ("kept", record.Version);
    EXPECT_EQ(1234u, record.MaxSpeed);
    EXPECT_STREQ("", record.PartNumber);
    EXPECT_TRUE(containsInOrder(trace(), {"ExeProcessorInfoQuery = /SMBIOS/ProcessorInfo[0]\n",
                                          "SocketDesignation=", "PartNumber=\n"}));
}

TEST_F(SmbiosInventoryTest, CountersKeepTheCallersValueOnFailureAndReadZeroWhenAbsent) {
    auto r = useScript();
    uint32_t count = 7;
    EXPECT_EQ(0, getNumberOfProcessor(&count)); // empty answer: 0
    EXPECT_EQ(0u, count);
    r->value("/SMBIOS/ProcessorInfo/TotalNoOfProcessorPresent", "2");
    EXPECT_EQ(0, getNumberOfProcessorPresent(&count));
    EXPECT_EQ(2u, count);
    r->failures["/SMBIOS/MemoryArray/TotalNoOfArray"] = {sensortest::failure(1, 1086, "unavailable")};
    count = 7;
    EXPECT_EQ(0, getNumberOfPhysicalMemoryArray(&count));
    EXPECT_EQ(7u, count);
    r->value("/SMBIOS/MemoryArray[1]/NumMemoryDevices", "6");
    EXPECT_EQ(0, getNumberOfMemoryDevice(1, &count));
    EXPECT_EQ(6u, count);
    r->value("/SMBIOS/MemoryArray[1]/TotalNoOfDevicePresent", "5");
    EXPECT_EQ(0, getNumberOfMemoryDevicePresent(1, &count));
    EXPECT_EQ(5u, count);
    EXPECT_TRUE(
        containsInOrder(trace(), {"\n The value of PhyArrIndex is 1",
                                  "\n Executing the query:/SMBIOS/MemoryArray[1]/NumMemoryDevices",
                                  "\n getNumberOfMemoryDevice completed for 1 and number of devices are 6 \n",
                                  "\n The value of Index is 1"}));
}

TEST_F(SmbiosInventoryTest, FailedRecordQueryIsTracedAndLeavesTheRecord) {
    auto r = useScript();
    r->failures["/SMBIOS/MemoryArray[0]"] = {sensortest::failure(1, 1083, "no such instance"),
                                             sensortest::failure(1, 1081, "unknown path")};
    SmbiosMemoryArrayRecord record = {};
    record.Use = 4;
    EXPECT_EQ(0, getPhyMemDevArrayInfo(0, &record));
    EXPECT_EQ(4, record.Use);
    EXPECT_NE(std::string::npos,
              trace().find(
                  "\n Query Failed:/SMBIOS/MemoryArray[0]Operation: 1on :/SMBIOS/MemoryArray[0] failed. "
                  "1083: no such instanceOperation: 1on :/SMBIOS/MemoryArray[0] failed. 1081: unknown path"));
}

TEST_F(SmbiosInventoryTest, MemoryArrayDetailsListPresentDevicesBehindEmptySlotsOrNothing) {
    auto r = useScript();
    QueryResult all;
    auto set = [&all](const std::string& k, const std::string& v) { all[k] = ScriptedResponder::node({v}); };
    set("/SMBIOS/MemoryArray/TotalNoOfArray", "2");
    set("/SMBIOS/MemoryArray[0]/NumMemoryDevices", "3");
    set("/SMBIOS/MemoryArray[0]/TotalNoOfDevicePresent", "2");
    set("/SMBIOS/MemoryArray[0]/MemoryDevice[0]/DevicePresent", "False");
    set("/SMBIOS/MemoryArray[0]/MemoryDevice[1]/DevicePresent", "True");
    set("/SMBIOS/MemoryArray[0]/MemoryDevice[2]/DevicePresent", "True");
    set("/SMBIOS/MemoryArray[1]/NumMemoryDevices", "1");
    set("/SMBIOS/MemoryArray[1]/TotalNoOfDevicePresent", "0");
    set("/SMBIOS/MemoryArray[1]/MemoryDevice[0]/DevicePresent", "true"); // not "True"
    r->answers["/SMBIOS/MemoryArray"] = all;
    MemoryArrayDetails details = GetMemoryArrayDetails();
    ASSERT_EQ(2u, details.size());
    EXPECT_EQ(0, details[0].first);
    EXPECT_EQ((std::vector<int>{1, 2}), details[0].second);
    EXPECT_EQ(1, details[1].first);
    EXPECT_TRUE(details[1].second.empty());
    EXPECT_TRUE(containsInOrder(
        trace(),
        {"\nExecuting Get Memory Array Details \n", "Size of resultMap is = 9\n ",
         "Total Memory array = 2\n ", "Array Name[0] = /SMBIOS/MemoryArray[0]\n ",
         "Search string =/SMBIOS/MemoryArray[0]/TotalNoOfDevicePresent\n ", "Total Device Present =2\n ",
         "Memory Device find string = /SMBIOS/MemoryArray[0]/MemoryDevice[0]/DevicePresent\n",
         "\nDevice Present = False\n ", "\t Device present 1\n ", "\t Device present 2\n ",
         "-->  This memory array contains memory = 0\n", "-->  This memory array contains memory = 1\n"}));

    r->failures["/SMBIOS/MemoryArray"] = {sensortest::failure(1, 1086, "unavailable")};
    EXPECT_TRUE(GetMemoryArrayDetails().empty());
    EXPECT_NE(std::string::npos, trace().find("\n error in getingf the memory details\n"));
}

TEST_F(SmbiosInventoryTest, LoadFailsOnlyWhenNeitherCountIsAnswered) {
    auto r = useScript();
    EXPECT_EQ(CLIENT_SUCCESS, loadSmbiosInventory()); // answered, nothing there
    r->failures["/SMBIOS/ProcessorInfo/TotalNoOfProcessor"] = {sensortest::failure(1, 1086, "unavailable")};
    EXPECT_EQ(CLIENT_SUCCESS, loadSmbiosInventory());
    r->failures["/SMBIOS/MemoryArray/TotalNoOfArray"] = {sensortest::failure(1, 1086, "unavailable")};
    EXPECT_EQ(SMBIOS_ERROR_UNAVAILABLE, loadSmbiosInventory());
}

TEST(SmbiosInventoryExports, TheSevenFunctionsAreExportedUnmangled) {
    // Kept loaded, as a host keeps it: the library's query object lives until the process ends.
    void* handle = dlopen(HM_SUBAGENT_LIBRARY, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    ASSERT_NE(nullptr, handle) << dlerror();
    const char* names[] = {"getNumberOfPhysicalMemoryArray", "getPhyMemDevArrayInfo",
                           "getNumberOfMemoryDevice",        "getNumberOfMemoryDevicePresent",
                           "getNumberOfProcessor",           "getNumberOfProcessorPresent",
                           "getProcessorPresentInfo"};
    for (const char* name : names)
        EXPECT_NE(nullptr, dlsym(handle, name)) << name;
    EXPECT_EQ(nullptr, dlsym(handle, "GetMemoryArrayDetails"));
    dlclose(handle);
}

} // namespace
