// Converts an "ipmitool -v sdr" listing into a platform file (version 1), so a
// real server's sensor set can be served by the simulated source.
#ifndef KELVARN_IPMITOOLLISTING_H
#define KELVARN_IPMITOOLLISTING_H

#include <string>

#include "kelvarn/Api.h"

namespace kelvarn {

// The listing does not carry the conversion factors: they are chosen so that
// the reading and every threshold shown come out exactly when a factor M and
// exponent Rexp can represent them in one byte, and to the nearest raw count
// otherwise. Owner 0x20 and LUN 0 are assumed. Throws PlatformFileError
// ("origin:line: problem") for a listing it cannot read.
KELVARN_API std::string platformFromIpmitoolListing(const std::string& listing, const std::string& origin);

} // namespace kelvarn

#endif
