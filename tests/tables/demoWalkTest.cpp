// The built-in demo server through the client facade: every one of the fourteen groups
// has rows, and the inventory and discrete-sensor groups hold what the demo describes.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "core/hmClientApi.h"
#include "inventoryTestSupport.h"
#include "platform/smbiosInventory.h"

namespace {

using namespace inventorytest;

// Start-up stops when the service cannot be reached; over the demo server it succeeds.
TEST(DemoWalk, EveryGroupHasRowsAndTheirColumns) {
    setenv("HMSUBAGENT_REGISTRY", "/nonexistent/hm-inventory-registry.reg", 1);
    auto unreachable = std::make_shared<sensortest::ScriptedResponder>();
    unreachable->failAll = true;
    kelvarn::setProcessResponder(unreachable);
    EXPECT_EQ(SMBIOS_ERROR_UNAVAILABLE, initHMClient());
    destroyHMClient();
    serveModel(kelvarn::parsePlatform(kelvarn::demoPlatformText(), "demo"));
    ASSERT_EQ(CLIENT_SUCCESS, initHMClient());
    for (uint32_t entity = systemManagementEntity; entity <= driveSlotEntity; ++entity)
        EXPECT_GT(getTableSize(entity), 0u) << "entity " << entity;
    // From the demo's description: 2 processors, 2 arrays with 8 of 12 DIMMs, one power
    // redundancy sensor, 2 supplies, one regulator status, one fan redundancy sensor, one
    // fan presence sensor, 4 drive bays.
    const struct {
        uint32_t entity;
        uint32_t rows;
        uint32_t status;
    } groups[] = {{chassisInfoEntity, 1, 3},     {processorDeviceEntity, 2, 3}, {memoryArrayEntity, 2, 3},
                  {memoryDeviceEntity, 8, 3},    {powerUnitEntity, 1, 3},       {powerSupplyEntity, 2, 4},
                  {discreteVoltageEntity, 1, 3}, {coolingUnitEntity, 1, 3},     {discreteCoolingEntity, 1, 3},
                  {driveSlotEntity, 4, 3}};
    for (const auto& g : groups) {
        SCOPED_TRACE("entity " + std::to_string(g.entity));
        EXPECT_EQ(g.rows, getTableSize(g.entity));
        EXPECT_EQ(g.status, getTableStatus(g.entity));
    }
    // Columns of several kinds through the facade: entity, attribute, index; the answer.
    char* text = nullptr;
    int32_t value = 0;
    EXPECT_EQ(CLIENT_SUCCESS, getStrData(powerSupplyEntity, 52, 1, &text));
    EXPECT_EQ(
        "power supply's presence has been detected,predictive failure has been detected for the power supply",
        std::string(text != nullptr ? text : ""));
    free(text);
    EXPECT_EQ(CLIENT_SUCCESS, getStrInfo(driveSlotEntity, 154, 3, &text));
    EXPECT_EQ("Drive 3", std::string(text != nullptr ? text : ""));
    free(text);
    // A supply predicting failure; Socket LGA771; the empty bay; security settings Disabled,
    // Not Implemented, Enabled, Not Implemented.
    EXPECT_EQ((std::vector<int32_t>{4, 20, 1, 38}),
              (std::vector<int32_t>{getIntData(powerSupplyEntity, 53, 1, &value) == 0 ? value : -1,
                                    getIntInfo(processorDeviceEntity, 40, 0, &value) == 0 ? value : -1,
                                    getIntData(driveSlotEntity, 156, 3, &value) == 0 ? value : -1,
                                    getIntData(chassisInfoEntity, 15, 0, &value) == 0 ? value : -1}));
    destroyHMClient();
    kelvarn::setProcessResponder(nullptr);
    unsetenv("HMSUBAGENT_REGISTRY");
}

} // namespace
