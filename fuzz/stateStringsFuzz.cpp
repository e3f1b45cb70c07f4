// MapMultipleCRStrToSNMPStr on arbitrary text.
#include <cstdint>
#include <string>

#include "platform/stateStrings.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size); // NUL-terminated copy
    std::string out;
    MapMultipleCRStrToSNMPStr(text.c_str(), out);
    return 0;
}
