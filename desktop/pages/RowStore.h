#pragma once

#include "desktop/pages/RowObject.h"
#include "desktop/toolkit/Owned.h"

#include <gio/gio.h>

#include <deque>
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

    /// Takes rows in the place of all that there are, at once.
    void set(const std::vector<PlacePointer>& places);

    // What follows is carried out by goOn().

    /// Takes changes in, behind those that are not carried out yet.
    void follow(std::vector<RowChange> changes);

    /// The changes that lead to these rows, in the place of those that are not carried out yet.
    void followTo(const std::vector<PlacePointer>& places);

    /// Rows that are looked at in a run before it ends: a widget is made for each.
    static constexpr size_t kMostLooks = 8;

    /// Carries out a run of changes.
    /// @return whether there are more
    bool goOn();

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
    void apply(const RowChange& change);
    void tell(size_t position, size_t removed, size_t added);

    const std::function<Row(const std::string& key)> row_;
    std::vector<Slot> slots_;
    std::deque<RowChange> ahead_; ///< not carried out yet
    size_t looks_ = 0;            ///< at rows, in a run
    Owned<VeskRows> model_;
};

} // namespace krl::desktop
