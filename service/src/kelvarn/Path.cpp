#include "kelvarn/Path.h"

#include "kelvarn/Errors.h"

namespace kelvarn {
namespace {

[[noreturn]] void malformed(const std::string& why) {
    throw QueryError(kMalformedPath, "malformed path: " + why);
}

} // namespace

std::vector<PathSegment> parsePath(const std::string& path) {
    if (path.empty())
        malformed("the path is empty");
    if (path.size() > kMaxPathLength)
        throw QueryError(kPathTooLong, "path of " + std::to_string(path.size()) +
                                           " characters is longer than " + std::to_string(kMaxPathLength));
    if (path[0] != '/')
        malformed("it does not start with '/'");
    std::vector<PathSegment> segments;
    size_t i = 1;
    while (true) {
        PathSegment seg;
        size_t start = i;
        while (i < path.size() && path[i] != '/' && path[i] != '[' && path[i] != ']') {
            if (static_cast<unsigned char>(path[i]) < 0x20 || path[i] == 0x7F)
                malformed("control character at position " + std::to_string(i));
            ++i;
        }
        seg.name = path.substr(start, i - start);
        if (seg.name.empty())
            malformed("empty name at position " + std::to_string(start));
        if (i < path.size() && path[i] == ']')
            malformed("']' without '[' at position " + std::to_string(i));
        if (i < path.size() && path[i] == '[') {
            size_t open = i++;
            uint64_t value = 0;
            size_t digits = 0;
            while (i < path.size() && path[i] >= '0' && path[i] <= '9') {
                value = value * 10 + static_cast<uint64_t>(path[i] - '0');
                if (value > 0xFFFFFFFFull)
                    malformed("index at position " + std::to_string(open) + " does not fit 32 bits");
                ++digits;
                ++i;
            }
            if (i >= path.size())
                malformed("'[' at position " + std::to_string(open) + " is not closed");
            if (path[i] != ']' || digits == 0)
                malformed("index at position " + std::to_string(open) + " is not a decimal number");
            ++i;
            seg.hasIndex = true;
            seg.index = static_cast<uint32_t>(value);
            if (i < path.size() && path[i] != '/')
                malformed("text after ']' at position " + std::to_string(i));
        }
        segments.push_back(std::move(seg));
        if (i >= path.size())
            break;
        ++i; // the '/'
        if (i >= path.size())
            malformed("it ends with '/'");
    }
    return segments;
}

std::string pathShape(const std::string& path) {
    std::string out;
    out.reserve(path.size());
    bool inIndex = false;
    for (char c : path) {
        if (c == '[') {
            inIndex = true;
            out += "[]";
        } else if (c == ']') {
            inIndex = false;
        } else if (!inIndex) {
            out += c;
        }
    }
    return out;
}

} // namespace kelvarn
