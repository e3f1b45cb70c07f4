// One thread queues events while another drains them into traps.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "events/eventHandler.h"
#include "fakeClient.h"

namespace {

constexpr int kEvents = 10000;

TEST(EventQueueThreads, EveryEventComesOutOnceInOrder) {
    FakeClient client;
    eventHandler handler;
    ScopedClient scope(&client);
    client.handler = &handler;
    client.health = 3;
    ASSERT_EQ(handler.init(), 0u);

    std::thread producer([&handler] {
        for (int i = 0; i < kEvents; ++i) {
            eventData e;
            std::memset(&e, 0, sizeof(e));
            e.nEventGroup = 2;
            e.nSeverity = 3;
            e.nDeviceID = i;
            std::snprintf(e.stEventDesc, sizeof(e.stEventDesc), "system boot event has occurred #%d", i);
            handler.addEvent(e);
        }
    });

    std::vector<int> seen;
    seen.reserve(kEvents);
    int emptyPolls = 0;
    while (static_cast<int>(seen.size()) < kEvents && emptyPolls < 100000000) {
        AsnObjectIdentifier enterprise = {0, nullptr};
        AsnInteger32 specific = 0;
        SnmpVarBindList list = {nullptr, 0};
        int32_t flag = 0;
        const uint32_t status = handler.processEvent(&enterprise, &specific, &list, &flag);
        ASSERT_EQ(status, 0u);
        if (flag == 0) {
            ++emptyPolls;
            std::this_thread::yield();
            continue;
        }
        ASSERT_EQ(list.len, 2u);
        const AsnOctetString& text = list.list[0].value.asnValue.string;
        const std::string description(reinterpret_cast<const char*>(text.stream), text.length);
        const size_t mark = description.find('#');
        ASSERT_NE(mark, std::string::npos);
        seen.push_back(std::stoi(description.substr(mark + 1)));
        SnmpUtilVarBindListFree(&list);
        SnmpUtilOidFree(&enterprise);
    }
    producer.join();

    ASSERT_EQ(seen.size(), static_cast<size_t>(kEvents));
    for (int i = 0; i < kEvents; ++i) {
        ASSERT_EQ(seen[i], i);
    }
    EXPECT_EQ(handler.queuedEvents(), 0u);
}

} // namespace
