#pragma once

#include "desktop/pages/RowObject.h"
#include "desktop/toolkit/Owned.h"

#include <gio/gio.h>

#include <vector>

namespace krl::desktop {

/// The rows as a list model. What stays is left where it is, so that neither the selection nor the
/// place in the list is lost.
class RowStore {
public:
    RowStore() : store_(adopt(g_list_store_new(VESK_TYPE_ROW))) {}

    GListModel* model() const { return G_LIST_MODEL(store_.get()); }

    void set(const std::vector<Row>& rows);

private:
    Owned<VeskRow> at(guint position) const;

    Owned<GListStore> store_;
};

} // namespace krl::desktop
