// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <memory>

#include "platform/linux/src/Frame.h"
#include "platform/linux/src/ObjectTable.h"
#include "platform/linux/src/RemoteBinder.h"
#include "tests/platform/CountedObject.h"
#include "tests/platform/NoLink.h"

namespace {

const ObjectEntry kTheirs{kOwnedBySender, 0, 5, 0};

TEST(ObjectTableTest, ProxyAnswersForWhatItsPredecessorReceived) {
    const auto link = std::make_shared<NoLink>();
    ObjectTable table(nullptr);
    BinderRef former = table.receive(kTheirs, link);
    EXPECT_EQ(table.receive(kTheirs, link), former);
    RemoteBinder* const ending = former->asRemote();
    ending->incWeak();  // its memory outlives its last strong reference
    former.reset();
    EXPECT_EQ(table.size(), 1U);

    const BinderRef next = table.receive(kTheirs, link);
    EXPECT_NE(next.get(), ending);
    EXPECT_EQ(table.release(*ending), 0U);
    EXPECT_EQ(table.release(*next->asRemote()), 3U);
    EXPECT_EQ(table.size(), 0U);
    ending->decWeak();
}

TEST(ObjectTableTest, ObjectIsTakenBackWhenAllOfItIs) {
    int ended = 0;
    const ndk::SpAIBinder object = makeCounted(&ended);
    ObjectTable table(nullptr);
    const uint32_t id = table.send(object.get());
    EXPECT_EQ(table.send(object.get()), id);
    EXPECT_EQ(table.takeBack(id, 1), nullptr);
    EXPECT_THROW(table.takeBack(id, 2), MalformedFrame);
    EXPECT_EQ(table.takeBack(id, 1).get(), object.get());
    EXPECT_THROW(table.takeBack(id, 1), MalformedFrame);
    EXPECT_NE(table.send(object.get()), id);  // no number is given out again so soon
}

}  // namespace
