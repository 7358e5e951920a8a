#include "mobiledevice/provider/devices/Handles.h"

#include <gtest/gtest.h>

#include <set>
#include <thread>

namespace krl::provider::testing {
namespace {

struct Thing final : Object {
    explicit Thing(bool* destroyed = nullptr) : destroyed_(destroyed) {}

    ~Thing() override {
        if (destroyed_ != nullptr) {
            *destroyed_ = true;
        }
    }

    bool* destroyed_;
};

struct OtherThing final : Object {};

void* handle(Handles::Id id) {
    return toHandle<void>(id);
}

TEST(Handles, FindWhatWasAdded) {
    Handles table;
    const auto thing = std::make_shared<Thing>();
    void* id = handle(table.add(thing));
    EXPECT_EQ(table.find<Thing>(id), thing);
}

TEST(Handles, NullAndUnknownOnesAreNotFound) {
    Handles table;
    table.add(std::make_shared<Thing>());
    EXPECT_FALSE(table.find<Thing>(nullptr));
    EXPECT_FALSE(table.find<Thing>(&table));
    EXPECT_FALSE(table.take<Thing>(nullptr));
    EXPECT_FALSE(table.release<Thing>(nullptr));
    EXPECT_FALSE(table.retain<Thing>(nullptr));
}

TEST(Handles, OnesOfAnotherTypeAreNotFoundAndStay) {
    Handles table;
    void* id = handle(table.add(std::make_shared<Thing>()));
    EXPECT_FALSE(table.find<OtherThing>(id));
    EXPECT_FALSE(table.take<OtherThing>(id));
    EXPECT_FALSE(table.release<OtherThing>(id));
    EXPECT_FALSE(table.retain<OtherThing>(id));
    EXPECT_TRUE(table.find<Thing>(id));
}

TEST(Handles, AreTakenOnce) {
    Handles table;
    bool destroyed = false;
    void* id = handle(table.add(std::make_shared<Thing>(&destroyed)));
    auto taken = table.take<Thing>(id);
    EXPECT_TRUE(taken);
    EXPECT_FALSE(table.take<Thing>(id));
    EXPECT_FALSE(table.find<Thing>(id));
    EXPECT_FALSE(destroyed);
    taken.reset();
    EXPECT_TRUE(destroyed);
}

TEST(Handles, AreNeverUsedTwice) {
    Handles table;
    std::set<Handles::Id> seen;
    for (int i = 0; i < 1000; ++i) {
        const Handles::Id id = table.add(std::make_shared<Thing>());
        EXPECT_TRUE(seen.insert(id).second);
        table.take<Thing>(handle(id));
    }
}

TEST(Handles, GoWithTheLastReference) {
    Handles table;
    bool destroyed = false;
    void* id = handle(table.add(std::make_shared<Thing>(&destroyed)));
    EXPECT_TRUE(table.retain<Thing>(id));
    EXPECT_FALSE(table.release<Thing>(id));
    EXPECT_TRUE(table.find<Thing>(id));
    EXPECT_TRUE(table.release<Thing>(id));
    EXPECT_TRUE(destroyed);
    EXPECT_FALSE(table.release<Thing>(id));
    EXPECT_FALSE(table.retain<Thing>(id));
}

TEST(Handles, GoWithTheirOwnerAndItsOwner) {
    Handles table;
    bool innerDestroyed = false;
    const Handles::Id outer = table.add(std::make_shared<OtherThing>());
    const Handles::Id middle = table.add(std::make_shared<Thing>(), outer);
    const Handles::Id inner = table.add(std::make_shared<Thing>(&innerDestroyed), middle);
    const Handles::Id other = table.add(std::make_shared<Thing>());
    EXPECT_TRUE(table.release<OtherThing>(handle(outer)));
    EXPECT_TRUE(innerDestroyed);
    EXPECT_FALSE(table.find<Thing>(handle(middle)));
    EXPECT_FALSE(table.find<Thing>(handle(inner)));
    EXPECT_TRUE(table.find<Thing>(handle(other)));
}

TEST(Handles, MayGoBeforeTheirOwner) {
    Handles table;
    const Handles::Id owner = table.add(std::make_shared<OtherThing>());
    const Handles::Id owned = table.add(std::make_shared<Thing>(), owner);
    EXPECT_TRUE(table.take<Thing>(handle(owned)));
    EXPECT_TRUE(table.take<OtherThing>(handle(owner)));
}

TEST(Handles, AreNotAddedToAnOwnerThatIsGone) {
    Handles table;
    const Handles::Id owner = table.add(std::make_shared<OtherThing>());
    table.take<OtherThing>(handle(owner));
    EXPECT_EQ(table.add(std::make_shared<Thing>(), owner), 0u);
}

TEST(Handles, AnObjectInUseOutlivesItsHandle) {
    Handles table;
    bool destroyed = false;
    void* id = handle(table.add(std::make_shared<Thing>(&destroyed)));
    auto inUse = table.find<Thing>(id);
    table.take<Thing>(id);
    EXPECT_FALSE(destroyed);
    inUse.reset();
    EXPECT_TRUE(destroyed);
}

TEST(Handles, AreUsedFromManyThreads) {
    Handles table;
    const Handles::Id owner = table.add(std::make_shared<OtherThing>());
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int j = 0; j < 1000; ++j) {
                void* id = handle(table.add(std::make_shared<Thing>(), owner));
                EXPECT_TRUE(table.retain<Thing>(id));
                EXPECT_FALSE(table.release<Thing>(id));
                EXPECT_TRUE(table.release<Thing>(id));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(table.find<OtherThing>(handle(owner)));
}

} // namespace
} // namespace krl::provider::testing
