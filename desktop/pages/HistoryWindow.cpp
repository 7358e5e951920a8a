#include "desktop/pages/HistoryWindow.h"

#include "desktop/pages/Resources.h"
#include "desktop/pages/Rows.h"
#include "desktop/toolkit/Owned.h"

namespace krl::desktop {
namespace {

template <typename T>
T* part(const Owned<GtkBuilder>& builder, const char* name) {
    return reinterpret_cast<T*>(gtk_builder_get_object(builder.get(), name));
}

void addJobs(AdwPreferencesGroup* group, GtkWindow* window, Session& session,
             const std::vector<PastJob>& jobs) {
    bool canUndo = session.canUndo();
    for (const PastJob& job : jobs) {
        const bool isLast = canUndo && !job.isUndone;
        canUndo = canUndo && !isLast;
        adw_preferences_group_add(group, newJobRow(job, isLast, !session.isBusy(),
                                                   [window, &session, isLast, before = job.before] {
                                                       if (isLast) {
                                                           session.undo();
                                                       } else {
                                                           session.goBackTo(before);
                                                       }
                                                       gtk_window_close(window);
                                                   }));
    }
}

} // namespace

void openHistory(GtkWindow* over, Session& session) {
    const PhoneBook* const book = session.book();
    if (book == nullptr || !book->reading()) {
        return;
    }
    const auto builder = adopt(gtk_builder_new_from_resource(KRL_RESOURCE("history.ui")));
    auto* const window = part<GtkWindow>(builder, "window");
    adw_window_title_set_subtitle(part<AdwWindowTitle>(builder, "title"),
                                  session.phoneName().c_str());
    addJobs(part<AdwPreferencesGroup>(builder, "jobs"), window, session, book->reading()->history);
    gtk_window_set_transient_for(window, over);
    gtk_window_present(window);
}

} // namespace krl::desktop
