// A thin wrapper over the net-snmp agent calls the host makes, one method per
// call with the same arguments, so that the request and trap paths can be tested
// against a mock. Data-structure helpers (variable lists, OID comparison) are used
// directly: they have no effect outside the structures they are given.
#ifndef HM_HOST_NETSNMP_H
#define HM_HOST_NETSNMP_H

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>
#include <net-snmp/agent/net-snmp-agent-includes.h>

namespace hmhost {

class NetSnmp {
public:
    virtual ~NetSnmp() = default;

    virtual netsnmp_handler_registration* createHandlerRegistration(const char* name,
                                                                    Netsnmp_Node_Handler* handler,
                                                                    const oid* rootOid, size_t rootLength,
                                                                    int modes) = 0;
    virtual int registerHandler(netsnmp_handler_registration* registration) = 0;
    virtual int unregisterHandler(netsnmp_handler_registration* registration) = 0;
    virtual int registerReadfd(int fd, void (*callback)(int, void*), void* data) = 0;
    virtual int unregisterReadfd(int fd) = 0;
    virtual int setRequestError(netsnmp_agent_request_info* reqinfo, netsnmp_request_info* request,
                                int error) = 0;
    virtual void sendV2trap(netsnmp_variable_list* vars) = 0;
};

// The real calls.
class NetSnmpLibrary : public NetSnmp {
public:
    netsnmp_handler_registration* createHandlerRegistration(const char* name, Netsnmp_Node_Handler* handler,
                                                            const oid* rootOid, size_t rootLength,
                                                            int modes) override {
        return netsnmp_create_handler_registration(name, handler, rootOid, rootLength, modes);
    }
    int registerHandler(netsnmp_handler_registration* registration) override {
        return netsnmp_register_handler(registration);
    }
    int unregisterHandler(netsnmp_handler_registration* registration) override {
        return netsnmp_unregister_handler(registration);
    }
    int registerReadfd(int fd, void (*callback)(int, void*), void* data) override {
        return register_readfd(fd, callback, data);
    }
    int unregisterReadfd(int fd) override { return unregister_readfd(fd); }
    int setRequestError(netsnmp_agent_request_info* reqinfo, netsnmp_request_info* request,
                        int error) override {
        return netsnmp_set_request_error(reqinfo, request, error);
    }
    void sendV2trap(netsnmp_variable_list* vars) override { send_v2trap(vars); }
};

} // namespace hmhost

#endif
