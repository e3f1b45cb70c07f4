// The platform description loader: the input is the whole JSON file. A file that
// loads is then served: the SDR scan, a reading, the SEL and the inventory.
#include <map>

#include "fuzz/fuzzSupport.h"
#include "kelvarn/Platform.h"
#include "kelvarn/PlatformFile.h"
#include "kelvarn/System.h"

HM_FUZZ_TARGET(input) {
    hmfuzz::ignoring<kelvarn::PlatformFileError>([&] {
        SDK::System system(kelvarn::makePlatformResponder(std::make_shared<kelvarn::SimulatedSource>(
            "fuzz", kelvarn::loadPlatformFile(hmfuzz::writeScratch("platform.json", input.rest())))));
        for (const char* query :
             {"/BMC/SDR", "/BMC/SDR/SENSOR_TYPE[1]", "/BMC/SDR/SENSOR_TYPE[4]",
              "/BMC/SENSOR[1][32][0]/INTERPRET_SENSOR_VALUE", "/BMC/SENSOR[1][32][0]/NAME", "/BMC/SEL",
              "/SMBIOS/PROCESSOR", "/SMBIOS/MEMORY_ARRAY", "/SMBIOS/CHASSIS"}) {
            std::map<std::string, _XNode> result;
            hmfuzz::ignoring<ResultStatus>([&] { system.Get(query, result); });
        }
    });
}
