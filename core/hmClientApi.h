// What the SNMP front end and the event code see of the client facade: the free
// functions that forward to the one hmClient (the entity and status codes they speak
// come from platform/hmVocabulary.h).
#ifndef HM_CORE_HMCLIENTAPI_H
#define HM_CORE_HMCLIENTAPI_H

#include <cstdint>
#include <snmp.h>

#include "platform/hmVocabulary.h"

struct eventData;
class subagentBase;

// Test seam: makes initHMClient create its object through `factory` instead of
// `new hmClient`; a null factory restores the production path.
void setClientFactory(subagentBase* (*factory)());

// Creates the one hmClient, stores it in gSubagent and returns its init result.
uint32_t initHMClient();
void releaseTables();
// Deletes the one hmClient (its groups and event handler with it) and clears gSubagent.
void destroyHMClient();

uint32_t getIntInfo(uint32_t entity, uint32_t attribute, uint32_t index, int32_t* value);
uint32_t getIntData(uint32_t entity, uint32_t attribute, uint32_t index, int32_t* value);
uint32_t getStrInfo(uint32_t entity, uint32_t attribute, uint32_t index, char** value);
uint32_t getStrData(uint32_t entity, uint32_t attribute, uint32_t index, char** value);
uint32_t setIntData(uint32_t entity, uint32_t attribute, uint32_t index, int32_t value);

uint32_t getTableSize(uint32_t entity);
uint32_t getTableStatus(uint32_t entity);
uint32_t findElementById(uint32_t entity, uint32_t id);
const char* getElementName(uint32_t entity, uint32_t index);
void seedHealth(uint32_t entity);

uint32_t processEvent(AsnObjectIdentifier* enterprise, AsnInteger32* specificTrap, SnmpVarBindList* varBinds,
                      int32_t* trapToSend);
void addEvent(eventData event);
void setHealthstatus(int32_t status);
int32_t getHealthstatus();
bool isSetsEnabled();
bool isTrapsEnabled();

// Health names ("Monitor", "Information", "OK", "Degraded", "Error", "Fatal") to status codes.
int32_t mapHealthNameToStatus(const char* name);
// Status codes 1..6 to their names ("other" ... "nonRecoverable"); null for any other code.
const char* mapStatusToName(int32_t status);

#endif
