#include "desktop/pages/RowStore.h"

#include <algorithm>
#include <utility>

struct _VeskRows {
    GObject parent;
    krl::desktop::RowStore* store; ///< null once that is gone
};

static GType vesk_rows_item_type(GListModel* /*model*/) {
    return VESK_TYPE_ROW;
}

static guint vesk_rows_count(GListModel* model) {
    const auto* const store = VESK_ROWS(model)->store;
    return store == nullptr ? 0 : static_cast<guint>(store->size());
}

static gpointer vesk_rows_item(GListModel* model, guint position) {
    return position < vesk_rows_count(model) ? g_object_ref(VESK_ROWS(model)->store->at(position))
                                             : nullptr;
}

static void vesk_rows_list_model_init(GListModelInterface* interface) {
    interface->get_item_type = vesk_rows_item_type;
    interface->get_n_items = vesk_rows_count;
    interface->get_item = vesk_rows_item;
}

G_DEFINE_FINAL_TYPE_WITH_CODE(VeskRows, vesk_rows, G_TYPE_OBJECT,
                              G_IMPLEMENT_INTERFACE(G_TYPE_LIST_MODEL, vesk_rows_list_model_init))

static void vesk_rows_init(VeskRows* self) {
    self->store = nullptr;
}

static void vesk_rows_class_init(VeskRowsClass* /*type*/) {}

namespace krl::desktop {

RowStore::RowStore(std::function<Row(const std::string& key)> row)
    : row_(std::move(row)), model_(adopt(VESK_ROWS(g_object_new(VESK_TYPE_ROWS, nullptr)))) {
    model_.get()->store = this;
}

RowStore::~RowStore() {
    const size_t removed = slots_.size();
    slots_.clear();
    tell(0, removed, 0);
    model_.get()->store = nullptr;
}

VeskRow* RowStore::at(size_t position) {
    Slot& slot = slots_[position];
    ++looks_;
    if (!slot.row) {
        slot.row = adopt(newRowObject(row_(slot.place->key)));
    }
    return slot.row.get();
}

void RowStore::refresh(Slot& slot) {
    if (slot.row) {
        setRow(slot.row.get(), row_(slot.place->key));
    }
}

void RowStore::tell(size_t position, size_t removed, size_t added) {
    g_list_model_items_changed(model(), static_cast<guint>(position), static_cast<guint>(removed),
                               static_cast<guint>(added));
}

void RowStore::set(const std::vector<PlacePointer>& places) {
    ahead_.clear();
    const auto isSame = [](const Slot& slot, const PlacePointer& place) {
        return slot.place == place || slot.place->key == place->key;
    };
    const size_t shorter = std::min(slots_.size(), places.size());
    size_t head = 0;
    while (head < shorter && isSame(slots_[head], places[head])) {
        ++head;
    }
    size_t tail = 0;
    while (tail < shorter - head &&
           isSame(slots_[slots_.size() - 1 - tail], places[places.size() - 1 - tail])) {
        ++tail;
    }
    const size_t removed = slots_.size() - head - tail;
    const size_t added = places.size() - head - tail;
    std::vector<Slot> slots(places.size());
    for (size_t i = 0; i < places.size(); ++i) {
        slots[i].place = places[i];
        if (i < head) {
            slots[i].row = std::move(slots_[i].row);
        } else if (i >= head + added) {
            slots[i].row = std::move(slots_[i + removed - added].row);
        }
    }
    slots_ = std::move(slots);
    if (removed > 0 || added > 0) {
        tell(head, removed, added);
    }
    for (Slot& slot : slots_) {
        refresh(slot);
    }
}

std::vector<RowStore::Slot>::iterator RowStore::find(const PlacePointer& place) {
    return std::lower_bound(slots_.begin(), slots_.end(), place,
                            [](const Slot& slot, const PlacePointer& sought) {
                                return standsBefore(slot.place, sought);
                            });
}

void RowStore::apply(const RowChange& change) {
    const auto& [before, now] = change;
    if (before != nullptr && before == now) {
        refresh(*find(before));
        return;
    }
    if (before != nullptr) {
        const auto gone = slots_.erase(find(before));
        tell(static_cast<size_t>(gone - slots_.begin()), 1, 0);
    }
    if (now != nullptr) {
        const auto added = slots_.insert(find(now), Slot{now});
        tell(static_cast<size_t>(added - slots_.begin()), 0, 1);
    }
}

/// What goes does so from the end, so that nobody looks at rows that move up and are to go too; what
/// comes does so from the beginning, so that a list that was empty stays where it begins.
void RowStore::follow(std::vector<RowChange> changes) {
    const auto staying =
        std::partition(changes.begin(), changes.end(),
                       [](const RowChange& change) { return change.now == nullptr; });
    std::sort(changes.begin(), staying, [](const RowChange& left, const RowChange& right) {
        return standsBefore(right.before, left.before);
    });
    std::sort(staying, changes.end(), [](const RowChange& left, const RowChange& right) {
        return standsBefore(left.now, right.now);
    });
    ahead_.insert(ahead_.end(), changes.begin(), changes.end());
}

void RowStore::followTo(const std::vector<PlacePointer>& places) {
    std::vector<RowChange> changes;
    auto slot = slots_.begin();
    for (const PlacePointer& place : places) {
        for (; slot != slots_.end() && standsBefore(slot->place, place); ++slot) {
            changes.push_back({slot->place, nullptr});
        }
        if (slot == slots_.end() || standsBefore(place, slot->place)) {
            changes.push_back({nullptr, place});
            continue;
        }
        if (slot->row) {
            changes.push_back({slot->place, slot->place});
        }
        ++slot;
    }
    for (; slot != slots_.end(); ++slot) {
        changes.push_back({slot->place, nullptr});
    }
    ahead_.clear();
    follow(std::move(changes));
}

bool RowStore::goOn() {
    constexpr size_t kMostChanges = 256;
    looks_ = 0;
    for (size_t i = 0; i < kMostChanges && looks_ < kMostLooks && !ahead_.empty(); ++i) {
        const RowChange change = std::move(ahead_.front());
        ahead_.pop_front();
        apply(change);
    }
    return !ahead_.empty();
}

} // namespace krl::desktop
