// Interface classes the library exports so that other modules can link against a stable
// set of names. They carry no operations; the event interface is declared with the events.
#ifndef HM_CORE_INTERFACES_H
#define HM_CORE_INTERFACES_H

#include "platform/hmVocabulary.h"

#define HM_DECLARE_INTERFACE(Name)                                                                           \
    class HM_EXPORT Name {                                                                                   \
    public:                                                                                                  \
        Name();                                                                                              \
        Name(const Name& other);                                                                             \
        virtual ~Name();                                                                                     \
        Name& operator=(const Name& other);                                                                  \
    }

HM_DECLARE_INTERFACE(CChassisIdLedInterface);
HM_DECLARE_INTERFACE(CChassisInterface);
HM_DECLARE_INTERFACE(CDpcInterface);
HM_DECLARE_INTERFACE(CFruInterface);
HM_DECLARE_INTERFACE(CIcmbInterface);
HM_DECLARE_INTERFACE(CKeepOrvAliveInterface);
HM_DECLARE_INTERFACE(CLcdInterface);
HM_DECLARE_INTERFACE(CPagingInterface);
HM_DECLARE_INTERFACE(CPhpDeviceInterface);
HM_DECLARE_INTERFACE(CProcessorInterface);
// CSensorInterface has no CheckIfRedundant member: no signature or behaviour is known
// for it, and C++ cannot add a member to a class from another file, so it is left out.
HM_DECLARE_INTERFACE(CSensorInterface);
HM_DECLARE_INTERFACE(CSystemControlInterface);
HM_DECLARE_INTERFACE(CSystemEventLogInterface);
HM_DECLARE_INTERFACE(CWatchdogInterface);

#undef HM_DECLARE_INTERFACE

#endif
