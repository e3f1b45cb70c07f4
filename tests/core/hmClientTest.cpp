#include "core/hmClient.h"

#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "core/debugLog.h"
#include "core/hmClientApi.h"
#include "core/systemManagement.h"
#include "support/files.h"
#include "tables/BaseAccessor.h"

namespace {

using namespace hmtest;

const std::string kDataDir = std::string(HM_TEST_DATA_DIR) + "/core";
const std::string kRegHeader = "Windows Registry Editor Version 5.00\n\n";
const std::string kRegKey =
    kRegHeader + "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Arveni\\FleetwatchSNMP\\Parameters]\n";

uint32_t put(int32_t* to, int32_t value) {
    *to = value;
    return CLIENT_SUCCESS;
}

// A group whose answers are fixed by the test; records the seeding calls it receives.
struct FakeGroup : BaseAccessor {
    FakeGroup(uint32_t entity, int maxStatus, std::vector<uint32_t>* seeded)
        : m_entity(entity), m_maxStatus(maxStatus), m_seeded(seeded) {}
    int32_t code(int a, int i) const { return static_cast<int32_t>(m_entity * 1000000 + a * 1000 + i); }
    uint32_t getIntInfo(int a, int i, int32_t* v) override { return put(v, code(a, i)); }
    uint32_t getIntData(int a, int i, int32_t* v) override { return put(v, -code(a, i)); }
    uint32_t getStrInfo(int, int, char** value) override { return copyOutText(m_name.c_str(), value); }
    uint32_t getStrData(int, int, char**) override { return 77; }
    uint32_t setIntData(int, int, int32_t value) override { return static_cast<uint32_t>(value); }
    int getCount() override { return static_cast<int>(m_entity) * 10; }
    int findIndexById(uint32_t id) override { return static_cast<int>(id) + 1; }
    int getMaxStatus() override { return m_maxStatus; }
    const char* getDescription(int) override { return m_name.c_str(); }
    uint32_t seedHealth(eventHandler*) override {
        if (m_seeded != nullptr)
            m_seeded->push_back(m_entity);
        return CLIENT_SUCCESS;
    }
    void* getRow(int) override { return nullptr; }
    uint32_t allocTable(int) override { return CLIENT_SUCCESS; }
    uint32_t init() override { return CLIENT_SUCCESS; }
    uint32_t m_entity;
    int m_maxStatus;
    std::vector<uint32_t>* m_seeded;
    std::string m_name = "group " + std::to_string(m_entity);
};

// A client whose groups (status by entity, -1 = no group) are installed by the test.
class FakeGroupsClient : public hmClient {
public:
    explicit FakeGroupsClient(const std::vector<int>& status, std::vector<uint32_t>* seeded = nullptr) {
        m_pSystemManagement = new systemManagement();
        BaseAccessor** slots[] = {
            &m_pChassisInfo,     &m_pProcessorDevice,  &m_pPowerUnit,    &m_pPowerSupply, &m_pVoltageProbe,
            &m_pDiscreteVoltage, &m_pMemoryArray,      &m_pMemoryDevice, &m_pCoolingUnit, &m_pCoolingDevice,
            &m_pDiscreteCooling, &m_pTemperatureProbe, &m_pDriveSlot};
        for (uint32_t entity = 2; entity < status.size(); ++entity)
            if (status[entity] >= 0)
                *slots[entity - 2] = new FakeGroup(entity, status[entity], seeded);
    }
};

class HmClientTest : public ::testing::Test {
protected:
    void SetUp() override { setenv("HMSUBAGENT_REGISTRY", registry.c_str(), 1); }
    void TearDown() override {
        destroyHMClient();
        setClientFactory(nullptr);
        closeDebugLog();
        unsetenv("HMSUBAGENT_REGISTRY");
    }
    void writeRegistry(const std::string& configFile) {
        writeFile(registry,
                  kRegKey + "\"ConfigFile\"=\"" + configFile + "\"\n\"LogFile\"=\"" + trace + "\"\n");
    }

