// SMBIOS entry points and the splitting of a structure table into structures.
#include <cstring>
#include <string>

#include "kelvarn/Smbios.h"

namespace kelvarn {
namespace smbios {
namespace {

// Entry point layouts: anchor, the offsets of their fields and the length
// the entry point must have.
struct EntryLayout {
    const char* anchor;
    size_t anchorLength;
    size_t lengthOffset; // the entry point's own length byte
    size_t minLength;
    size_t majorOffset, minorOffset;
    size_t addressOffset, addressWidth;
    size_t tableLengthOffset, tableLengthWidth;
    size_t countOffset; // 0: none
};

const EntryLayout kEntry2 = {"_SM_", 4, 0x05, 0x1F, 0x06, 0x07, 0x18, 4, 0x16, 2, 0x1C};
const EntryLayout kEntry3 = {"_SM3_", 5, 0x06, 0x18, 0x07, 0x08, 0x10, 8, 0x0C, 4, 0};

uint64_t little(const Bytes& b, size_t offset, size_t width) {
    uint64_t v = 0;
    for (size_t i = 0; i < width; ++i)
        v |= uint64_t(b[offset + i]) << (8 * i);
    return v;
}

bool checksumOk(const Bytes& b, size_t from, size_t length) {
    uint8_t sum = 0;
    for (size_t i = from; i < from + length; ++i)
        sum = uint8_t(sum + b[i]);
    return sum == 0;
}

EntryPoint parseWith(const Bytes& b, const EntryLayout& l) {
    if (b.size() < l.minLength)
        throw SmbiosError(std::string(l.anchor) + " entry point of " + std::to_string(b.size()) +
                          " bytes is too short (" + std::to_string(l.minLength) + " expected)");
    size_t length = b[l.lengthOffset];
    if (length < l.minLength || length > b.size())
        throw SmbiosError(std::string(l.anchor) + " entry point gives the length " + std::to_string(length) +
                          ", which does not fit its " + std::to_string(b.size()) + " bytes");
    if (!checksumOk(b, 0, length))
        throw SmbiosError(std::string(l.anchor) + " entry point checksum is wrong");
    if (&l == &kEntry2 && (std::memcmp(&b[0x10], "_DMI_", 5) != 0 || !checksumOk(b, 0x10, 0x0F)))
        throw SmbiosError("_SM_ entry point has no valid intermediate \"_DMI_\" anchor");
    EntryPoint e;
    e.major = b[l.majorOffset];
    e.minor = b[l.minorOffset];
    e.tableAddress = little(b, l.addressOffset, l.addressWidth);
    e.tableLength = uint32_t(little(b, l.tableLengthOffset, l.tableLengthWidth));
    e.structureCount = l.countOffset ? uint32_t(little(b, l.countOffset, 2)) : 0;
    e.is64 = &l == &kEntry3;
    return e;
}

} // namespace

EntryPoint parseEntryPoint(const Bytes& b) {
    if (b.size() >= 5 && std::memcmp(b.data(), kEntry3.anchor, kEntry3.anchorLength) == 0)
        return parseWith(b, kEntry3);
    if (b.size() >= 4 && std::memcmp(b.data(), kEntry2.anchor, kEntry2.anchorLength) == 0)
        return parseWith(b, kEntry2);
    throw SmbiosError("no SMBIOS entry point (\"_SM_\" or \"_SM3_\") at the start");
}

Table parseStructures(const Bytes& t, uint32_t maxStructures) {
    Table table;
    size_t pos = 0;
    while (pos < t.size()) {
        if (maxStructures && table.structures.size() >= maxStructures)
            break;
        const std::string where = "structure at offset " + std::to_string(pos);
        if (t.size() - pos < 4) {
            table.problems.push_back(where + ": header cut short; table ends here");
            break;
        }
        const uint8_t type = t[pos], length = t[pos + 1];
        if (length < 4) {
            table.problems.push_back(where + ": length " + std::to_string(length) +
                                     " is shorter than its header; table ends here");
            break;
        }
        if (length > t.size() - pos) {
            table.problems.push_back(where + ": length " + std::to_string(length) +
                                     " runs past the table; table ends here");
            break;
        }
        // The string set: NUL-terminated strings ended by one more NUL; a set
        // without strings is two NULs.
        size_t s = pos + length;
        std::vector<std::string> strings;
        bool closed = false;
        if (s + 1 < t.size() && t[s] == 0 && t[s + 1] == 0) {
            s += 2;
            closed = true;
        } else {
            while (s < t.size()) {
                size_t end = s;
                while (end < t.size() && t[end] != 0)
                    ++end;
                if (end >= t.size())
                    break;
                strings.emplace_back(reinterpret_cast<const char*>(&t[s]), end - s);
                s = end + 1;
                if (s < t.size() && t[s] == 0) {
                    ++s;
                    closed = true;
                    break;
                }
            }
        }
        if (!closed) {
            table.problems.push_back(where + " (type " + std::to_string(type) +
                                     "): string set without its closing double NUL; table ends here");
            break;
        }
        Structure st;
        st.type = type;
        st.handle = uint16_t(t[pos + 2] | t[pos + 3] << 8);
        st.formatted.assign(t.begin() + long(pos), t.begin() + long(pos + length));
        st.strings = std::move(strings);
        pos = s;
        if (type == 127)
            break;
        table.structures.push_back(std::move(st));
    }
    return table;
}

namespace {

Table withEntry(const EntryPoint& e, const Bytes& bytes, size_t tableOffset, const std::string& what) {
    if (tableOffset > bytes.size())
        throw SmbiosError(what + " starts at " + std::to_string(tableOffset) + ", past the " +
                          std::to_string(bytes.size()) + " bytes read");
    size_t available = bytes.size() - tableOffset;
    size_t length = e.tableLength;
    Table t;
    if (length > available) {
        t.problems.push_back(what + " is " + std::to_string(available) + " bytes, not the " +
                             std::to_string(length) + " the entry point gives; cut to what is there");
        length = available;
    }
    Bytes body(bytes.begin() + long(tableOffset), bytes.begin() + long(tableOffset + length));
    Table parsed = parseStructures(body, e.is64 ? 0 : e.structureCount);
    t.entry = e;
    t.structures = std::move(parsed.structures);
    t.problems.insert(t.problems.end(), parsed.problems.begin(), parsed.problems.end());
    return t;
}

} // namespace

Table parseDumpFile(const Bytes& file) {
    EntryPoint e = parseEntryPoint(file);
    // The dump's entry point names the table's offset in the file.
    if (e.tableAddress > file.size())
        throw SmbiosError("the entry point puts the table at " + std::to_string(e.tableAddress) +
                          ", past the end of the " + std::to_string(file.size()) + "-byte file");
    return withEntry(e, file, size_t(e.tableAddress), "the table");
}

Table parseSysfs(const Bytes& entryPoint, const Bytes& dmi) {
    EntryPoint e = parseEntryPoint(entryPoint);
    return withEntry(e, dmi, 0, "the DMI table");
}

namespace {

// Windows' RawSMBIOSData: the header GetSystemFirmwareTable('RSMB') puts before the table.
struct FirmwareHeaderLayout {
    size_t major, minor, lengthOffset, size;
};
const FirmwareHeaderLayout kFirmwareHeader = {1, 2, 4, 8};

} // namespace

Table parseFirmwareTable(const Bytes& raw) {
    if (raw.size() < kFirmwareHeader.size)
        throw SmbiosError("firmware table of " + std::to_string(raw.size()) + " bytes is shorter than its " +
                          std::to_string(kFirmwareHeader.size) + "-byte header");
    EntryPoint e;
    e.major = raw[kFirmwareHeader.major];
    e.minor = raw[kFirmwareHeader.minor];
    e.tableLength = uint32_t(little(raw, kFirmwareHeader.lengthOffset, 4));
    // No structure count: the table ends at its end-of-table structure or its length.
    return withEntry(e, raw, kFirmwareHeader.size, "the firmware table");
}

} // namespace smbios
} // namespace kelvarn
