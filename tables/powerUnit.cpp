#include "tables/powerUnit.h"

namespace {

const discrete::TableProfile kPowerUnitProfile = {
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

powerUnit::powerUnit() : discreteSensorTable<PowerUnitInfo>(kPowerUnitProfile) {}

powerUnit::~powerUnit() = default;
