#include "tables/powerSupply.h"

namespace {

const discrete::TableSpec kPowerSupplySpec = {
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

powerSupply::powerSupply() : discreteSensorTable<PowerSupplyInfo>(kPowerSupplySpec) {}

powerSupply::~powerSupply() = default;
