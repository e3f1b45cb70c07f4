// The configuration file reader: the input is the whole file.
#include <cstdlib>

#include "core/systemManagement.h"
#include "fuzz/fuzzSupport.h"

HM_FUZZ_TARGET(input) {
    systemManagement group;
    // A "debugenabled" line opens the trace: keep it out of the way.
    if (group.init(hmfuzz::writeScratch("hmsubagent.conf", input.rest()).c_str(), "/dev/null") !=
        CLIENT_SUCCESS)
        std::abort(); // the file exists: it must be read
    for (int attribute = systemStatusAttr; attribute <= productDescriptionAttr; ++attribute) {
        int32_t number = 0;
        group.getIntInfo(attribute, 0, &number);
        char* text = nullptr;
        if (group.getStrInfo(attribute, 0, &text) == CLIENT_SUCCESS &&
            std::string(text).size() > HM_PUBLISHED_TEXT_LENGTH)
            std::abort(); // published texts are cut
        free(text);
    }
}
