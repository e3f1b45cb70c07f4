// SEL RAW decoding and routing. Input: the RAW text on the first line, the
// entry's description on the second, then lines the fake service answers the
// decoders' SDR and name queries (and one poll of the SEL) with.
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "events/eventDecoders.h"
#include "events/selPoller.h"
#include "fuzz/fuzzSupport.h"
#include "kelvarn/Responder.h"

namespace {

void noSleep(DWORD) {}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool seamsSet = [] {
        setHandOffRetrySleep(noSleep);
        setSelPollSleep(noSleep);
        return true;
    }();
    (void)seamsSet;

    hmfuzz::Input input(data, size);
    const std::string raw = input.line();
    const std::string description = input.line();
    kelvarn::setProcessResponder(std::make_shared<hmfuzz::TextResponder>(input.lines()));

    SelRecord record;
    std::memset(&record, 0, sizeof record);
    std::strncpy(record.stDescription, description.c_str(), sizeof record.stDescription - 1);
    int32_t lastRecordId = static_cast<int32_t>(size % 3 == 0 ? kSelLastEntry : size);
    decodeSelEntry(raw.c_str(), record, lastRecordId);
    routeEvent(&record);

    resetSelPoller();
    CheckForNewSELEntry();

    kelvarn::setProcessResponder(nullptr);
    return 0;
}
