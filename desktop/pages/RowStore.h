#pragma once

#include "desktop/pages/RowObject.h"
#include "desktop/toolkit/Owned.h"

#include <gio/gio.h>

#include <functional>
#include <string>
#include <vector>

// The rows as a list model, which makes a row when somebody looks at it.

#define VESK_TYPE_ROWS (vesk_rows_get_type())
G_DECLARE_FINAL_TYPE(VeskRows, vesk_rows, VESK, ROWS, GObject)

namespace krl::desktop {

/// The rows of a list model, in their order. What stays is left where it is, so that neither the
/// selection nor the place in the list is lost.
class RowStore {
public:
    /// @param row  says what a row shows
    explicit RowStore(std::function<Row(const std::string& key)> row);
    ~RowStore();

    RowStore(const RowStore&) = delete;
    RowStore& operator=(const RowStore&) = delete;

    GListModel* model() const { return G_LIST_MODEL(model_.get()); }

    /// Takes rows in the place of all that there are.
    void set(const std::vector<PlacePointer>& places);

    void apply(const std::vector<RowChange>& changes);

    size_t size() const { return slots_.size(); }

    /// A row as an object, which is made when it is looked at first.
    VeskRow* at(size_t position);

private:
    struct Slot {
        PlacePointer place;
        Owned<VeskRow> row = {};
    };

    std::vector<Slot>::iterator find(const PlacePointer& place);
    void refresh(Slot& slot);
    void tell(size_t position, size_t removed, size_t added);

    const std::function<Row(const std::string& key)> row_;
    std::vector<Slot> slots_;
    Owned<VeskRows> model_;
};

} // namespace krl::desktop
