// The table of cooling devices, the fans (entity 11).
#ifndef HM_TABLES_COOLINGDEVICE_H
#define HM_TABLES_COOLINGDEVICE_H

#include "tables/BaseContainer.h"

// Attribute codes served so far.
enum CoolingDeviceAttribute : int {
    coolingDeviceIdAttr = 117,
    coolingDeviceDescriptionAttr = 118,
};

class coolingDevice : public BaseContainer<CoolingDeviceInfo> {
public:
    coolingDevice();
    ~coolingDevice() override;

    uint32_t getIntInfo(int attribute, int index, int32_t* value) override;
    uint32_t getIntData(int attribute, int index, int32_t* value) override;
    uint32_t getStrInfo(int attribute, int index, char** value) override;
    uint32_t getStrData(int attribute, int index, char** value) override;
    uint32_t setIntData(int attribute, int index, int32_t value) override;
    uint32_t init() override;
};

#endif
