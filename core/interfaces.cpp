#include "core/interfaces.h"

// Defined here, out of line, so that each class's virtual table is emitted in the library.
#define HM_DEFINE_INTERFACE(Name)                                                                            \
    Name::Name() = default;                                                                                  \
    Name::Name(const Name&) = default;                                                                       \
    Name::~Name() = default;                                                                                 \
    Name& Name::operator=(const Name&) = default;

HM_DEFINE_INTERFACE(CChassisIdLedInterface)
HM_DEFINE_INTERFACE(CChassisInterface)
HM_DEFINE_INTERFACE(CDpcInterface)
HM_DEFINE_INTERFACE(CFruInterface)
HM_DEFINE_INTERFACE(CIcmbInterface)
HM_DEFINE_INTERFACE(CKeepOrvAliveInterface)
HM_DEFINE_INTERFACE(CLcdInterface)
HM_DEFINE_INTERFACE(CPagingInterface)
HM_DEFINE_INTERFACE(CPhpDeviceInterface)
HM_DEFINE_INTERFACE(CProcessorInterface)
HM_DEFINE_INTERFACE(CSensorInterface)
HM_DEFINE_INTERFACE(CSystemControlInterface)
HM_DEFINE_INTERFACE(CSystemEventLogInterface)
HM_DEFINE_INTERFACE(CWatchdogInterface)
