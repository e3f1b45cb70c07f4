// The SMBIOS parser. Input: a selector byte, then either a dmidecode dump file,
// a bare structure table, or the two sysfs files (entry point length in the
// next byte). Whatever parses is decoded into the inventory.

#include "fuzz/fuzzSupport.h"
#include "kelvarn/Smbios.h"

namespace smbios = kelvarn::smbios;

HM_FUZZ_TARGET(input) {
    const uint8_t selector = input.byte();
    const size_t entryLength = selector % 3 == 2 ? input.byte() : 0;
    const std::string rest = input.rest();
    const kelvarn::Bytes bytes(rest.begin(), rest.end());
    const auto split =
        bytes.begin() + static_cast<long>(entryLength < bytes.size() ? entryLength : bytes.size());
    hmfuzz::ignoring<smbios::SmbiosError>([&] {
        smbios::decode(selector % 3 == 0   ? smbios::parseDumpFile(bytes)
                       : selector % 3 == 1 ? smbios::parseStructures(bytes, selector / 3)
                                           : smbios::parseSysfs(kelvarn::Bytes(bytes.begin(), split),
                                                                kelvarn::Bytes(split, bytes.end())));
    });
}
