#include "tables/discreteCooling.h"

namespace {

const discrete::TableProfile kDiscreteCoolingProfile = {
    "discreteCooling",
    {0x04, 0x0A},
    discrete::Kind::NotRedundancy,
    DISCRETECOOLING_ERROR_NOROW,
    HM_STATUS_OK,
    "PX_DiscreteCooling",
    discreteCoolingIdAttr,
    discreteCoolingDescriptionAttr,
    discreteCoolingStatusTextAttr,
    discreteCoolingStatusAttr,
    discreteCoolingStateMaskAttr,
    discrete::kNoAttribute,
};

} // namespace

discreteCooling::discreteCooling() : discreteSensorTable<DiscreteCoolingInfo>(kDiscreteCoolingProfile) {}

discreteCooling::~discreteCooling() = default;
