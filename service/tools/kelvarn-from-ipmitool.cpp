// kelvarn-from-ipmitool: converts an "ipmitool -v sdr" listing into a platform
// file for the simulated source. Usage: kelvarn-from-ipmitool LISTING > platform.json
#include <cstdio>
#include <fstream>
#include <sstream>

#include "kelvarn/IpmitoolListing.h"
#include "kelvarn/PlatformFile.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: kelvarn-from-ipmitool LISTING > platform.json\n"
                             "  LISTING: the output of \"ipmitool -v sdr\"\n");
        return 2;
    }
    std::ifstream in(argv[1]);
    if (!in) {
        std::fprintf(stderr, "kelvarn-from-ipmitool: %s: cannot be opened\n", argv[1]);
        return 1;
    }
    std::ostringstream text;
    text << in.rdbuf();
    try {
        std::string platform = kelvarn::platformFromIpmitoolListing(text.str(), argv[1]);
        kelvarn::parsePlatform(platform, argv[1]); // what is written must load
        std::fputs(platform.c_str(), stdout);
        return 0;
    } catch (const kelvarn::PlatformFileError& e) {
        std::fprintf(stderr, "kelvarn-from-ipmitool: %s\n", e.what());
        return 1;
    }
}
