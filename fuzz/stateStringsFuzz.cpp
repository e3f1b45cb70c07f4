// MapMultipleCRStrToSNMPStr on arbitrary text.

#include "fuzz/fuzzSupport.h"
#include "platform/stateStrings.h"

HM_FUZZ_TARGET(input) {
    std::string out;
    MapMultipleCRStrToSNMPStr(input.rest().c_str(), out); // a NUL-terminated copy
}
