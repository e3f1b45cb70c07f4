#include "core/hmClient.h"

#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "core/debugLog.h"
#include "core/hmClientApi.h"
#include "core/systemManagement.h"
#include "coreTestSupport.h"
#include "tables/BaseAccessor.h"

namespace {

using hmtest::containsInOrder;
using hmtest::readFile;
using hmtest::registryText;
using hmtest::ScratchDir;
using hmtest::withoutPrefixes;

const std::string kDataDir = std::string(HM_TEST_DATA_DIR) + "/core";

// A group whose answers are fixed by the test; records the seeding calls it receives.
class FakeGroup : public BaseAccessor {
public:
    FakeGroup(uint32_t entity, int maxStatus, std::vector<uint32_t>* seeded = nullptr)
        : m_entity(entity), m_maxStatus(maxStatus), m_seeded(seeded) {}

    uint32_t getIntInfo(int attribute, int index, int32_t* value) override {
        *value = static_cast<int32_t>(m_entity * 1000000 + attribute * 1000 + index);
        return CLIENT_SUCCESS;
    }
    uint32_t getIntData(int attribute, int index, int32_t* value) override {
        *value = -static_cast<int32_t>(m_entity * 1000000 + attribute * 1000 + index);
        return CLIENT_SUCCESS;
    }
    uint32_t getStrInfo(int, int, char** value) override { return copyOutText(m_name.c_str(), value); }
    uint32_t getStrData(int, int, char**) override { return 77; }
    uint32_t setIntData(int, int, int32_t value) override { return static_cast<uint32_t>(value); }
    int getCount() override { return static_cast<int>(m_entity) * 10; }
    int findIndexById(uint32_t id) override { return static_cast<int>(id) + 1; }
    int getMaxStatus() override { return m_maxStatus; }
    const char* getDescription(int) override { return m_name.c_str(); }
    uint32_t seedHealth(eventHandler*) override {
        if (m_seeded != nullptr) {
            m_seeded->push_back(m_entity);
        }
        return CLIENT_SUCCESS;
    }
    void* getRow(int) override { return nullptr; }
    uint32_t allocTable(int) override { return CLIENT_SUCCESS; }
    uint32_t init() override { return CLIENT_SUCCESS; }

private:
    uint32_t m_entity;
    int m_maxStatus;
    std::vector<uint32_t>* m_seeded;
    std::string m_name = "group " + std::to_string(m_entity);
};

// A client whose groups are installed by the test instead of started from the platform.
class FakeGroupsClient : public hmClient {
public:
    explicit FakeGroupsClient(const std::vector<int>& statusByEntity,
                              std::vector<uint32_t>* seeded = nullptr) {
        m_pSystemManagement = new systemManagement();
        for (uint32_t entity = 2; entity <= 14; ++entity) {
            int status = entity < statusByEntity.size() ? statusByEntity[entity] : -1;
            if (status >= 0) {
                slot(entity) = new FakeGroup(entity, status, seeded);
            }
        }
    }

private:
    BaseAccessor*& slot(uint32_t entity) {
        switch (entity) {
        case chassisInfoEntity:
            return m_pChassisInfo;
        case processorDeviceEntity:
            return m_pProcessorDevice;
        case powerUnitEntity:
            return m_pPowerUnit;
        case powerSupplyEntity:
            return m_pPowerSupply;
        case voltageProbeEntity:
            return m_pVoltageProbe;
        case discreteVoltageEntity:
            return m_pDiscreteVoltage;
        case memoryArrayEntity:
            return m_pMemoryArray;
        case memoryDeviceEntity:
            return m_pMemoryDevice;
        case coolingUnitEntity:
            return m_pCoolingUnit;
        case coolingDeviceEntity:
            return m_pCoolingDevice;
        case discreteCoolingEntity:
            return m_pDiscreteCooling;
        case temperatureProbeEntity:
            return m_pTemperatureProbe;
        default:
            return m_pDriveSlot;
        }
    }
};

class HmClientTest : public ::testing::Test {
protected:
    void SetUp() override {
        registry = dir.file("registry.reg");
        trace = dir.file("trace.log");
        setenv("HMSUBAGENT_REGISTRY", registry.c_str(), 1);
    }
    void TearDown() override {
        destroyHMClient();
        setClientFactory(nullptr);
        closeDebugLog();
        unsetenv("HMSUBAGENT_REGISTRY");
    }
    void writeRegistry(const std::string& configFile, const std::string& logFile) {
        hmtest::writeFile(registry, registryText("\"ConfigFile\"=\"" + configFile + "\"\n\"LogFile\"=\"" +
                                                 logFile + "\"\n"));
    }

