// The client facade: start-up from the registry and the configuration file, routing of every
// entity to its group, the overall health, and the system group's settings.
#include "core/hmClient.h"

#include <cstdlib>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "core/debugLog.h"
#include "core/hmClientApi.h"
#include "core/systemManagement.h"
#include "support/files.h"
#include "tables/cells.h"
#include "tables/BaseAccessor.h"

namespace {

using namespace hmtest;

const std::string kDataDir = std::string(HM_TEST_DATA_DIR) + "/core";
const std::string kRegKey = "Windows Registry Editor Version 5.00\n\n"
                            "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Arveni\\FleetwatchSNMP\\Parameters]\n";

// A group whose answers are fixed by the test; records the seeding calls it receives.
struct FakeGroup : BaseAccessor {
    FakeGroup(uint32_t entity, int maxStatus, std::vector<uint32_t>* seeded)
        : m_entity(entity), m_maxStatus(maxStatus), m_seeded(seeded) {}
    int32_t code(int a, int i) const { return static_cast<int32_t>(m_entity * 1000000 + a * 1000 + i); }
    uint32_t getIntInfo(int a, int i, int32_t* v) override { return *v = code(a, i), CLIENT_SUCCESS; }
    uint32_t getIntData(int a, int i, int32_t* v) override { return *v = -code(a, i), CLIENT_SUCCESS; }
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
    EXPECT_TRUE(getElementName(entity, 0) == nullptr && text == nullptr) << entity;
}

// Before start-up nothing answers. A second start-up replaces the first client; its trace
// shows the groups started and the health lists seeded. On a server without sensors or
// inventory every table is empty and left out of the MIB; the chassis group is a scalar group
// and keeps its one row.
TEST_F(HmClientTest, StartUpEmptyTablesAndEntitiesWithoutAGroup) {
    ASSERT_EQ(nullptr, gSubagent);
    expectNoGroup(1);
    expectNoGroup(3);
    addEvent(eventData{});
    setHealthstatus(5);
    seedHealth(3);
    releaseTables();
    EXPECT_EQ(8u, processEvent(nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(8, getHealthstatus());
    EXPECT_FALSE(isTrapsEnabled() || isSetsEnabled());

    writeRegistry(kDataDir + "/quiet.conf");
    ASSERT_EQ(CLIENT_SUCCESS, initHMClient());
    writeRegistry(kDataDir + "/hmsubagent.conf");
    testing::internal::CaptureStdout();
    ASSERT_EQ(CLIENT_SUCCESS, initHMClient());
    EXPECT_EQ("", testing::internal::GetCapturedStdout());
    const std::string text = readFile(trace);
    EXPECT_TRUE(containsInOrder(text, {"After DriveSlot Healthstatus is 2:", "seedHealthLists() called\n"}));
    EXPECT_EQ(std::string::npos, text.find("exited with no data")); // every group starts
    EXPECT_STREQ(trace.c_str(), static_cast<hmClient*>(gSubagent)->logFilePath());
    // Entity 1 reaches the system group (whose attributes its own tests cover).
    int32_t value = 0;
    EXPECT_EQ(CLIENT_SUCCESS, getIntInfo(systemManagementEntity, 3, 0, &value));
    EXPECT_EQ(42, value);
    EXPECT_TRUE(isTrapsEnabled() && gSubagent->isDebugEnabled());
    EXPECT_FALSE(isSetsEnabled());
    EXPECT_EQ(2, getHealthstatus());
    setHealthstatus(5);
    EXPECT_EQ(5, getHealthstatus());

    expectNoGroup(0);
    expectNoGroup(15);
    EXPECT_EQ((std::vector<uint32_t>{1, 1}), (std::vector<uint32_t>{getTableSize(1), getTableSize(2)}));
    for (uint32_t entity = 3; entity <= 14; ++entity)
        EXPECT_EQ(
            (std::vector<uint32_t>{getTableSize(entity), getTableStatus(entity), findElementById(entity, 1)}),
            (std::vector<uint32_t>{0, 0, 0}))
            << entity;
    EXPECT_NE(nullptr, gSubagent->getEventHandler());
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
    const struct {
        std::string registryFile, traced, log; // registryFile "" = none
        bool traps;
    } cases[] = {
        {"", "Error opening SNMP Parameters registry key", "", false},
        {kRegKey + "\"LogFile\"=\"/tmp/unused.log\"\n", "Error retrieving ConfigFile", "", false},
        {kRegKey + "\"ConfigFile\"=\"" + quiet + "\"\n", "Error retrieving LogFile", "", true},
        {kRegKey + "\"ConfigFile\"=\"" + absent + "\"\n\"LogFile\"=\"" + trace + "\"\n",
         "init about to init systemManagement exited with no data", trace, false},
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
        EXPECT_EQ(c.traps, isTrapsEnabled());
        EXPECT_FALSE(fileExists(trace));
        EXPECT_EQ(c.log, static_cast<hmClient*>(gSubagent)->logFilePath());
        openDebugLog(trace.c_str(), 10);
        EXPECT_EQ(CLIENT_SUCCESS, initHMClient());
        closeDebugLog();
        EXPECT_NE(std::string::npos, readFile(trace).find(c.traced));
        remove(trace.c_str());
    }
}

// Inverse linearization is a DWORD of the agent's Parameters key; absent, zero or not a DWORD: clear.
TEST_F(HmClientTest, InverseLinearizationSetting) {
    const std::pair<std::string, bool> cases[] = {{"\"bInverseLinearization\"=dword:00000001\n", true},
                                                  {"\"bInverseLinearization\"=dword:00000000\n", false},
                                                  {"\"bInverseLinearization\"=\"1\"\n", false},
                                                  {"", false}};
    for (const auto& [line, expected] : cases) {
        writeFile(registry, kRegKey + line);
        hmClient::bInverseLinearization = !expected;
        hmClient().readInverseLinearization();
        EXPECT_EQ(expected, hmClient::bInverseLinearization) << line;
    }
    hmClient::bInverseLinearization = false;
}

TEST(HmClientHealth, WorstCountedGroupStatusAndSeedingOrder) {
    // Name, status by entity (-1 = no group), the health expected.
    const std::tuple<const char*, std::vector<int>, int32_t> cases[] = {
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
    for (const auto& [name, status, expected] : cases) {
        FakeGroupsClient client(status);
        client.computeHealthStatus();
        EXPECT_EQ(expected, client.getHealthstatus()) << name;
    }
    // Seeding goes through the groups in start-up order and skips the drive slots.
    std::vector<uint32_t> seeded;
    FakeGroupsClient(std::get<1>(cases[1]), &seeded).seedHealthLists();
    EXPECT_EQ((std::vector<uint32_t>{3, 5, 4, 6, 8, 9, 11, 12, 13}), seeded);
}

// Routing: every entity reaches its own group, with attribute and index unchanged.
TEST(HmClientRouting, EachEntityReachesItsGroup) {
    FakeGroupsClient client(std::vector<int>(15, 3));
    for (uint32_t entity = 2; entity <= 14; ++entity) {
        SCOPED_TRACE(entity);
        const int32_t code = static_cast<int32_t>(entity * 1000000);
        int32_t info = 0, data = 0;
        char* text = nullptr;
        EXPECT_EQ((std::vector<uint32_t>{
                      client.getTableSize(entity), client.getIntInfo(entity, 7, 3, &info),
                      client.getIntData(entity, 8, 4, &data), client.getStrData(entity, 1, 0, nullptr),
                      client.setIntData(entity, 1, 0, 55), client.findElementById(entity, 5),
                      client.getStrInfo(entity, 1, 0, &text)}),
                  (std::vector<uint32_t>{entity * 10, 0, 0, 77, 55, 6, 0}));
        EXPECT_EQ((std::vector<int32_t>{code + 7003, -(code + 8004)}), (std::vector<int32_t>{info, data}));
        const std::string name = "group " + std::to_string(entity);
        EXPECT_EQ(name + "|" + name, std::string(text) + "|" + client.getElementName(entity, 0));
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
    const std::pair<const char*, int32_t> names[] = {
        {"Monitor", 1}, {"Information", 1}, {"OK", 3},    {"Degraded", 4}, {"Error", 5}, {"Fatal", 6},
        {"ok", 2},      {"OK ", 2},         {"error", 2}, {"FATAL", 2},    {"", 2},      {"Informational", 2},
        {"Monito", 2},  {nullptr, 2}};
    for (const auto& [name, status] : names)
        EXPECT_EQ(status, mapHealthNameToStatus(name)) << (name ? name : "null");
    const char* statusNames[] = {nullptr,       nullptr,    "other",          "unknown", "ok",
                                 "nonCritical", "critical", "nonRecoverable", nullptr,   nullptr};
    for (int32_t status = -1; status <= 8; ++status)
        EXPECT_STREQ(statusNames[status + 1], mapStatusToName(status)) << status;
}

// The system group: the configuration file's settings.
// Reads `content` as the configuration file (trace closed) and holds the group.
struct ReadConfig {
    hmtest::TempDir dir;
    systemManagement group;
    uint32_t status;

    explicit ReadConfig(const std::string& content) {
        hmtest::writeFile(dir / "hm.conf", content);
        status = group.init((dir / "hm.conf").c_str(), (dir / "trace.log").c_str());
        closeDebugLog();
    }
    // The published value of `attribute` (numbers are read with index 0, texts with index 1).
    std::string value(int attribute) {
        const bool number = attribute <= setsEnabledAttr && attribute != platformDescriptionAttr;
        return hmtest::cells(group, number ? 0 : 1, attribute, number ? "i" : "s");
    }
};

TEST(SystemManagementTest, ReadsSettings) {
    const std::string filler1023 = "productdescription=" + std::string(1023 - 19, 'D');
    const std::tuple<std::string, int, std::string> cases[] = {
        // content, attribute, value
        {"trapsenabled=1", trapsEnabledAttr, "1"},                   // no final line end
        {"", trapsEnabledAttr, "0"},                                 // empty file
        {"\t#trapsenabled=1\n", trapsEnabledAttr, "0"},              // a setting with an unknown key
        {"\ttrapsenabled=1\n", trapsEnabledAttr, "0"},               // a tab before the key is kept
        {"\n\n \ntrapsenabled=1\n\n", trapsEnabledAttr, "1"},        // bare line ends ignored
        {"Traps Enabled = 1\n", trapsEnabledAttr, "1"},              // capitals and inner spaces
        {"trapsenabled=1\ntrapsenabled=0\n", trapsEnabledAttr, "0"}, // the last one wins
        {"trapsenabled\ntrapsenabled=1\n", trapsEnabledAttr, "1"},   // a line without "=" skipped
        {filler1023 + "trapsenabled=1\n", trapsEnabledAttr, "1"},    // the rest of a long line is a line
        {"platformidx=5\n", platformIdAttr, "5"},                    // the prefix matches
        {"platformid=abc\n", platformIdAttr, "0"},
        {"setsenabled=1\n", setsEnabledAttr, "0"}, // sets stay disabled
        {"manufacturer =    Example Systems\n", manufacturerAttr, "Example Systems"},
        {"productversion = \"2.1.0\"\n", productVersionAttr, "2.1.0"},
        {"manufacturer = Example \"Big\" Systems\n", manufacturerAttr, "Example Big Systems"},
        {"productbuildnumber=1234\r\n", productBuildNumberAttr, "1234\r"},
        {"platformdescriptionx=Nope\n", platformDescriptionAttr, ""}, // the whole key only
        {"platformdescription=Rack server\n", platformDescriptionAttr, "Rack server"},
        {"productdescription=a=b\n", productDescriptionAttr, "a=b"},
        {"productname=" + std::string(100, 'N') + "\n", productNameAttr, std::string(63, 'N')},
        {filler1023 + "trapsenabled=1\n", productDescriptionAttr, std::string(63, 'D')},
    };
    for (const auto& [content, attribute, expected] : cases) {
        SCOPED_TRACE(content.substr(0, 60));
        ReadConfig config(content);
        ASSERT_EQ(CLIENT_SUCCESS, config.status);
        EXPECT_EQ(expected, config.value(attribute));
        EXPECT_FALSE(config.group.isDebugEnabled());
        EXPECT_FALSE(hmtest::fileExists(config.dir / "trace.log"));
    }
}

// The trace opens at the "debugenabled" line; every later setting line is traced.
TEST(SystemManagementTest, TracesSettingLinesOnceTheTraceIsOpen) {
    ReadConfig config("trapsenabled=1\ndebugenabled=1\n# a comment\nManufacturer = \"Example Systems\"\r\n");
    EXPECT_TRUE(config.group.isDebugEnabled());
    const std::string trace = hmtest::readFile(config.dir / "trace.log");
    EXPECT_NE(std::string::npos, trace.find("ptKey=:manufacturer:, stValue=:Example Systems\r:\n"));
    EXPECT_EQ(std::string::npos, trace.find("ptKey=:trapsenabled:"));
}

// Only the system group's own attributes, through the getter of their type; nothing is live
// or writable.
TEST(SystemManagementTest, GroupInterface) {
    ReadConfig config("trapsenabled=1\nmanufacturer=Example\n");
    EXPECT_EQ("!9|!9|!9|!9|!4+|!4+", hmtest::cells(config.group, 0, manufacturerAttr, "i") + "|" +
                                         hmtest::cells(config.group, 0, 11, "i") + "|" +
                                         hmtest::cells(config.group, 1, trapsEnabledAttr, "s") + "|" +
                                         hmtest::cells(config.group, 1, 0, "s") + "|" +
                                         hmtest::cells(config.group, 0, systemStatusAttr, "I") + "|" +
                                         hmtest::cells(config.group, 1, manufacturerAttr, "S"));
    EXPECT_EQ(CLIENT_ERROR_NOTSUPPORTED, config.group.setIntData(trapsEnabledAttr, 0, 1));
    EXPECT_EQ(1, config.group.getCount());
    config.group.setStatus(9);
    EXPECT_EQ("9", config.value(systemStatusAttr));
    EXPECT_TRUE(config.group.isTrapsEnabled());
    EXPECT_FALSE(config.group.isSetsEnabled());
}

} // namespace
