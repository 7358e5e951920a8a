#pragma once

#include "desktop/editor/EditorWindow.h"
#include "desktop/pages/HistoryWindow.h"
#include "desktop/pages/MirrorBar.h"
#include "desktop/pages/PreferencesWindow.h"
#include "desktop/pages/RingtoneList.h"
#include "desktop/session/Session.h"
#include "desktop/toolkit/Owned.h"

#include <adwaita.h>

namespace krl::desktop {

/// The window: shows what the session knows, and hands on what a person does.
class MainWindow {
public:
    MainWindow(AdwApplication* application, Session& session);
    ~MainWindow();

    MainWindow(const MainWindow&) = delete;
    MainWindow& operator=(const MainWindow&) = delete;

    void present();

    /// Adds files, which are lent.
    void add(const std::vector<GFile*>& files);

    /// Closes it, unless there is something to be waited for.
    void close() { gtk_window_close(GTK_WINDOW(window_.get())); }

private:
    void addActions();
    void addAction(const char* name, std::function<void()> function);
    void addPhoneAction();
    void addEditAction();
    void enable(const char* action, bool isEnabled);
    void stayWhileBusy();
    void addKeys();
    void acceptDrops();

    void chooseFiles();
    void chooseFolder();
    void paste();
    void add(GdkFileList* files);

    /// Shows anew what has changed, once for all changes of this moment.
    void showSoon();
    void show();
    void showTitle();
    void showPhones();
    void showMessage();
    void showPage();
    void showFindings();
    void showBottom();
    void showPause();
    void showSpace(const PhoneBook& book);
    void showProgress(const WorkProgress& progress);
    void showSync(size_t changes);
    void showActions();
    void showToast(const Toast& toast);
    void withdrawOffer();
    const char* pageName() const;

    template <typename T>
    T* widget(const char* name) const {
        return reinterpret_cast<T*>(gtk_builder_get_object(builder_.get(), name));
    }

    Session& session_;
    Owned<GtkBuilder> builder_;
    Owned<AdwApplicationWindow> window_;
    RingtoneList list_;
    HistoryWindow history_;
    EditorWindow editor_;
    PreferencesWindow preferences_;
    MirrorBar mirror_;
    Owned<GtkFileChooserNative> chooser_;
    Owned<GMenu> phoneMenu_;
    Owned<AdwToast> offer_; ///< to take back what was done last
    // What is shown already.
    std::optional<std::vector<PhoneChoice>> shownPhones_;
    std::optional<Message> shownMessage_;
    std::optional<size_t> shownChanges_;
    engine::Findings shownFindings_;
    std::vector<GtkWidget*> findingRows_; ///< of the list of the computer; the list owns them
    std::shared_ptr<bool> isThere_ = std::make_shared<bool>(true);
    bool willShow_ = false;
};

} // namespace krl::desktop
