// The query service's path parser, alone and behind SDK::System on the demo
// platform. Input: the path on the first line, then "KEY=VALUE" parameter lines
// for a batch query of the same path.
#include <map>

#include "fuzz/fuzzSupport.h"
#include "kelvarn/Errors.h"
#include "kelvarn/Path.h"
#include "kelvarn/System.h"

HM_FUZZ_TARGET(input) {
    static SDK::System demo(hmfuzz::demoResponder());
    const std::string path = input.line();
    std::map<std::string, std::string> params;
    for (const std::string& line : input.lines()) {
        const size_t equals = line.find('=');
        params[line.substr(0, equals)] = equals == std::string::npos ? "" : line.substr(equals + 1);
    }
    hmfuzz::ignoring<kelvarn::QueryError>([&] { kelvarn::parsePath(path); });
    kelvarn::pathShape(path);
    demo.SetFlags(static_cast<uint8_t>(input.size() & 1));
    std::map<std::string, _XNode> result;
    hmfuzz::ignoring<ResultStatus>([&] { demo.Get(path, result); });
    result.clear();
    std::map<std::string, std::map<std::string, std::string>> batch{{path, params}};
    hmfuzz::ignoring<ResultStatus>([&] { demo.Get(batch, result); });
}
