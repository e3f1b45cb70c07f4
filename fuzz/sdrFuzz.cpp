// SDR record decoding through GetSDRData. Input: the sensor type, a multiplier
// choice, then lines that the fake service hands out as SDR record texts and as
// the answers of the name, threshold and reading queries.

#include "fuzz/fuzzSupport.h"
#include "platform/sdrDiscovery.h"
#include "platform/sensorWrapper.h"

HM_FUZZ_TARGET(input) {
    static const int32_t kMultipliers[] = {1, 10, 100, 1000};
    const uint32_t sensorType = input.byte();
    const int32_t multiplier = kMultipliers[input.byte() % 4];
    kelvarn::setProcessResponder(std::make_shared<hmfuzz::TextResponder>(input.lines()));
    CDatabase<CSensorWrapper> database;
    GetSDRData(sensorType, &database, multiplier);
    kelvarn::setProcessResponder(nullptr);
}
