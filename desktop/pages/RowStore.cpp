#include "desktop/pages/RowStore.h"

#include <algorithm>

namespace krl::desktop {

Owned<VeskRow> RowStore::at(guint position) const {
    return adopt(static_cast<VeskRow*>(g_list_model_get_item(model(), position)));
}

void RowStore::set(const std::vector<Row>& rows) {
    const auto before = static_cast<size_t>(g_list_model_get_n_items(model()));
    const auto isSame = [&](size_t old, size_t fresh) {
        return rowOf(at(static_cast<guint>(old)).get()).key == rows[fresh].key;
    };
    size_t head = 0;
    while (head < std::min(before, rows.size()) && isSame(head, head)) {
        setRow(at(static_cast<guint>(head)).get(), rows[head]);
        ++head;
    }
    size_t tail = 0;
    while (tail < std::min(before, rows.size()) - head &&
           isSame(before - 1 - tail, rows.size() - 1 - tail)) {
        setRow(at(static_cast<guint>(before - 1 - tail)).get(), rows[rows.size() - 1 - tail]);
        ++tail;
    }
    std::vector<Owned<VeskRow>> fresh;
    std::vector<gpointer> added;
    for (size_t i = head; i < rows.size() - tail; ++i) {
        fresh.push_back(adopt(newRowObject(rows[i])));
        added.push_back(fresh.back().get());
    }
    if (before - head - tail > 0 || !added.empty()) {
        g_list_store_splice(store_.get(), static_cast<guint>(head),
                            static_cast<guint>(before - head - tail), added.data(),
                            static_cast<guint>(added.size()));
    }
}

} // namespace krl::desktop
