#include "tables/powerUnit.h"

namespace {

const discrete::TableSpec kPowerUnitSpec = {
    "powerUnit",
    {0x09, 0},
    discrete::Kind::AnyDiscrete,
    POWERUNIT_ERROR_NOROW,
    HM_STATUS_OK,
    "PX_PowerUnit",
    powerUnitIdAttr,
    powerUnitDescriptionAttr,
    powerUnitStatusTextAttr,
    powerUnitStatusAttr,
    powerUnitStateMaskAttr,
    discrete::kNoAttribute,
};

} // namespace

powerUnit::powerUnit() : discreteSensorTable<PowerUnitInfo>(kPowerUnitSpec) {}

powerUnit::~powerUnit() = default;
