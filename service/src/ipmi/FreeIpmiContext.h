// Opening a FreeIPMI context from the IPMI settings, shared by the FreeIPMI
// backend and the raw-command transport.
#ifndef KELVARN_FREEIPMI_CONTEXT_H
#define KELVARN_FREEIPMI_CONTEXT_H

extern "C" {
#include <freeipmi/freeipmi.h>
}

#include "kelvarn/Ipmi.h"

namespace kelvarn {

// The LAN session or in-band device of `settings`, open; throws IpmiFailure
// (lost) naming the reason when it cannot be opened, std::bad_alloc.
ipmi_ctx_t openFreeIpmiContext(const IpmiSettings& settings);
// Closes and frees a context from openFreeIpmiContext; null is allowed.
void closeFreeIpmiContext(ipmi_ctx_t ctx);
// Whether the context's last error left the session or device of no use.
bool freeIpmiSessionLost(ipmi_ctx_t ctx);

} // namespace kelvarn

#endif
