// The Windows build of the query service has no IPMI backend: FreeIPMI is a POSIX
// library. A service configuration that asks for bmc=ipmi-inband or ipmi-lan gets a
// "data source unavailable" failure naming the reason; the simulated, demo and SMBIOS
// dump sources work as on Linux.
#include "kelvarn/Ipmi.h"
#include "kelvarn/PlatformFile.h"

namespace kelvarn {

std::unique_ptr<IpmiBackend> makeFreeIpmiBackend(const IpmiSettings&) {
    throw PlatformFileError("IPMI access through FreeIPMI is not available in the Windows build");
}

} // namespace kelvarn
