// The SMBIOS inventory: name-to-code conversions, the record queries, the memory array
// details, the exported counters and the start-up load, over scripted service answers.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "core/hmClientApi.h"
#include "platform/smbiosInventory.h"
#include "sensorTestSupport.h"

namespace {

using sensortest::node;

using Fields = std::vector<std::pair<std::string, std::string>>;

class SmbiosInventoryTest : public sensortest::ScriptedTest {
protected:
    // Answers `base` with one entry per (sub-key, value).
    void answerRecord(const std::string& base, const Fields& fields) {
        script->answers[base].clear();
        for (const auto& f : fields)
            script->answers[base][base + "/" + f.first] = node({f.second});
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
    for (const auto& c : cases) {
        SCOPED_TRACE(c.answers[0]);
        Fields fields;
        for (size_t k = 0; k < 7; ++k)
            if (c.answers[k] != nullptr)
                fields.emplace_back(keys[k], c.answers[k]);
        answerRecord("/SMBIOS/ProcessorInfo[1]", fields);
        SmbiosProcessorRecord p = {};
        p.ProcessorType = 77;
        p.ProcessorFamily = 77;
        EXPECT_EQ(0, getProcessorPresentInfo(1, &p));
        EXPECT_EQ((std::vector<uint32_t>{p.Upgrade, p.Voltage, p.ProcessorType, p.ProcessorFamily,
                                         p.ExternalClock, p.MaxSpeed, p.CurrentSpeed}),
                  c.expected);
    }
}

TEST_F(SmbiosInventoryTest, MemoryDeviceNamesAndTypeDetail) {
    const struct {
        Fields answers;
        uint32_t formFactor, memoryType, typeDetail;
    } cases[] = {
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
    for (const auto& c : cases) {
        SCOPED_TRACE(c.answers[0].first + "=" + c.answers[0].second);
        answerRecord("/SMBIOS/MemoryArray[0]/MemoryDevice[3]", c.answers);
        SmbiosMemoryDeviceRecord record = {};
        record.FormFactor = 5;
        record.MemoryType = 5;
        record.TypeDetail = 99;
        EXPECT_EQ(0, getMemoryDeviceInfo(0, 3, &record));
        EXPECT_EQ((std::vector<uint32_t>{c.formFactor, c.memoryType, c.typeDetail}),
                  (std::vector<uint32_t>{record.FormFactor, record.MemoryType, record.TypeDetail}));
    }
}

TEST_F(SmbiosInventoryTest, MemoryArrayRecordAlwaysOnTheSystemBoard) {
    answerRecord("/SMBIOS/MemoryArray[2]", {{"Location", "Proprietary add-on card"},
                                            {"Use", "Video RAM"},
                                            {"MemoryErrorCorrection", "ECC"},
                                            {"MaxCapacity", "1048576"},
                                            {"MemoryErrorInfoHandle", "65534"},
                                            {"NumMemoryDevices", "4"},
                                            {"TotalNoOfDevicePresent", "3"}});
    SmbiosMemoryArrayRecord record = {};
    record.Use = record.MemoryErrorCorrection = 9;
    EXPECT_EQ(0, getPhyMemDevArrayInfo(2, &record));
    // Location 3 whatever the answer; an unknown use is kept (9), an unknown correction is 2.
    EXPECT_EQ((std::vector<uint32_t>{3, 9, 2, 1048576, 65534, 4, 3}),
              (std::vector<uint32_t>{uint32_t(record.Location), uint32_t(record.Use),
                                     uint32_t(record.MemoryErrorCorrection), record.MaxCapacity,
                                     record.MemoryErrorInfoHandle, record.NumMemoryDevices,
                                     record.TotalNoOfDevicePresent}));
    // A failed query leaves the record.
    script->failures["/SMBIOS/MemoryArray[2]"] = {sensortest::failure(1, 1083, "no such instance"),
                                                  sensortest::failure(1, 1081, "unknown path")};
    record.Use = 4;
    EXPECT_EQ(0, getPhyMemDevArrayInfo(2, &record));
    EXPECT_EQ(4, record.Use);
}

TEST_F(SmbiosInventoryTest, MissingEntriesLeaveFieldsAndLongTextsAreCut) {
    const std::string longName(600, 'x');
    answerRecord("/SMBIOS/ProcessorInfo[0]", {{"SocketDesignation", longName}, {"PartNumber", ""}});
    SmbiosProcessorRecord record = {};
    strcpy(record.Version, "kept");
    strcpy(record.PartNumber, "old");
    getProcessorPresentInfo(0, &record);
    EXPECT_EQ(std::string(kInventoryTextSize - 1, 'x'), record.SocketDesignation);
    EXPECT_STREQ("kept", record.Version);
    EXPECT_STREQ("", record.PartNumber);
}

// A counter reads 0 when unanswered and keeps the caller's value when its query fails. The
// start-up load fails only when neither the processor nor the array count is answered.
TEST_F(SmbiosInventoryTest, CountersAndLoad) {
    EXPECT_EQ(CLIENT_SUCCESS, loadSmbiosInventory()); // answered, nothing there
    script->value("/SMBIOS/ProcessorInfo/TotalNoOfProcessorPresent", "2");
    script->value("/SMBIOS/MemoryArray[1]/NumMemoryDevices", "6");
    script->value("/SMBIOS/MemoryArray[1]/TotalNoOfDevicePresent", "5");
    script->failures["/SMBIOS/MemoryArray/TotalNoOfArray"] = {sensortest::failure(1, 1086, "unavailable")};
    uint32_t n[5] = {7, 7, 7, 7, 7};
    EXPECT_EQ((std::vector<int32_t>{getNumberOfProcessor(&n[0]), getNumberOfProcessorPresent(&n[1]),
                                    getNumberOfPhysicalMemoryArray(&n[2]), getNumberOfMemoryDevice(1, &n[3]),
                                    getNumberOfMemoryDevicePresent(1, &n[4])}),
              (std::vector<int32_t>{0, 0, 0, 0, 0}));
    EXPECT_EQ((std::vector<uint32_t>(n, n + 5)), (std::vector<uint32_t>{0, 2, 7, 6, 5}));
    EXPECT_EQ(CLIENT_SUCCESS, loadSmbiosInventory());
    script->failures["/SMBIOS/ProcessorInfo/TotalNoOfProcessor"] = {
        sensortest::failure(1, 1086, "unavailable")};
    EXPECT_EQ(SMBIOS_ERROR_UNAVAILABLE, loadSmbiosInventory());
}

TEST_F(SmbiosInventoryTest, MemoryArrayDetailsListPresentDevicesBehindEmptySlotsOrNothing) {
    for (const auto& kv :
         Fields{{"/SMBIOS/MemoryArray/TotalNoOfArray", "2"},
                {"/SMBIOS/MemoryArray[0]/NumMemoryDevices", "3"},
                {"/SMBIOS/MemoryArray[0]/TotalNoOfDevicePresent", "2"},
                {"/SMBIOS/MemoryArray[0]/MemoryDevice[0]/DevicePresent", "False"},
                {"/SMBIOS/MemoryArray[0]/MemoryDevice[1]/DevicePresent", "True"},
                {"/SMBIOS/MemoryArray[0]/MemoryDevice[2]/DevicePresent", "True"},
                {"/SMBIOS/MemoryArray[1]/NumMemoryDevices", "1"},
                {"/SMBIOS/MemoryArray[1]/TotalNoOfDevicePresent", "0"},
                {"/SMBIOS/MemoryArray[1]/MemoryDevice[0]/DevicePresent", "true"}}) // not "True"
        script->answers["/SMBIOS/MemoryArray"][kv.first] = node({kv.second});
    EXPECT_EQ(GetMemoryArrayDetails(), (MemoryArrayDetails{{0, {1, 2}}, {1, {}}}));
    script->failures["/SMBIOS/MemoryArray"] = {sensortest::failure(1, 1086, "unavailable")};
    EXPECT_TRUE(GetMemoryArrayDetails().empty());
}

} // namespace
