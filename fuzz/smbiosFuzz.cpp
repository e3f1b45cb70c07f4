// The SMBIOS parser. Input: a selector byte, then either a dmidecode dump file,
// a bare structure table, or the two sysfs files (entry point length in the
// next byte). Whatever parses is decoded into the inventory.
#include <cstdint>
#include <string>

#include "fuzz/fuzzSupport.h"
#include "kelvarn/Smbios.h"

using kelvarn::Bytes;
namespace smbios = kelvarn::smbios;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    hmfuzz::Input input(data, size);
    const uint8_t selector = input.byte();
    const size_t entryLength = selector % 3 == 2 ? input.byte() : 0;
    const std::string rest = input.rest();
    const Bytes bytes(rest.begin(), rest.end());
    try {
        smbios::Table table;
        switch (selector % 3) {
        case 0:
            table = smbios::parseDumpFile(bytes);
            break;
        case 1:
            table = smbios::parseStructures(bytes, selector / 3);
            break;
        default: {
            const size_t split = entryLength < bytes.size() ? entryLength : bytes.size();
            const Bytes entry(bytes.begin(), bytes.begin() + static_cast<long>(split));
            const Bytes dmi(bytes.begin() + static_cast<long>(split), bytes.end());
            table = smbios::parseSysfs(entry, dmi);
            break;
        }
        }
        smbios::decode(table);
    } catch (const smbios::SmbiosError&) {
    }
    return 0;
}
