// The platform description loader: the input is the whole JSON file. A file that
// loads is then served: the SDR scan, a reading, the SEL and the inventory.
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "fuzz/fuzzSupport.h"
#include "kelvarn/Platform.h"
#include "kelvarn/PlatformFile.h"
#include "kelvarn/System.h"
#include "pickmere/ResultStatus.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string path = hmfuzz::writeScratch("platform.json", data, size);
    kelvarn::PlatformModel model;
    try {
        model = kelvarn::loadPlatformFile(path);
    } catch (const kelvarn::PlatformFileError&) {
        return 0;
    }
    auto source = std::make_shared<kelvarn::SimulatedSource>("fuzz", std::move(model));
    SDK::System system(kelvarn::makePlatformResponder(source));
    static const char* const kPaths[] = {
        "/BMC/SDR",
        "/BMC/SDR/SENSOR_TYPE[1]",
        "/BMC/SDR/SENSOR_TYPE[4]",
        "/BMC/SENSOR[1][32][0]/INTERPRET_SENSOR_VALUE",
        "/BMC/SENSOR[1][32][0]/NAME",
        "/BMC/SEL",
        "/SMBIOS/PROCESSOR",
        "/SMBIOS/MEMORY_ARRAY",
        "/SMBIOS/CHASSIS",
    };
    for (const char* query : kPaths) {
        std::map<std::string, _XNode> result;
        try {
            system.Get(query, result);
        } catch (const ResultStatus&) {
        }
    }
    return 0;
}
