#include "desktop/pages/RowStore.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace krl::desktop {
namespace {

/// Rows of these names, as somebody sees them who is told of changes alone.
class RowStores : public ::testing::Test {
protected:
    RowStores() {
        g_signal_connect(
            store.model(), "items-changed",
            G_CALLBACK(+[](GListModel* /*model*/, guint position, guint removed, guint added,
                           RowStores* self) { self->hear(position, removed, added); }),
            this);
    }

    ~RowStores() override { g_signal_handlers_disconnect_by_data(store.model(), this); }

    static PlacePointer place(const std::string& name) { return newPlace(name, name); }

    static std::vector<PlacePointer> numbered(size_t count) {
        std::vector<PlacePointer> places;
        for (size_t i = 0; i < count; ++i) {
            places.push_back(place(std::to_string(1000 + i)));
        }
        return places;
    }

    static std::vector<RowChange> coming(const std::vector<PlacePointer>& places) {
        std::vector<RowChange> changes;
        for (const PlacePointer& place : places) {
            changes.push_back({nullptr, place});
        }
        return changes;
    }

    static std::vector<std::string> keys(const std::vector<PlacePointer>& places) {
        std::vector<std::string> result;
        for (const PlacePointer& place : places) {
            result.push_back(place->key);
        }
        return result;
    }

    void carryOutAll() {
        while (store.goOn()) {
        }
    }

    RowStore store{
        [this](const std::string& key) { return Row{.key = key, .name = prefix + key}; }};
    std::string prefix;
    std::vector<std::string> seen; ///< keys
    std::vector<guint> gonePositions;

private:
    void hear(guint position, guint removed, guint added) {
        gonePositions.insert(gonePositions.end(), removed, position);
        const auto begin = seen.begin() + position;
        seen.erase(begin, begin + removed);
        for (guint i = 0; i < added; ++i) {
            seen.insert(seen.begin() + position + i, rowOf(store.at(position + i)).key);
        }
    }
};

} // namespace

TEST_F(RowStores, CarryAFewChangesOutInOneRun) {
    store.set({place("a"), place("c")});
    store.follow({{place("a"), nullptr}, {nullptr, place("b")}, {nullptr, place("d")}});
    EXPECT_FALSE(store.goOn());
    EXPECT_THAT(seen, ElementsAre("b", "c", "d"));
}

TEST_F(RowStores, LetNoMoreRowsBeLookedAtInARunThanThereMayBe) {
    const auto places = numbered(100);
    store.follow(coming(places));
    for (size_t shown = RowStore::kMostLooks; shown < places.size();
         shown += RowStore::kMostLooks) {
        EXPECT_TRUE(store.goOn());
        EXPECT_EQ(seen.size(), shown);
    }
    EXPECT_FALSE(store.goOn());
    EXPECT_EQ(seen, keys(places));
}

TEST_F(RowStores, CarryOutWhatComesMeanwhileBehindTheRest) {
    const auto places = numbered(50);
    store.follow(coming(places));
    store.goOn();
    store.follow({{places.front(), nullptr}, {places.back(), nullptr}});
    carryOutAll();
    EXPECT_EQ(seen, keys({places.begin() + 1, places.end() - 1}));
}

TEST_F(RowStores, FollowToOtherRowsFromHalfOfTheWay) {
    const auto places = numbered(50);
    store.follow(coming(places));
    store.goOn();
    const std::vector<PlacePointer> others = {place("0"), places[3], place("10035"), places[40]};
    store.followTo(others);
    carryOutAll();
    EXPECT_EQ(seen, keys(others));
    store.followTo({});
    carryOutAll();
    EXPECT_THAT(seen, IsEmpty());
}

TEST_F(RowStores, LeaveWhatStaysWhereItIsAndShowWhatItIsNow) {
    store.set({place("a"), place("b")});
    VeskRow* const row = store.at(1);
    prefix = "new ";
    store.followTo({place("b"), place("c")});
    carryOutAll();
    EXPECT_EQ(store.at(0), row);
    EXPECT_EQ(rowOf(row).name, "new b");
}

TEST_F(RowStores, LetGoFromTheEnd) {
    const std::vector<PlacePointer> places = {place("a"), place("b"), place("c")};
    store.set(places);
    store.follow({{places[1], nullptr}, {places[0], nullptr}, {places[2], nullptr}});
    carryOutAll();
    EXPECT_THAT(gonePositions, ElementsAre(2, 1, 0)) << "what is to go too does not move up";
}

TEST_F(RowStores, DropWhatIsAheadWhenAllIsSet) {
    store.follow(coming(numbered(50)));
    store.goOn();
    store.set({place("a")});
    EXPECT_FALSE(store.goOn());
    EXPECT_THAT(seen, ElementsAre("a"));
}

} // namespace krl::desktop
