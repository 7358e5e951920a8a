#include "desktop/pages/RingtoneList.h"

#include "desktop/pages/RowView.h"
#include "desktop/toolkit/Signals.h"

#include <utility>

namespace krl::desktop {
namespace {

/// Rows that are shown at a time while a list is new.
constexpr guint kAtOnce = 12;

/// More than the toolkit makes widgets for.
constexpr guint kMany = 256;

/// As text is compared when somebody looks for something.
std::string folded(const std::string& text) {
    const std::string normal = taken(g_utf8_normalize(text.c_str(), -1, G_NORMALIZE_ALL));
    return taken(g_utf8_casefold(normal.c_str(), -1));
}

} // namespace

RingtoneList::RingtoneList(Session& session, GtkListView* view, GtkSearchEntry* search)
    : session_(session), store_([&session](const std::string& key) { return session.row(key); }),
      filter_(adopt(gtk_custom_filter_new(
          [](gpointer item, gpointer self) -> gboolean {
              const std::string name = folded(rowOf(static_cast<VeskRow*>(item)).name);
              const auto* list = static_cast<const RingtoneList*>(self);
              return name.find(list->wanted_) != std::string::npos;
          },
          this, nullptr))),
      found_(adopt(newFilter())),
      begun_(adopt(gtk_slice_list_model_new(G_LIST_MODEL(g_object_ref(found_.get())), 0, kAtOnce))),
      selection_(adopt(gtk_multi_selection_new(G_LIST_MODEL(g_object_ref(begun_.get()))))) {
    gtk_list_view_set_model(view, GTK_SELECTION_MODEL(selection_.get()));
    const auto factory = adopt(newFactory());
    gtk_list_view_set_factory(view, factory.get());
    onEmission(view, "activate", [this](const Emission& emission) {
        const auto item = adopt(static_cast<VeskRow*>(g_list_model_get_item(
            G_LIST_MODEL(selection_.get()), g_value_get_uint(emission.parameters + 1))));
        onActivated(rowOf(item.get()).key);
    });
    on(search, "search-changed",
       [this, search] { lookFor(gtk_editable_get_text(GTK_EDITABLE(search))); });
    on(found_.get(), "notify::pending", [this] { onSearched(); });
}

void RingtoneList::show() {
    RowChanges changes = session_.takeRowChanges();
    const bool isNew = std::exchange(shownPhone_, session_.currentKey()) != session_.currentKey();
    if (changes.areAll && (isNew || store_.size() == 0)) {
        gtk_slice_list_model_set_size(begun_.get(), kAtOnce);
        showMore();
        store_.set(session_.places());
    } else if (changes.areAll) {
        store_.followTo(session_.places());
    } else {
        store_.follow(std::move(changes.rows));
    }
    if (!isFollowing_) {
        followOn();
    }
}

void RingtoneList::followOn() {
    isFollowing_ = store_.goOn();
    if (isFollowing_) {
        onceIdle([this, isThere = isThere_] {
            if (*isThere) {
                followOn();
            }
        });
    }
}

void RingtoneList::showMore() {
    onceIdle([this, isThere = isThere_] {
        if (!*isThere) {
            return;
        }
        const guint more = gtk_slice_list_model_get_size(begun_.get()) + kAtOnce;
        gtk_slice_list_model_set_size(begun_.get(), more < kMany ? more : G_MAXUINT);
        if (more < kMany) {
            showMore();
        }
    });
}

/// Bit by bit, and not at all when nothing is looked for.
GtkFilterListModel* RingtoneList::newFilter() {
    GtkFilterListModel* const found =
        gtk_filter_list_model_new(static_cast<GListModel*>(g_object_ref(store_.model())), nullptr);
    gtk_filter_list_model_set_incremental(found, TRUE);
    return found;
}

void RingtoneList::lookFor(const std::string& text) {
    wanted_ = folded(text);
    gtk_filter_list_model_set_filter(found_.get(),
                                     wanted_.empty() ? nullptr : GTK_FILTER(filter_.get()));
    gtk_filter_changed(GTK_FILTER(filter_.get()), GTK_FILTER_CHANGE_DIFFERENT);
    onSearched();
}

GtkListItemFactory* RingtoneList::newFactory() {
    GtkListItemFactory* const factory = gtk_signal_list_item_factory_new();
    onEmission(factory, "setup", [this](const Emission& emission) {
        RowView::setUp(emission.object<GtkListItem>(1), session_);
    });
    onEmission(factory, "bind", [](const Emission& emission) {
        RowView::of(emission.object<GtkListItem>(1)).bind();
    });
    onEmission(factory, "unbind", [](const Emission& emission) {
        RowView::of(emission.object<GtkListItem>(1)).unbind();
    });
    return factory;
}

bool RingtoneList::findsNothing() const {
    return !wanted_.empty() && gtk_filter_list_model_get_pending(found_.get()) == 0 &&
           g_list_model_get_n_items(G_LIST_MODEL(found_.get())) == 0;
}

std::vector<std::string> RingtoneList::selected() const {
    std::vector<std::string> keys;
    auto* const model = GTK_SELECTION_MODEL(selection_.get());
    const std::unique_ptr<GtkBitset, decltype(&gtk_bitset_unref)> positions(
        gtk_selection_model_get_selection(model), gtk_bitset_unref);
    GtkBitsetIter next;
    guint position = 0;
    for (gboolean more = gtk_bitset_iter_init_first(&next, positions.get(), &position);
         more != FALSE; more = gtk_bitset_iter_next(&next, &position)) {
        const auto item =
            adopt(static_cast<VeskRow*>(g_list_model_get_item(G_LIST_MODEL(model), position)));
        if (!PhoneBook::isRemoved(rowOf(item.get()))) {
            keys.push_back(rowOf(item.get()).key);
        }
    }
    return keys;
}

} // namespace krl::desktop
