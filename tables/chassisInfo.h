// The chassis group (entity 2): one element when the chassis facts are known.
#ifndef HM_TABLES_CHASSISINFO_H
#define HM_TABLES_CHASSISINFO_H

#include "tables/BaseContainer.h"

class chassisInfo : public BaseContainer<ChassisInfo> {
public:
    chassisInfo();
    ~chassisInfo() override;

    uint32_t getIntInfo(int attribute, int index, int32_t* value) override;
    uint32_t getIntData(int attribute, int index, int32_t* value) override;
    uint32_t getStrInfo(int attribute, int index, char** value) override;
    uint32_t getStrData(int attribute, int index, char** value) override;
    uint32_t setIntData(int attribute, int index, int32_t value) override;
    uint32_t init() override;
};

#endif
