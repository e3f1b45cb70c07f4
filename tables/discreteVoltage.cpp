#include "tables/discreteVoltage.h"

namespace {

const discrete::TableProfile kDiscreteVoltageProfile = {
    "discreteVoltage",
    {0x02, 0},
    discrete::Kind::AnyDiscrete,
    DISCRETEVOLTAGE_ERROR_NOROW,
    HM_STATUS_OK,
    "PX_DiscreteVoltage",
    discreteVoltageIdAttr,
    discreteVoltageDescriptionAttr,
    discreteVoltageStatusTextAttr,
    discreteVoltageStatusAttr,
    discreteVoltageStateMaskAttr,
    discrete::kNoAttribute,
};

} // namespace

discreteVoltage::discreteVoltage() : discreteSensorTable<DiscreteVoltageInfo>(kDiscreteVoltageProfile) {}

discreteVoltage::~discreteVoltage() = default;
