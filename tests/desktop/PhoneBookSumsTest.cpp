#include "tests/desktop/RandomEdits.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <iostream>

namespace krl::desktop {
namespace {

/// What the sums are, found by going through everything.
EditSum naiveSum(const std::vector<Row>& rows) {
    EditSum sum;
    for (const Row& row : rows) {
        switch (row.mark) {
        case Mark::New:
            ++sum.added;
            sum.addedBytes += row.size;
            break;
        case Mark::Removed:
            ++sum.removed;
            sum.removedBytes += row.size;
            break;
        case Mark::Renamed:
            ++sum.renamed;
            break;
        case Mark::Checking:
        case Mark::Preparing:
            ++sum.underWay;
            break;
        case Mark::OnPhone:
        case Mark::NameTaken:
        case Mark::Unusable:
            break;
        }
    }
    return sum;
}

bool isReady(const Row& row) {
    return row.mark == Mark::New || row.mark == Mark::NameTaken;
}

uint64_t numberOf(const Row& row) {
    return std::stoull(row.key.substr(1));
}

/// Which of the songs that are ready go to the phone.
std::set<std::string> naiveGoing(const std::vector<Row>& rows) {
    std::set<std::string> taken;
    std::map<std::string, const Row*> first;
    for (const Row& row : rows) {
        const std::string name = tidiedName(row.name);
        if (row.mark == Mark::OnPhone || row.mark == Mark::Renamed) {
            taken.insert(name);
        } else if (isReady(row)) {
            const Row*& one = first[name];
            one = one == nullptr || numberOf(row) < numberOf(*one) ? &row : one;
        }
    }
    std::set<std::string> keys;
    for (const auto& [name, row] : first) {
        if (!taken.contains(name)) {
            keys.insert(row->key);
        }
    }
    return keys;
}

std::vector<Row> rowsOf(const PhoneBook& book) {
    std::vector<Row> rows;
    for (const PlacePointer& place : book.places()) {
        rows.push_back(book.row(place->key));
    }
    return rows;
}

void expectSums(const PhoneBook& book) {
    const std::vector<Row> rows = rowsOf(book);
    const EditSum naive = naiveSum(rows);
    const EditSum& sum = book.sum();
    EXPECT_EQ(sum.added, naive.added);
    EXPECT_EQ(sum.addedBytes, naive.addedBytes);
    EXPECT_EQ(sum.removed, naive.removed);
    EXPECT_EQ(sum.removedBytes, naive.removedBytes);
    EXPECT_EQ(sum.renamed, naive.renamed);
    EXPECT_EQ(sum.underWay, naive.underWay);
    EXPECT_EQ(book.isEmpty(), rows.empty());
    std::set<std::string> going;
    for (const Row& row : rows) {
        if (row.mark == Mark::New) {
            going.insert(row.key);
        }
    }
    EXPECT_EQ(going, naiveGoing(rows));
    EXPECT_EQ(book.wanted().added.size(), naive.added);
}

/// No two ringtones that the phone will have look alike, unless they do already.
void expectNoNameTwice(const PhoneBook& book) {
    std::map<std::string, size_t> newNames;
    std::set<std::string> oldNames;
    for (const Row& row : rowsOf(book)) {
        const std::string name = tidiedName(row.name);
        if (row.mark == Mark::New || row.mark == Mark::Renamed) {
            ++newNames[name];
        } else if (row.mark == Mark::OnPhone) {
            oldNames.insert(name);
        }
    }
    for (const auto& [name, count] : newNames) {
        EXPECT_EQ(count, 1U) << name;
        EXPECT_FALSE(oldNames.contains(name)) << name;
    }
}

/// Knows the rows by what it was told of them alone.
class Follower {
public:
    void follow(PhoneBook& book) {
        const RowChanges changes = book.takeChanges();
        if (changes.areAll) {
            rows_.clear();
            for (const Row& row : rowsOf(book)) {
                rows_[row.key] = row;
            }
        }
        for (const auto& [before, now] : changes.rows) {
            if (before != nullptr) {
                EXPECT_EQ(rows_.erase(before->key), 1U) << before->key;
            }
            if (now != nullptr) {
                rows_[now->key] = book.row(now->key);
            }
        }
    }

    void expectAllOf(const PhoneBook& book) const {
        std::map<std::string, Row> rows;
        for (const Row& row : rowsOf(book)) {
            EXPECT_TRUE(rows.emplace(row.key, row).second) << "twice: " << row.key;
        }
        EXPECT_EQ(rows_, rows);
    }

private:
    std::map<std::string, Row> rows_;
};

} // namespace

TEST(PhoneBookSums, AreWhatIsThereWhateverIsDone) {
    for (int run = 0; run < 20; ++run) {
        const uint32_t seed = std::random_device{}();
        PhoneBook book;
        Follower follower;
        RandomEdits edits(book, seed);
        for (int step = 0; step < 400; ++step) {
            const std::string deed = edits.next();
            expectSums(book);
            expectNoNameTwice(book);
            if (step % 3 == 0) {
                follower.follow(book);
                follower.expectAllOf(book);
            }
            ASSERT_FALSE(HasFailure()) << "seed " << seed << ", step " << step << ": " << deed;
        }
    }
}

} // namespace krl::desktop
