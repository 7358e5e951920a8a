#include "desktop/pages/HistoryWindow.h"

#include "desktop/pages/Rows.h"
#include "desktop/toolkit/Resources.h"

namespace krl::desktop {

HistoryWindow::HistoryWindow(GtkWindow* over, Session& session)
    : session_(session),
      builder_(adopt(gtk_builder_new_from_resource(KRL_RESOURCE("history.ui")))) {
    gtk_window_set_transient_for(widget<GtkWindow>("window"), over);
}

void HistoryWindow::open() {
    const PhoneBook* const book = session_.book();
    if (book == nullptr || !book->reading()) {
        return;
    }
    adw_window_title_set_subtitle(widget<AdwWindowTitle>("title"), session_.phoneName().c_str());
    for (GtkWidget* const row : rows_) {
        adw_preferences_group_remove(widget<AdwPreferencesGroup>("jobs"), row);
    }
    rows_.clear();
    addJobs(book->reading()->history);
    gtk_window_present(widget<GtkWindow>("window"));
}

void HistoryWindow::addJobs(const std::vector<PastJob>& jobs) {
    bool canUndo = session_.canUndo();
    for (const PastJob& job : jobs) {
        const bool isLast = canUndo && !job.isUndone;
        canUndo = canUndo && !isLast;
        rows_.push_back(newJobRow(job, isLast, !session_.isBusy(),
                                  [this, isLast, before = job.before, key = session_.currentKey()] {
                                      gtk_widget_set_visible(widget<GtkWidget>("window"), FALSE);
                                      if (key != session_.currentKey()) {
                                          return; // that phone has gone meanwhile
                                      }
                                      if (isLast) {
                                          session_.undo();
                                      } else {
                                          session_.goBackTo(before);
                                      }
                                  }));
        adw_preferences_group_add(widget<AdwPreferencesGroup>("jobs"), rows_.back());
    }
}

} // namespace krl::desktop
