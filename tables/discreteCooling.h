// The table of discrete cooling sensors (entity 12).
#ifndef HM_TABLES_DISCRETECOOLING_H
#define HM_TABLES_DISCRETECOOLING_H

#include "tables/BaseContainer.h"

// Attribute codes served so far.
enum DiscreteCoolingAttribute : int {
    discreteCoolingIdAttr = 132,
    discreteCoolingDescriptionAttr = 133,
};

class discreteCooling : public BaseContainer<DiscreteCoolingInfo> {
public:
    discreteCooling();
    ~discreteCooling() override;

    uint32_t getIntInfo(int attribute, int index, int32_t* value) override;
    uint32_t getIntData(int attribute, int index, int32_t* value) override;
    uint32_t getStrInfo(int attribute, int index, char** value) override;
    uint32_t getStrData(int attribute, int index, char** value) override;
    uint32_t setIntData(int attribute, int index, int32_t value) override;
    uint32_t init() override;
};

#endif
