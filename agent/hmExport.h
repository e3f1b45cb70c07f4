// Marks the names the agent library exports; everything else stays hidden.
#ifndef HM_AGENT_HMEXPORT_H
#define HM_AGENT_HMEXPORT_H

#if defined(_WIN32)
#define HM_EXPORT __declspec(dllexport)
#else
#define HM_EXPORT __attribute__((visibility("default")))
#endif

#endif
