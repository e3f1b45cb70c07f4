// Starts the agent once per fuzz process, as the SNMP service starts it: a quiet
// configuration in a scratch registry, the built-in demo platform, every region
// handed out, and the event poller parked at its first sleep (the targets poll
// themselves). Released with SnmpExtensionClose when the process exits.
#ifndef HM_FUZZ_FUZZAGENT_H
#define HM_FUZZ_FUZZAGENT_H

#include <memory>

#include "kelvarn/Responder.h"

namespace hmfuzz {

// `trapsEnabled` is the configuration's trapsenabled. Returns false when
// SnmpExtensionInit refuses. HM_FUZZ_TRACE=FILE turns the agent's trace on, to see
// why an input fails.
bool startAgent(bool trapsEnabled);

// The responder the agent was started with (the demo platform).
const std::shared_ptr<kelvarn::Responder>& agentResponder();

} // namespace hmfuzz

#endif
