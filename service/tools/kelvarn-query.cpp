// kelvarn-query: asks the platform-data query service one path and prints the
// answer as the agent traces it. Usage:
//   kelvarn-query PATH
//   kelvarn-query PATH NAME=VALUE ...   (a request with parameters, e.g.
//       kelvarn-query /BMC/SEL/TRANSLATED RECORD_ID=ffff RANGE=3000)
#include <cstdio>
#include <cstring>
#include <map>
#include <string>

#include "kelvarn/System.h"

namespace {

void dump(const std::map<std::string, _XNode>& result) {
    for (const auto& entry : result) {
        std::printf("Key = \"%s\"\n", entry.first.c_str());
        std::printf("\tNodeType = %d\n", entry.second.NodeType);
        for (size_t i = 0; i < entry.second.Values.size(); ++i)
            std::printf("\t\tValue[%d] = %s\n", static_cast<int>(i), entry.second.Values[i].c_str());
    }
}

int usage() {
    std::fprintf(stderr, "usage: kelvarn-query PATH [NAME=VALUE ...]\n"
                         "  prints the query service's answer for PATH, e.g.\n"
                         "  kelvarn-query \"/BMC/SDR/SENSOR_TYPE[1]\"\n"
                         "  kelvarn-query /BMC/SEL/TRANSLATED RECORD_ID=ffff RANGE=3000\n"
                         "The data source is chosen by the file named in KELVARN_CONFIG\n"
                         "(default /etc/kelvarn/kelvarn.conf); without one, the built-in demo server.\n");
    return 2;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2 || std::strcmp(argv[1], "-h") == 0 || std::strcmp(argv[1], "--help") == 0)
        return usage();
    std::map<std::string, _XNode> result;
    try {
        SDK::System system;
        system.SetFlags(1);
        if (argc == 2) {
            system.Get(argv[1], result);
        } else {
            std::map<std::string, std::map<std::string, std::string>> request;
            auto& params = request[argv[1]];
            for (int i = 2; i < argc; ++i) {
                const char* eq = std::strchr(argv[i], '=');
                if (!eq)
                    return usage();
                params[std::string(argv[i], static_cast<size_t>(eq - argv[i]))] = eq + 1;
            }
            system.Get(request, result);
        }
    } catch (const ResultStatus& failure) {
        for (const RStatus& s : failure.Get())
            std::fprintf(stderr, "kelvarn-query: %s: failed with code %u (operation %d): %s\n",
                         s.Path.c_str(), static_cast<unsigned>(s.Code), static_cast<int>(s.Operation),
                         s.Message.c_str());
        return 1;
    }
    dump(result);
    return 0;
}
