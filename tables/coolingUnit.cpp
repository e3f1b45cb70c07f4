#include "tables/coolingUnit.h"

namespace {

const discrete::TableProfile kCoolingUnitProfile = {
    "coolingUnit",
    {0x04, 0x0A},
    discrete::Kind::Redundancy,
    COOLINGUNIT_ERROR_NOROW,
    HM_STATUS_UNKNOWN,
    "PX_CoolingUnit",
    coolingUnitIdAttr,
    coolingUnitDescriptionAttr,
    coolingUnitStatusTextAttr,
    coolingUnitStatusAttr,
    coolingUnitStateMaskAttr,
    coolingUnitEntityAttr,
};

} // namespace

coolingUnit::coolingUnit() : discreteSensorTable<CoolingUnitInfo>(kCoolingUnitProfile) {}

coolingUnit::~coolingUnit() = default;
