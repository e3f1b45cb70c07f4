// The query service's path parser, alone and behind SDK::System on the demo
// platform. Input: the path on the first line, then "KEY=VALUE" parameter lines
// for a batch query of the same path.
#include <cstdint>
#include <map>
#include <string>

#include "fuzz/fuzzSupport.h"
#include "kelvarn/Errors.h"
#include "kelvarn/Path.h"
#include "kelvarn/System.h"
#include "pickmere/ResultStatus.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static SDK::System demo(hmfuzz::demoResponder());
    hmfuzz::Input input(data, size);
    const std::string path = input.line();
    std::map<std::string, std::string> params;
    for (const std::string& line : input.lines()) {
        const size_t equals = line.find('=');
        params[line.substr(0, equals)] = equals == std::string::npos ? "" : line.substr(equals + 1);
    }

    try {
        kelvarn::parsePath(path);
    } catch (const kelvarn::QueryError&) {
    }
    kelvarn::pathShape(path);

    demo.SetFlags(static_cast<uint8_t>(size & 1));
    std::map<std::string, _XNode> result;
    try {
        demo.Get(path, result);
    } catch (const ResultStatus&) {
    }
    std::map<std::string, std::map<std::string, std::string>> batch{{path, params}};
    result.clear();
    try {
        demo.Get(batch, result);
    } catch (const ResultStatus&) {
    }
    return 0;
}
