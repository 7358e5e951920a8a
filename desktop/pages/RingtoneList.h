#pragma once

#include "desktop/pages/RowStore.h"
#include "desktop/session/Session.h"

#include <gtk/gtk.h>

#include <memory>
#include <string>
#include <vector>

namespace krl::desktop {

/// The list of ringtones: rows for what is in sight, a search, and a selection of several.
class RingtoneList {
public:
    /// @param view  is filled; @param search  says what is looked for
    RingtoneList(Session& session, GtkListView* view, GtkSearchEntry* search);

    RingtoneList(const RingtoneList&) = delete;
    RingtoneList& operator=(const RingtoneList&) = delete;

    ~RingtoneList() { *isThere_ = false; }

    /// Shows what has changed since the last time. Of a list that is new, the first rows at once and
    /// the others soon after, and so with what comes or goes in numbers: the toolkit makes widgets for
    /// two hundred rows, in sight or not.
    void show();

    /// Whether the search finds nothing.
    bool findsNothing() const;

    /// Keys of what is selected and can be taken off.
    std::vector<std::string> selected() const;

    /// Told of a row that is activated, by Enter or a double click.
    std::function<void(const std::string& key)> onActivated = [](const std::string&) {};

    /// Told when the search has another result.
    std::function<void()> onSearched = [] {};

private:
    GtkFilterListModel* newFilter();
    void lookFor(const std::string& text);
    void showMore();
    void followOn();
    GtkListItemFactory* newFactory();

    Session& session_;
    RowStore store_;
    std::string shownPhone_;   ///< whose rows these are
    bool isFollowing_ = false; ///< there is more to be shown of what has changed
    std::string wanted_;       ///< folded, as names are that it is compared with
    Owned<GtkCustomFilter> filter_;
    Owned<GtkFilterListModel> found_;
    Owned<GtkSliceListModel> begun_; ///< the first of these
    std::shared_ptr<bool> isThere_ = std::make_shared<bool>(true);
    Owned<GtkMultiSelection> selection_;
};

} // namespace krl::desktop