    ScratchDir dir;
    std::string registry;
    std::string trace;
};

TEST_F(HmClientTest, StartUpRunsTheGroupsInOrderAndSeedsTheHealthLists) {
    writeRegistry(kDataDir + "/hmsubagent.conf", trace);
    testing::internal::CaptureStdout();
    ASSERT_EQ(CLIENT_SUCCESS, initHMClient());
    EXPECT_EQ("", testing::internal::GetCapturedStdout());

    std::string text = withoutPrefixes(readFile(trace));
    EXPECT_TRUE(containsInOrder(
        text, {"*********** New Log ****************\n", "ptKey=:trapsenabled:, stValue=:1:\n",
               "ptKey=:productdescription:, stValue=:Hardware monitoring test product:\n",
               "\n\n After Processor Healthstatus is 2:", "\n\n After PowerSupply Healthstatus is 2:",
               "\n\n After PowerUnit Healthstatus is 2:", "\n\n After VoltageProbe Healthstatus is 2:",
               "\n\n After MemoryArray Healthstatus is 2:", "\n\n After MemoryDevice Healthstatus is 2:",
               "\n\n After CoolingDevice Healthstatus is 2:", "\n\n After DiscreteCooling Healthstatus is 2:",
               "\n\n After TemperatureProbe Healthstatus is 2:", "\n\n After DriveSlot Healthstatus is 2:",
               "seedHealthLists() called\n", "\n End of seedHealthLists()"}));
    // Every group starts (empty for now), so no group reports a failure.
    EXPECT_EQ(std::string::npos, text.find("exited with no data"));
    ASSERT_NE(nullptr, gSubagent);
    EXPECT_NE(nullptr, gSubagent->getEventHandler());
    EXPECT_STREQ(trace.c_str(), static_cast<hmClient*>(gSubagent)->logFilePath());
}

TEST_F(HmClientTest, SystemGroupThroughTheFacade) {
    writeRegistry(kDataDir + "/quiet.conf", trace);
    ASSERT_EQ(CLIENT_SUCCESS, initHMClient());
    writeRegistry(kDataDir + "/hmsubagent.conf", trace);
    ASSERT_EQ(CLIENT_SUCCESS, initHMClient()); // a second start-up replaces the first client

    const struct {
        uint32_t attribute;
        int32_t expected;
    } ints[] = {{1, 2}, {3, 42}, {4, 1}, {5, 0}};
    for (const auto& c : ints) {
        int32_t value = 0;
        EXPECT_EQ(CLIENT_SUCCESS, getIntInfo(systemManagementEntity, c.attribute, 0, &value)) << c.attribute;
        EXPECT_EQ(c.expected, value) << c.attribute;
    }
    const struct {
        uint32_t attribute;
        const char* expected;
    } texts[] = {{2, "Test rack server"},
                 {6, "Example Systems"},
                 {7, "Example Server X1"},
                 {8, "2.1"},
                 {9, "0815"},
                 {10, "Hardware monitoring test product"}};
    for (const auto& c : texts) {
        char* value = nullptr;
        EXPECT_EQ(CLIENT_SUCCESS, getStrInfo(systemManagementEntity, c.attribute, 1, &value)) << c.attribute;
        EXPECT_STREQ(c.expected, value) << c.attribute;
        free(value);
    }
    EXPECT_TRUE(isTrapsEnabled());
    EXPECT_FALSE(isSetsEnabled());
    EXPECT_TRUE(gSubagent->isDebugEnabled());
    EXPECT_EQ(1u, getTableSize(systemManagementEntity));
    EXPECT_EQ(2, getHealthstatus());
    setHealthstatus(5);
    EXPECT_EQ(5, getHealthstatus());
}

// On a server without sensors or inventory every table is empty: each answers with its own
// no-row code and is left out of the MIB. The chassis group is a scalar group and keeps its one row.
TEST_F(HmClientTest, EmptyTablesAnswerTheirNoRowCode) {
    writeRegistry(kDataDir + "/quiet.conf", trace);
    ASSERT_EQ(CLIENT_SUCCESS, initHMClient());
    EXPECT_EQ(1u, getTableSize(2));
    const struct {
        uint32_t entity;
        uint32_t attribute;
        uint32_t noRow;
    } tables[] = {{3, 27, 22}, {4, 44, 23},   {5, 50, 24},   {6, 55, 25},   {7, 70, 26},   {8, 76, 2},
                  {9, 89, 2},  {10, 110, 29}, {11, 117, 30}, {12, 132, 31}, {13, 138, 32}, {14, 153, 34}};
    for (const auto& t : tables) {
        int32_t value = 0;
        char* text = reinterpret_cast<char*>(&value);
        EXPECT_EQ(0u, getTableSize(t.entity)) << t.entity;
        EXPECT_EQ(0u, getTableStatus(t.entity)) << t.entity;
        EXPECT_EQ(0u, findElementById(t.entity, 1)) << t.entity;
        EXPECT_EQ(nullptr, getElementName(t.entity, 0)) << t.entity;
        EXPECT_EQ(t.noRow, getIntInfo(t.entity, t.attribute, 0, &value)) << t.entity;
        EXPECT_EQ(-1, value) << t.entity;
        EXPECT_EQ(t.noRow, getStrInfo(t.entity, t.attribute + 1, 0, &text)) << t.entity;
        EXPECT_EQ(nullptr, text) << t.entity;
    }
}

// An entity without a group, and every call before start-up, answers 8 and hands out nothing.
void expectNoGroup(uint32_t entity) {
    SCOPED_TRACE(entity);
    int32_t value = 0;
    char* text = nullptr;
    EXPECT_EQ(8u, getIntInfo(entity, 1, 0, &value));
    EXPECT_EQ(8u, getIntData(entity, 1, 0, &value));
    EXPECT_EQ(8u, getStrInfo(entity, 2, 1, &text));
    EXPECT_EQ(8u, getStrData(entity, 2, 1, &text));
    EXPECT_EQ(8u, setIntData(entity, 1, 0, 1));
    EXPECT_EQ(8u, getTableSize(entity));
    EXPECT_EQ(8u, getTableStatus(entity));
    EXPECT_EQ(8u, findElementById(entity, 1));
    EXPECT_EQ(nullptr, getElementName(entity, 0));
    EXPECT_EQ(nullptr, text);
}

TEST_F(HmClientTest, UnknownEntitiesAnswer8) {
    writeRegistry(kDataDir + "/quiet.conf", trace);
    ASSERT_EQ(CLIENT_SUCCESS, initHMClient());
    expectNoGroup(0);
    expectNoGroup(15);
}

TEST_F(HmClientTest, FreeFunctionsWithoutAClientDoNotCrash) {
    ASSERT_EQ(nullptr, gSubagent);
    expectNoGroup(1);
    expectNoGroup(3);
    int32_t value = 0;
    EXPECT_EQ(8u, processEvent(nullptr, nullptr, nullptr, &value));
    EXPECT_EQ(8, getHealthstatus());
    EXPECT_FALSE(isTrapsEnabled());
    EXPECT_FALSE(isSetsEnabled());
    addEvent(eventData{});
    setHealthstatus(5);
    seedHealth(3);
    releaseTables();
}

// Registry failures are traced only when the trace is already open; start-up goes on and
// the system group reports that it found no configuration.
TEST_F(HmClientTest, RegistryFailuresAreTraced) {
    const std::string configValue = "\"ConfigFile\"=\"" + kDataDir + "/quiet.conf\"\n";
    const struct {
        const char* name;
        bool writeRegistryFile;
        std::string values;
        const char* expected;
    } cases[] = {
        {"noRegistryFile", false, "", "Error opening SNMP Parameters registry key\n"},
        {"noConfigFile", true, "\"LogFile\"=\"/tmp/unused.log\"\n",
         "Error retrieving ConfigFile registry key value\n"},
        {"noLogFile", true, configValue, "Error retrieving LogFile registry key value\n"},
    };
    for (const auto& c : cases) {
        remove(registry.c_str());
        if (c.writeRegistryFile) {
            hmtest::writeFile(registry, registryText(c.values));
        }
        openDebugLog(trace.c_str(), 10);
        EXPECT_EQ(CLIENT_SUCCESS, initHMClient()) << c.name;
        closeDebugLog();
        std::string text = withoutPrefixes(readFile(trace));
        remove(trace.c_str());
        EXPECT_TRUE(containsInOrder(text, {c.expected, "systemManagement::systemManagement()\n",
                                           "systemManagement::init() called.\n"}))
            << c.name;
        auto* client = static_cast<hmClient*>(gSubagent);
        EXPECT_STREQ("", client->logFilePath()) << c.name;
    }
}

TEST_F(HmClientTest, MissingConfigurationIsTracedAsAGroupWithNoData) {
    writeRegistry(dir.file("absent.conf"), trace);
    openDebugLog(trace.c_str(), 10);
    EXPECT_EQ(CLIENT_SUCCESS, initHMClient());
    closeDebugLog();
    std::string text = withoutPrefixes(readFile(trace));
    EXPECT_TRUE(
        containsInOrder(text, {"ConfigFile:" + dir.file("absent.conf") + ":  LogFile:" + trace + ":\n",
                               "\nhmClient::init about to init systemManagement exited with no data\n",
                               "\n\n After Processor Healthstatus is 2:"}));
    EXPECT_FALSE(isTrapsEnabled());
}

TEST_F(HmClientTest, MissingRegistryKeyStartsWithoutAnyTrace) {
    hmtest::writeFile(registry,
                      "Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Other]\n");
    testing::internal::CaptureStdout();
    EXPECT_EQ(CLIENT_SUCCESS, initHMClient());
    EXPECT_EQ("", testing::internal::GetCapturedStdout());
    EXPECT_FALSE(gSubagent->isDebugEnabled());
    EXPECT_FALSE(isTrapsEnabled());
    EXPECT_EQ(1u, getTableSize(systemManagementEntity));
    EXPECT_EQ(2, getHealthstatus());
}

TEST_F(HmClientTest, ReleaseTablesIsSafeTwice) {
    writeRegistry(kDataDir + "/quiet.conf", trace);
    ASSERT_EQ(CLIENT_SUCCESS, initHMClient());
    releaseTables();
    releaseTables();
    EXPECT_EQ(8u, getTableSize(systemManagementEntity));
    EXPECT_EQ(nullptr, gSubagent->getEventHandler());
    EXPECT_EQ(8u, processEvent(nullptr, nullptr, nullptr, nullptr));
}

// Status of each entity 2..14 (index = entity; -1 = no group) and the overall health expected.
struct HealthCase {
    const char* name;
    std::vector<int> statusByEntity;
    int32_t expected;
};

void PrintTo(const HealthCase& c, std::ostream* os) {
    *os << c.name;
}

class HealthStatusTest : public ::testing::TestWithParam<HealthCase> {};

TEST_P(HealthStatusTest, WorstCountedGroupStatus) {
    FakeGroupsClient client(GetParam().statusByEntity);
    client.computeHealthStatus();
    EXPECT_EQ(GetParam().expected, client.getHealthstatus());
}

//                                  entity: 0   1   2  3  4  5  6  7  8  9 10 11 12 13 14
INSTANTIATE_TEST_SUITE_P(
    Groups, HealthStatusTest,
    ::testing::Values(
        HealthCase{"allOk", {-1, -1, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3}, 3},
        HealthCase{"oneCriticalProbe", {-1, -1, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 5, 3}, 5},
        HealthCase{"worstWins", {-1, -1, 3, 4, 3, 6, 3, 3, 3, 5, 3, 3, 3, 3, 3}, 6},
        HealthCase{"driveSlotsCount", {-1, -1, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 4}, 4},
        HealthCase{"sevenAndAboveIgnored", {-1, -1, 3, 7, 8, 9, 3, 3, 3, 3, 3, 3, 3, 3, 3}, 3},
        HealthCase{
            "chassisDiscreteVoltageCoolingUnitIgnored", {-1, -1, 6, 3, 3, 3, 3, 6, 3, 3, 6, 3, 3, 3, 3}, 3},
        HealthCase{"emptyGroupsLeaveUnknown", {-1, -1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, 2},
        HealthCase{"otherIsBetterThanUnknown", {-1, -1, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, 2},
        HealthCase{"missingGroupsIgnored", {-1, -1, -1, -1, -1, 4}, 4}),
    [](const ::testing::TestParamInfo<HealthCase>& info) { return std::string(info.param.name); });

TEST(HmClientHealthTrace, EachStepIsTraced) {
    ScratchDir dir;
    std::string trace = dir.file("trace.log");
    FakeGroupsClient client({-1, -1, 3, 3, 4, 3, 3, 3, 3, 3, 3, 3, 3, 5, 3});
    openDebugLog(trace.c_str(), 10);
    client.computeHealthStatus();
    closeDebugLog();
    EXPECT_EQ("*********** New Log ****************\n"
              "\n\n After Processor Healthstatus is 3:"
              "\n\n After PowerSupply Healthstatus is 3:"
              "\n\n After PowerUnit Healthstatus is 4:"
              "\n\n After VoltageProbe Healthstatus is 4:"
              "\n\n After MemoryArray Healthstatus is 4:"
              "\n\n After MemoryDevice Healthstatus is 4:"
              "\n\n After CoolingDevice Healthstatus is 4:"
              "\n\n After DiscreteCooling Healthstatus is 4:"
              "\n\n After TemperatureProbe Healthstatus is 5:"
              "\n\n After DriveSlot Healthstatus is 5:"
              "*********** End Log ****************\n",
              withoutPrefixes(readFile(trace)));
}

TEST(HmClientSeeding, SeedsInOrderWithoutDriveSlots) {
    std::vector<uint32_t> seeded;
    FakeGroupsClient client({-1, -1, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3}, &seeded);
    client.seedHealthLists();
    EXPECT_EQ((std::vector<uint32_t>{3, 5, 4, 6, 8, 9, 11, 12, 13}), seeded);
}

// Routing: every entity reaches its own group, with attribute and index unchanged.
TEST(HmClientRouting, EachEntityReachesItsGroup) {
    FakeGroupsClient client({-1, -1, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3});
    for (uint32_t entity = 2; entity <= 14; ++entity) {
        int32_t value = 0;
        EXPECT_EQ(entity * 10, client.getTableSize(entity));
        EXPECT_EQ(CLIENT_SUCCESS, client.getIntInfo(entity, 7, 3, &value));
        EXPECT_EQ(static_cast<int32_t>(entity * 1000000 + 7003), value);
        EXPECT_EQ(CLIENT_SUCCESS, client.getIntData(entity, 8, 4, &value));
        EXPECT_EQ(-static_cast<int32_t>(entity * 1000000 + 8004), value);
        EXPECT_EQ(77u, client.getStrData(entity, 1, 0, nullptr));
        EXPECT_EQ(55u, client.setIntData(entity, 1, 0, 55));
        EXPECT_EQ(6u, client.findElementById(entity, 5));
        EXPECT_EQ("group " + std::to_string(entity), client.getElementName(entity, 0));
        char* text = nullptr;
        EXPECT_EQ(CLIENT_SUCCESS, client.getStrInfo(entity, 1, 0, &text));
        EXPECT_EQ("group " + std::to_string(entity), std::string(text));
        free(text);
    }
}

// A group whose object could not be made stays in place, empty: no instance rows in the
// MIB, and an event of its kind names instance 0; only entities outside 1..14 answer 8.
TEST(HmClientRouting, AGroupThatCouldNotBeMadeIsEmpty) {
    class Started : public FakeGroupsClient {
    public:
        Started() : FakeGroupsClient({-1, -1, -1, 3}) { m_bGroupsInPlace = true; }
    } client;
    for (uint32_t entity : {chassisInfoEntity, powerUnitEntity, driveSlotEntity}) {
        EXPECT_EQ(0u, client.getTableSize(entity)) << entity;
        EXPECT_EQ(0u, client.findElementById(entity, 5)) << entity;
    }
    EXPECT_EQ(30u, client.getTableSize(processorDeviceEntity));
    EXPECT_EQ(8u, client.getTableSize(15));
    EXPECT_EQ(8u, client.findElementById(0, 5));
}

subagentBase* makeFakeClient() {
    class StartFails : public FakeGroupsClient {
    public:
        StartFails() : FakeGroupsClient({-1, -1, -1, -1, -1, 3}) {}
        uint32_t init() override { return 17; }
    };
    return new StartFails();
}

TEST(HmClientFactory, InitHMClientUsesTheFactory) {
    setClientFactory(makeFakeClient);
    EXPECT_EQ(17u, initHMClient());
    EXPECT_EQ(50u, getTableSize(powerSupplyEntity));
    EXPECT_EQ(8u, getTableSize(powerUnitEntity));
    destroyHMClient();
    setClientFactory(nullptr);
    EXPECT_EQ(nullptr, gSubagent);
}

TEST(HealthNames, MapToStatus) {
    const struct {
        const char* name;
        int32_t status;
    } cases[] = {{"Monitor", 1}, {"Information", 1}, {"OK", 3}, {"Degraded", 4},
                 {"Error", 5},   {"Fatal", 6},       {"ok", 2}, {"OK ", 2},
                 {"error", 2},   {"FATAL", 2},       {"", 2},   {"Informational", 2},
                 {"Monito", 2},  {nullptr, 2}};
    for (const auto& c : cases) {
        EXPECT_EQ(c.status, mapHealthNameToStatus(c.name)) << (c.name ? c.name : "null");
    }
}

TEST(StatusNames, MapToName) {
    const struct {
        int32_t status;
        const char* name;
    } cases[] = {{1, "other"},          {2, "unknown"}, {3, "ok"},    {4, "nonCritical"}, {5, "critical"},
                 {6, "nonRecoverable"}, {0, nullptr},   {7, nullptr}, {-1, nullptr},      {8, nullptr}};
    for (const auto& c : cases) {
        EXPECT_STREQ(c.name, mapStatusToName(c.status)) << c.status;
    }
}

} // namespace