    TempDir dir;
    std::string registry = dir / "registry.reg";
    std::string trace = dir / "trace.log";
};

// A second start-up replaces the first client; the trace of the second shows every group
// started in order and the health lists seeded.
TEST_F(HmClientTest, StartUpRunsTheGroupsInOrderAndSeedsTheHealthLists) {
    writeRegistry(kDataDir + "/quiet.conf");
    ASSERT_EQ(CLIENT_SUCCESS, initHMClient());
    writeRegistry(kDataDir + "/hmsubagent.conf");
    testing::internal::CaptureStdout();
    ASSERT_EQ(CLIENT_SUCCESS, initHMClient());
    EXPECT_EQ("", testing::internal::GetCapturedStdout());
    std::string text = withoutPrefixes(readFile(trace));
    std::vector<std::string> expected = {
        "*********** New Log ****************\n", "ptKey=:trapsenabled:, stValue=:1:\n",
        "ptKey=:productdescription:, stValue=:Hardware monitoring test product:\n"};
    for (const char* group :
         {"Processor", "PowerSupply", "PowerUnit", "VoltageProbe", "MemoryArray", "MemoryDevice",
          "CoolingDevice", "DiscreteCooling", "TemperatureProbe", "DriveSlot"})
        expected.push_back(std::string("\n\n After ") + group + " Healthstatus is 2:");
    expected.insert(expected.end(), {"seedHealthLists() called\n", "\n End of seedHealthLists()"});
    EXPECT_TRUE(containsInOrder(text, expected));
    EXPECT_EQ(std::string::npos, text.find("exited with no data")); // every group starts
    ASSERT_NE(nullptr, gSubagent);
    EXPECT_NE(nullptr, gSubagent->getEventHandler());
    EXPECT_STREQ(trace.c_str(), static_cast<hmClient*>(gSubagent)->logFilePath());
    // Entity 1 reaches the system group (whose attributes its own tests cover).
    int32_t value = 0;
    char* sysText = nullptr;
    EXPECT_EQ(CLIENT_SUCCESS, getIntInfo(systemManagementEntity, 3, 0, &value));
    EXPECT_EQ(42, value);
    EXPECT_EQ(CLIENT_SUCCESS, getStrInfo(systemManagementEntity, 9, 1, &sysText));
    EXPECT_STREQ("0815", sysText);
    free(sysText);
    EXPECT_TRUE(isTrapsEnabled());
    EXPECT_FALSE(isSetsEnabled());
    EXPECT_TRUE(gSubagent->isDebugEnabled());
    EXPECT_EQ(1u, getTableSize(systemManagementEntity));
    EXPECT_EQ(2, getHealthstatus());
    setHealthstatus(5);
    EXPECT_EQ(5, getHealthstatus());
}

// An entity without a group, every call before start-up and after the tables are released
// answers 8 and hands out nothing.
void expectNoGroup(uint32_t entity) {
    int32_t value = 0;
    char* text = nullptr;
    EXPECT_EQ((std::vector<uint32_t>{getIntInfo(entity, 1, 0, &value), getIntData(entity, 1, 0, &value),
                                     getStrInfo(entity, 2, 1, &text), getStrData(entity, 2, 1, &text),
                                     setIntData(entity, 1, 0, 1), getTableSize(entity),
                                     getTableStatus(entity), findElementById(entity, 1)}),
              std::vector<uint32_t>(8, 8u))
        << entity;
    EXPECT_EQ(nullptr, getElementName(entity, 0)) << entity;
    EXPECT_EQ(nullptr, text) << entity;
}

TEST_F(HmClientTest, EntitiesWithoutAGroupAnswer8AndEmptyTablesTheirNoRowCode) {
    ASSERT_EQ(nullptr, gSubagent);
    expectNoGroup(1);
    expectNoGroup(3);
    addEvent(eventData{});
    setHealthstatus(5);
    seedHealth(3);
    releaseTables();
    EXPECT_EQ(8u, processEvent(nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(8, getHealthstatus());
    EXPECT_FALSE(isTrapsEnabled());
    EXPECT_FALSE(isSetsEnabled());

    writeRegistry(kDataDir + "/quiet.conf");
    ASSERT_EQ(CLIENT_SUCCESS, initHMClient());
    expectNoGroup(0);
    expectNoGroup(15);
    // On a server without sensors or inventory every table is empty: each answers with its own
    // no-row code and is left out of the MIB. The chassis group is a scalar group and keeps its one row.
    EXPECT_EQ(1u, getTableSize(2));
    const uint32_t tables[][3] = {{3, 27, 22},   {4, 44, 23},   {5, 50, 24},   {6, 55, 25},
                                  {7, 70, 26},   {8, 76, 2},    {9, 89, 2},    {10, 110, 29},
                                  {11, 117, 30}, {12, 132, 31}, {13, 138, 32}, {14, 153, 34}};
    for (const auto& t : tables) { // entity, attribute, no-row code
        SCOPED_TRACE(t[0]);
        int32_t value = 0;
        char* text = reinterpret_cast<char*>(&value);
        EXPECT_EQ(0u, getTableSize(t[0]));
        EXPECT_EQ(0u, getTableStatus(t[0]));
        EXPECT_EQ(0u, findElementById(t[0], 1));
        EXPECT_EQ(nullptr, getElementName(t[0], 0));
        EXPECT_EQ(t[2], getIntInfo(t[0], t[1], 0, &value));
        EXPECT_EQ(-1, value);
        EXPECT_EQ(t[2], getStrInfo(t[0], t[1] + 1, 0, &text));
        EXPECT_EQ(nullptr, text);
    }
    releaseTables();
    releaseTables();
    EXPECT_EQ(8u, getTableSize(systemManagementEntity));
    EXPECT_EQ(nullptr, gSubagent->getEventHandler());
    EXPECT_EQ(8u, processEvent(nullptr, nullptr, nullptr, nullptr));
}

// Registry and configuration failures: start-up goes on silently with an empty system group;
// with the trace already open, the failure is traced.
TEST_F(HmClientTest, RegistryAndConfigurationFailures) {
    const std::string absent = dir / "absent.conf", quiet = kDataDir + "/quiet.conf";
    const std::string opening = "Error opening SNMP Parameters registry key\n";
    const struct {
        std::string registryFile, traced, config, log; // registryFile "" = none
    } cases[] = {
        {"", opening, "", ""},
        {kRegHeader + "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Other]\n", opening, "", ""},
        {kRegKey + "\"LogFile\"=\"/tmp/unused.log\"\n", "Error retrieving ConfigFile registry key value\n",
         "", ""},
        {kRegKey + "\"ConfigFile\"=\"" + quiet + "\"\n", "Error retrieving LogFile registry key value\n",
         quiet, ""},
        {kRegKey + "\"ConfigFile\"=\"" + absent + "\"\n\"LogFile\"=\"" + trace + "\"\n", "", absent, trace},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.registryFile);
        remove(registry.c_str());
        if (!c.registryFile.empty())
            writeFile(registry, c.registryFile);
        testing::internal::CaptureStdout();
        EXPECT_EQ(CLIENT_SUCCESS, initHMClient());
        EXPECT_EQ("", testing::internal::GetCapturedStdout());
        EXPECT_FALSE(gSubagent->isDebugEnabled());
        EXPECT_EQ(c.config == quiet, isTrapsEnabled());
        EXPECT_EQ(1u, getTableSize(systemManagementEntity));
        EXPECT_EQ(2, getHealthstatus());
        EXPECT_FALSE(fileExists(trace));

        openDebugLog(trace.c_str(), 10);
        EXPECT_EQ(CLIENT_SUCCESS, initHMClient());
        closeDebugLog();
        EXPECT_TRUE(containsInOrder(
            withoutPrefixes(readFile(trace)),
            {c.traced, "systemManagement::systemManagement()\n", "systemManagement::init() called.\n",
             "ConfigFile:" + c.config + ":  LogFile:" + c.log + ":\n",
             c.config == quiet ? "" : "\nhmClient::init about to init systemManagement exited with no data\n",
             "\n\n After Processor Healthstatus is 2:"}));
        remove(trace.c_str());
        EXPECT_EQ(c.log, static_cast<hmClient*>(gSubagent)->logFilePath());
    }
}

TEST(HmClientHealth, WorstCountedGroupStatus) {
    const struct {
        const char* name;
        std::vector<int> status; // by entity; -1 = no group
        int32_t expected;
    } cases[] = {
        //                        entity: 0   1   2  3  4  5  6  7  8  9 10 11 12 13 14
        {"allOk", /*                   */ {-1, -1, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3}, 3},
        {"oneCriticalProbe", /*        */ {-1, -1, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 5, 3}, 5},
        {"worstWins", /*               */ {-1, -1, 3, 4, 3, 6, 3, 3, 3, 5, 3, 3, 3, 3, 3}, 6},
        {"driveSlotsCount", /*         */ {-1, -1, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 4}, 4},
        {"sevenAndAboveIgnored", /*    */ {-1, -1, 3, 7, 8, 9, 3, 3, 3, 3, 3, 3, 3, 3, 3}, 3},
        {"chassisDiscreteVoltageCoolingUnitIgnored", {-1, -1, 6, 3, 3, 3, 3, 6, 3, 3, 6, 3, 3, 3, 3}, 3},
        {"emptyGroupsLeaveUnknown", /* */ {-1, -1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, 2},
        {"otherIsBetterThanUnknown", /**/ {-1, -1, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, 2},
        {"missingGroupsIgnored", /*    */ {-1, -1, -1, -1, -1, 4}, 4},
    };
    for (const auto& c : cases) {
        FakeGroupsClient client(c.status);
        client.computeHealthStatus();
        EXPECT_EQ(c.expected, client.getHealthstatus()) << c.name;
    }
}

TEST(HmClientHealth, EachStepIsTracedAndSeedingSkipsDriveSlots) {
    TempDir dir;
    std::vector<uint32_t> seeded;
    FakeGroupsClient client({-1, -1, 3, 3, 4, 3, 3, 3, 3, 3, 3, 3, 3, 5, 3}, &seeded);
    openDebugLog((dir / "trace.log").c_str(), 10);
    client.computeHealthStatus();
    closeDebugLog();
    EXPECT_EQ("*********** New Log ****************\n"
              "\n\n After Processor Healthstatus is 3:\n\n After PowerSupply Healthstatus is 3:"
              "\n\n After PowerUnit Healthstatus is 4:\n\n After VoltageProbe Healthstatus is 4:"
              "\n\n After MemoryArray Healthstatus is 4:\n\n After MemoryDevice Healthstatus is 4:"
              "\n\n After CoolingDevice Healthstatus is 4:\n\n After DiscreteCooling Healthstatus is 4:"
              "\n\n After TemperatureProbe Healthstatus is 5:\n\n After DriveSlot Healthstatus is 5:"
              "*********** End Log ****************\n",
              withoutPrefixes(readFile(dir / "trace.log")));
    client.seedHealthLists();
    EXPECT_EQ((std::vector<uint32_t>{3, 5, 4, 6, 8, 9, 11, 12, 13}), seeded);
}

// Routing: every entity reaches its own group, with attribute and index unchanged.
TEST(HmClientRouting, EachEntityReachesItsGroup) {
    FakeGroupsClient client({-1, -1, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3});
    for (uint32_t entity = 2; entity <= 14; ++entity) {
        SCOPED_TRACE(entity);
        const std::string name = "group " + std::to_string(entity);
        int32_t value = 0;
        char* text = nullptr;
        EXPECT_EQ(entity * 10, client.getTableSize(entity));
        EXPECT_EQ(CLIENT_SUCCESS, client.getIntInfo(entity, 7, 3, &value));
        EXPECT_EQ(static_cast<int32_t>(entity * 1000000 + 7003), value);
        EXPECT_EQ(CLIENT_SUCCESS, client.getIntData(entity, 8, 4, &value));
        EXPECT_EQ(-static_cast<int32_t>(entity * 1000000 + 8004), value);
        EXPECT_EQ(77u, client.getStrData(entity, 1, 0, nullptr));
        EXPECT_EQ(55u, client.setIntData(entity, 1, 0, 55));
        EXPECT_EQ(6u, client.findElementById(entity, 5));
        EXPECT_EQ(name, client.getElementName(entity, 0));
        EXPECT_EQ(CLIENT_SUCCESS, client.getStrInfo(entity, 1, 0, &text));
        EXPECT_EQ(name, std::string(text));
        free(text);
    }
}

struct PartlyStarted : FakeGroupsClient {
    PartlyStarted() : FakeGroupsClient({-1, -1, -1, 3}) {}
    uint32_t init() override { return 17; }
    void placeGroups() { m_bGroupsInPlace = true; }
};

// Start-up goes through the factory. Once the groups are in place, a group whose object could
// not be made stays empty: no instance rows in the MIB, and an event of its kind names
// instance 0; before that, and for entities outside 1..14, the answer is 8.
TEST(HmClientFactory, StartsTheFactoryClientAndGroupsThatCouldNotBeMadeAreEmpty) {
    setClientFactory([]() -> subagentBase* { return new PartlyStarted(); });
    EXPECT_EQ(17u, initHMClient());
    EXPECT_EQ(30u, getTableSize(processorDeviceEntity));
    EXPECT_EQ(8u, getTableSize(powerUnitEntity));
    static_cast<PartlyStarted*>(gSubagent)->placeGroups();
    for (uint32_t entity : {chassisInfoEntity, powerUnitEntity, driveSlotEntity}) {
        EXPECT_EQ(0u, getTableSize(entity)) << entity;
        EXPECT_EQ(0u, findElementById(entity, 5)) << entity;
    }
    EXPECT_EQ(8u, getTableSize(15));
    EXPECT_EQ(8u, findElementById(0, 5));
    destroyHMClient();
    setClientFactory(nullptr);
    EXPECT_EQ(nullptr, gSubagent);
}

TEST(HealthAndStatusNames, MapBothWays) {
    const struct {
        const char* name;
        int32_t status;
    } names[] = {{"Monitor", 1}, {"Information", 1}, {"OK", 3}, {"Degraded", 4},
                 {"Error", 5},   {"Fatal", 6},       {"ok", 2}, {"OK ", 2},
                 {"error", 2},   {"FATAL", 2},       {"", 2},   {"Informational", 2},
                 {"Monito", 2},  {nullptr, 2}};
    for (const auto& c : names)
        EXPECT_EQ(c.status, mapHealthNameToStatus(c.name)) << (c.name ? c.name : "null");
    const char* statusNames[] = {nullptr,       nullptr,    "other",          "unknown", "ok",
                                 "nonCritical", "critical", "nonRecoverable", nullptr,   nullptr};
    for (int32_t status = -1; status <= 8; ++status)
        EXPECT_STREQ(statusNames[status + 1], mapStatusToName(status)) << status;
}

} // namespace
