#include "torture/Counts.h"

#include <algorithm>
#include <array>

namespace torture {
namespace {

struct Column {
    const char* name;
    uint64_t Counts::*count;
};

constexpr std::array kColumns{
    Column{"faults", &Counts::faults},     Column{"false success", &Counts::falseSuccess},
    Column{"lost", &Counts::lost},         Column{"overwritten", &Counts::overwritten},
    Column{"unlisted", &Counts::unlisted}, Column{"not finished", &Counts::notFinished},
    Column{"foreign", &Counts::foreign},   Column{"not undone", &Counts::notUndone},
    Column{"hangs", &Counts::hangs},       Column{"crashes", &Counts::crashes},
    Column{"leaked", &Counts::leaked}};

} // namespace

Counts& Counts::operator+=(const Counts& other) {
    for (const Column& column : kColumns) {
        this->*column.count += other.*column.count;
    }
    longestRun = std::max(longestRun, other.longestRun);
    return *this;
}

bool Counts::isClean() const {
    return std::all_of(kColumns.begin(), kColumns.end(), [this](const Column& column) {
        return column.count == &Counts::faults || this->*column.count == 0;
    });
}

std::vector<std::pair<std::string, uint64_t>> columns(const Counts& counts) {
    std::vector<std::pair<std::string, uint64_t>> result;
    for (const Column& column : kColumns) {
        result.emplace_back(column.name, counts.*column.count);
    }
    return result;
}

} // namespace torture
