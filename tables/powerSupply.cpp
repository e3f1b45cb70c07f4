#include "tables/powerSupply.h"

namespace {

const discrete::TableProfile kPowerSupplyProfile = {
    "powerSupply",
    {0x08, 0},
    discrete::Kind::AnyDiscrete,
    POWERSUPPLY_ERROR_NOROW,
    HM_STATUS_OTHER,
    "PX_PowerSupply",
    powerSupplyIdAttr,
    powerSupplyDescriptionAttr,
    powerSupplyStatusTextAttr,
    powerSupplyStatusAttr,
    discrete::kNoAttribute,
    discrete::kNoAttribute,
};

} // namespace

powerSupply::powerSupply() : discreteSensorTable<PowerSupplyInfo>(kPowerSupplyProfile) {}

powerSupply::~powerSupply() = default;
