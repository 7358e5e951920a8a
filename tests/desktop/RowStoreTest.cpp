#include "desktop/pages/RowStore.h"
#include "tests/desktop/RandomEdits.h"

#include <gmock/gmock.h>

#include <array>

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

namespace {

/// The rows of two phones, one of which is shown, as a list shows them.
class ListOfTwoPhones {
public:
    explicit ListOfTwoPhones(uint32_t seed)
        : edits_{RandomEdits(books_[0], seed), RandomEdits(books_[1], seed + 1)}, random_(seed) {}

    /// Something happens to a phone, and may be shown, or in part, or be on its way.
    void next() {
        edits_[below(2)].next();
        if (below(40) == 0) {
            current_ = 1 - current_;
            show();
        } else if (below(3) == 0) {
            show();
        }
        if (store_.size() > 0) {
            store_.at(below(static_cast<uint32_t>(store_.size())));
        }
        if (below(2) == 0) {
            store_.goOn();
        }
    }

    void expectAllIsShown() {
        show();
        while (store_.goOn()) {
        }
        const std::vector<PlacePointer> places = book().places();
        ASSERT_EQ(store_.size(), places.size());
        for (size_t i = 0; i < places.size(); ++i) {
            EXPECT_EQ(rowOf(store_.at(i)), book().row(places[i]->key));
        }
    }

private:
    uint32_t below(uint32_t end) { return static_cast<uint32_t>(random_() % end); }

    PhoneBook& book() { return books_[current_]; }

    void show() {
        RowChanges changes = book().takeChanges();
        if (shown_ != current_ || (changes.areAll && store_.size() == 0)) {
            shown_ = current_;
            store_.set(book().places());
        } else if (changes.areAll) {
            store_.followTo(book().places());
        } else {
            store_.follow(std::move(changes.rows));
        }
    }

    std::array<PhoneBook, 2> books_;
    std::array<RandomEdits, 2> edits_;
    std::mt19937 random_;
    uint32_t current_ = 0;
    uint32_t shown_ = 0;
    RowStore store_{[this](const std::string& key) { return book().row(key); }};
};

} // namespace

TEST(RowStoresOfPhones, ShowWhatThereIsWhateverComesMeanwhile) {
    for (int run = 0; run < 10; ++run) {
        const uint32_t seed = std::random_device{}();
        ListOfTwoPhones list(seed);
        for (int step = 0; step < 1000; ++step) {
            list.next();
            if (step % 50 == 0) {
                list.expectAllIsShown();
                ASSERT_FALSE(testing::Test::HasFailure()) << "seed " << seed << ", step " << step;
            }
        }
    }
}

} // namespace krl::desktop
