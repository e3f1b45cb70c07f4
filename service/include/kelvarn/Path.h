// The query path language: "/NAME[index]/NAME/...".
#ifndef KELVARN_PATH_H
#define KELVARN_PATH_H

#include <cstdint>
#include <string>
#include <vector>

#include "kelvarn/Api.h"

namespace kelvarn {

struct PathSegment {
    std::string name;
    bool hasIndex = false;
    uint32_t index = 0;

    bool is(const char* n) const { return !hasIndex && name == n; }
    bool isIndexed(const char* n) const { return hasIndex && name == n; }
};

// Splits an absolute path into segments. Throws QueryError (kMalformedPath or
// kPathTooLong) for an empty path, one without a leading '/', an empty segment,
// a bracket without its partner, an index that is not a decimal number or does
// not fit 32 bits, text after ']' or a control character.
KELVARN_API std::vector<PathSegment> parsePath(const std::string& path);

// The path with every index removed ("/A[3]/B" -> "/A[]/B"): the path's shape.
KELVARN_API std::string pathShape(const std::string& path);

} // namespace kelvarn

#endif
