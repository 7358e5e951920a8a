#include "desktop/pages/MainWindow.h"

#include "desktop/pages/Rows.h"
#include "desktop/session/Translation.h"
#include "desktop/toolkit/Resources.h"
#include "desktop/toolkit/Signals.h"
#include "engine/values/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace krl::desktop {
namespace {

/// Whether two looks came to the same.
bool areSame(const engine::Findings& left, const engine::Findings& right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](const engine::Finding& one, const engine::Finding& other) {
                          return one.check == other.check && one.text == other.text;
                      });
}

const char* labelOf(Remedy remedy) {
    switch (remedy) {
    case Remedy::Dismiss:
        return _("Close");
    case Remedy::Finish:
        return _("Finish");
    case Remedy::TakeBack:
        return _("Take Back");
    case Remedy::PutRight:
        return _("Put Right");
    }
    return "";
}

void removeChildren(GtkBox* box) {
    while (GtkWidget* const child = gtk_widget_get_first_child(GTK_WIDGET(box))) {
        gtk_box_remove(box, child);
    }
}

/// Shows a page of a stack, and hides the others from screen readers too.
void showOnly(GtkStack* stack, const char* name) {
    GtkWidget* const shown = gtk_stack_get_child_by_name(stack, name);
    gtk_widget_set_visible(shown, TRUE);
    gtk_stack_set_visible_child(stack, shown);
    for (GtkWidget* page = gtk_widget_get_first_child(GTK_WIDGET(stack)); page != nullptr;
         page = gtk_widget_get_next_sibling(page)) {
        gtk_widget_set_visible(page, page == shown);
    }
}

void removeRows(GtkListBox* list) {
    while (GtkWidget* const row = gtk_widget_get_first_child(GTK_WIDGET(list))) {
        gtk_list_box_remove(list, row);
    }
}

} // namespace

MainWindow::MainWindow(AdwApplication* application, Session& session)
    : session_(session), builder_(adopt(gtk_builder_new_from_resource(KRL_RESOURCE("window.ui")))),
      window_(keep(widget<AdwApplicationWindow>("window"))),
      list_(session, widget<GtkListView>("list"), widget<GtkSearchEntry>("search")),
      history_(GTK_WINDOW(window_.get()), session), editor_(GTK_WINDOW(window_.get()), session),
      preferences_(GTK_WINDOW(window_.get()), session), mirror_(GTK_WINDOW(window_.get()), session),
      phoneMenu_(adopt(g_menu_new())) {
    gtk_window_set_application(GTK_WINDOW(window_.get()), GTK_APPLICATION(application));
    gtk_widget_add_css_class(GTK_WIDGET(window_.get()), "vesk");
    gtk_menu_button_set_menu_model(widget<GtkMenuButton>("phone-switch"),
                                   G_MENU_MODEL(phoneMenu_.get()));
    const auto shortcuts = adopt(gtk_builder_new_from_resource(KRL_RESOURCE("shortcuts.ui")));
    gtk_application_window_set_help_overlay(
        GTK_APPLICATION_WINDOW(window_.get()),
        reinterpret_cast<GtkShortcutsWindow*>(
            gtk_builder_get_object(shortcuts.get(), "help_overlay")));
    gtk_search_bar_connect_entry(widget<GtkSearchBar>("search-bar"),
                                 GTK_EDITABLE(widget<GtkSearchEntry>("search")));
    gtk_box_append(widget<GtkBox>("mirror-place"), mirror_.widget());
    addActions();
    addKeys();
    acceptDrops();
    stayWhileBusy();
    list_.onSearched = [this] { showPage(); };
    session_.onChanged = [this] { showSoon(); };
    session_.onProgress = [this](const WorkProgress& progress) { showProgress(progress); };
    session_.onToast = [this](const Toast& toast) { showToast(toast); };
    show();
}

MainWindow::~MainWindow() {
    *isThere_ = false;
    session_.onChanged = [] {};
    session_.onProgress = [](const WorkProgress&) {};
    session_.onToast = [](const Toast&) {};
}

void MainWindow::present() {
    gtk_window_present(GTK_WINDOW(window_.get()));
}

// ---------------------------------------------------------------- what a person does

void MainWindow::addAction(const char* name, std::function<void()> function) {
    const auto action = adopt(g_simple_action_new(name, nullptr));
    on(action.get(), "activate", std::move(function));
    g_action_map_add_action(G_ACTION_MAP(window_.get()), G_ACTION(action.get()));
}

void MainWindow::addActions() {
    addAction("add", [this] { chooseFiles(); });
    addAction("paste", [this] { paste(); });
    addAction("remove", [this] { session_.remove(list_.selected()); });
    addAction("undo-edit", [this] { session_.undoEdit(); });
    addAction("search",
              [this] { gtk_search_bar_set_search_mode(widget<GtkSearchBar>("search-bar"), TRUE); });
    addAction("sync", [this] {
        withdrawOffer(); // what it takes back is going to be on the phone
        session_.sync();
    });
    addAction("cancel", [this] { session_.cancel(); });
    addAction("pause", [this] { session_.pause(); });
    addAction("pair", [this] { session_.pair(); });
    addAction("look-again", [this] { session_.lookAgain(); });
    addAction("undo-sync", [this] { session_.undo(); });
    addAction("history", [this] { history_.open(); });
    addAction("mirror", [this] { chooseFolder(); });
    addAction("preferences", [this] { preferences_.open(); });
    addPhoneAction();
    addEditAction();
}

/// Of a row: by its button, or when it is activated.
void MainWindow::addEditAction() {
    const auto action = adopt(g_simple_action_new("edit", G_VARIANT_TYPE_STRING));
    onEmission(action.get(), "activate", [this](const Emission& emission) {
        editor_.open(g_variant_get_string(g_value_get_variant(emission.parameters + 1), nullptr));
    });
    g_action_map_add_action(G_ACTION_MAP(window_.get()), G_ACTION(action.get()));
    list_.onActivated = [this](const std::string& row) { editor_.open(row); };
}

/// Which phone is shown, for the switch.
void MainWindow::addPhoneAction() {
    const auto action = adopt(
        g_simple_action_new_stateful("phone", G_VARIANT_TYPE_STRING, g_variant_new_string("")));
    onEmission(action.get(), "activate", [this](const Emission& emission) {
        GVariant* const key = g_value_get_variant(emission.parameters + 1);
        session_.choose(g_variant_get_string(key, nullptr));
    });
    g_action_map_add_action(G_ACTION_MAP(window_.get()), G_ACTION(action.get()));
}

void MainWindow::enable(const char* action, bool isEnabled) {
    GAction* const found = g_action_map_lookup_action(G_ACTION_MAP(window_.get()), action);
    g_simple_action_set_enabled(G_SIMPLE_ACTION(found), isEnabled);
}

/// A sync is not cut off by closing the window.
void MainWindow::stayWhileBusy() {
    onEmission(window_.get(), "close-request", [this](const Emission& emission) {
        const std::string reason = session_.reasonToStay();
        if (!reason.empty()) {
            showToast({.text = reason, .undo = {}});
        }
        g_value_set_boolean(emission.answer, !reason.empty());
    });
}

/// Keys that text fields have uses for, which get them first.
void MainWindow::addKeys() {
    GtkEventController* const keys = gtk_shortcut_controller_new();
    const auto add = [&](const char* trigger, const char* action) {
        gtk_shortcut_controller_add_shortcut(
            GTK_SHORTCUT_CONTROLLER(keys),
            gtk_shortcut_new(gtk_shortcut_trigger_parse_string(trigger),
                             gtk_named_action_new(action)));
    };
    add("<Control>v", "win.paste");
    add("<Control>z", "win.undo-edit");
    add("Delete", "win.remove");
    gtk_widget_add_controller(GTK_WIDGET(window_.get()), keys);
}

void MainWindow::acceptDrops() {
    GtkDropTarget* const target = gtk_drop_target_new(GDK_TYPE_FILE_LIST, GDK_ACTION_COPY);
    onEmission(target, "drop", [this](const Emission& emission) {
        const auto* const dropped =
            static_cast<const GValue*>(g_value_get_boxed(emission.parameters + 1));
        add(static_cast<GdkFileList*>(g_value_get_boxed(dropped)));
        g_value_set_boolean(emission.answer, TRUE);
    });
    gtk_widget_add_controller(GTK_WIDGET(window_.get()), GTK_EVENT_CONTROLLER(target));
}

void MainWindow::add(const std::vector<GFile*>& files) {
    std::vector<std::filesystem::path> paths;
    for (GFile* const file : files) {
        const std::string path = taken(g_file_get_path(file));
        if (!path.empty()) {
            paths.emplace_back(path);
        }
    }
    if (paths.size() < files.size()) {
        showToast(
            {.text = _("What is not on this computer has to be copied to it first"), .undo = {}});
    }
    if (!paths.empty()) {
        session_.add(paths);
    }
}

void MainWindow::add(GdkFileList* files) {
    const std::unique_ptr<GSList, decltype(&g_slist_free)> list(gdk_file_list_get_files(files),
                                                                g_slist_free);
    std::vector<GFile*> added;
    for (const GSList* one = list.get(); one != nullptr; one = one->next) {
        added.push_back(G_FILE(one->data));
    }
    add(added);
}

void MainWindow::chooseFiles() {
    chooser_ = adopt(gtk_file_chooser_native_new(_("Add Ringtones"), GTK_WINDOW(window_.get()),
                                                 GTK_FILE_CHOOSER_ACTION_OPEN, _("_Add"), nullptr));
    gtk_file_chooser_set_select_multiple(GTK_FILE_CHOOSER(chooser_.get()), TRUE);
    const auto audio = adopt(gtk_file_filter_new());
    gtk_file_filter_set_name(audio.get(), _("Music and ringtones"));
    gtk_file_filter_add_mime_type(audio.get(), "audio/*");
    gtk_file_filter_add_suffix(audio.get(), "m4r");
    gtk_file_chooser_add_filter(GTK_FILE_CHOOSER(chooser_.get()), audio.get());
    const auto all = adopt(gtk_file_filter_new());
    gtk_file_filter_set_name(all.get(), _("All files"));
    gtk_file_filter_add_pattern(all.get(), "*");
    gtk_file_chooser_add_filter(GTK_FILE_CHOOSER(chooser_.get()), all.get());
    onEmission(chooser_.get(), "response", [this](const Emission& emission) {
        if (g_value_get_int(emission.parameters + 1) != GTK_RESPONSE_ACCEPT) {
            return;
        }
        const auto files = adopt(gtk_file_chooser_get_files(GTK_FILE_CHOOSER(chooser_.get())));
        std::vector<Owned<GFile>> chosen;
        std::vector<GFile*> added;
        for (guint i = 0; i < g_list_model_get_n_items(files.get()); ++i) {
            chosen.push_back(adopt(static_cast<GFile*>(g_list_model_get_item(files.get(), i))));
            added.push_back(chosen.back().get());
        }
        add(added);
    });
    gtk_native_dialog_show(GTK_NATIVE_DIALOG(chooser_.get()));
}

void MainWindow::chooseFolder() {
    chooser_ = adopt(gtk_file_chooser_native_new(
        _("Choose the Folder That the Phone Mirrors"), GTK_WINDOW(window_.get()),
        GTK_FILE_CHOOSER_ACTION_SELECT_FOLDER, _("_Choose"), nullptr));
    onEmission(
        chooser_.get(), "response",
        [this, phone = session_.currentKey()](const Emission& emission) {
            if (g_value_get_int(emission.parameters + 1) != GTK_RESPONSE_ACCEPT) {
                return;
            }
            const auto file = adopt(gtk_file_chooser_get_file(GTK_FILE_CHOOSER(chooser_.get())));
            const std::string path = file ? taken(g_file_get_path(file.get())) : std::string();
            if (path.empty()) {
                showToast(
                    {.text = _("A folder of another computer cannot be mirrored"), .undo = {}});
            } else if (phone == session_.currentKey()) { // and not another one by now
                mirror_.awaitPlan();
                session_.mirror(path);
            }
        });
    gtk_native_dialog_show(GTK_NATIVE_DIALOG(chooser_.get()));
}

void MainWindow::paste() {
    struct Waiting {
        MainWindow* window;
        std::shared_ptr<bool> isThere;
    };

    GdkClipboard* const clipboard = gtk_widget_get_clipboard(GTK_WIDGET(window_.get()));
    gdk_clipboard_read_value_async(
        clipboard, GDK_TYPE_FILE_LIST, G_PRIORITY_DEFAULT, nullptr,
        [](GObject* source, GAsyncResult* result, gpointer data) {
            const std::unique_ptr<Waiting> waiting(static_cast<Waiting*>(data));
            const GValue* const value =
                gdk_clipboard_read_value_finish(GDK_CLIPBOARD(source), result, nullptr);
            if (value != nullptr && *waiting->isThere) {
                waiting->window->add(static_cast<GdkFileList*>(g_value_get_boxed(value)));
            }
        },
        new Waiting{this, isThere_});
}

// ---------------------------------------------------------------- what there is to see

void MainWindow::showSoon() {
    if (std::exchange(willShow_, true)) {
        return;
    }
    onceIdle([this, isThere = isThere_] {
        if (*isThere) {
            willShow_ = false;
            show();
        }
    });
}

void MainWindow::show() {
    list_.show();
    showTitle();
    showPhones();
    showMessage();
    mirror_.show();
    showPage();
    showBottom();
    showActions();
}

void MainWindow::showTitle() {
    const std::string name = session_.phoneName();
    const PhoneBook* const book = session_.book();
    const bool isRead = book != nullptr && book->reading();
    const std::string facts = isRead ? phoneText(book->reading()->facts) : std::string();
    for (const char* const title : {"phone-title", "phone-switch-title"}) {
        auto* const shown = widget<AdwWindowTitle>(title);
        adw_window_title_set_title(shown, name.empty() ? _("Ringtones") : name.c_str());
        adw_window_title_set_subtitle(shown, facts.c_str());
    }
}

void MainWindow::showPhones() {
    g_action_group_change_action_state(G_ACTION_GROUP(window_.get()), "phone",
                                       g_variant_new_string(session_.currentKey().c_str()));
    std::vector<PhoneChoice> phones = session_.phones();
    if (shownPhones_ && *shownPhones_ == phones) {
        return;
    }
    showOnly(widget<GtkStack>("title"), phones.size() > 1 ? "several" : "one");
    g_menu_remove_all(phoneMenu_.get());
    for (const PhoneChoice& phone : phones) {
        const auto item = adopt(g_menu_item_new(phone.name.c_str(), nullptr));
        g_menu_item_set_action_and_target(item.get(), "win.phone", "s", phone.key.c_str());
        g_menu_append_item(phoneMenu_.get(), item.get());
    }
    shownPhones_ = std::move(phones);
}

void MainWindow::showMessage() {
    std::optional<Message> message = session_.message();
    if (message == shownMessage_) {
        return;
    }
    auto* const box = widget<GtkWidget>("message");
    gtk_widget_set_visible(box, message.has_value());
    if (!message) {
        shownMessage_.reset();
        return;
    }
    const char* const classes[] = {"phone-message", message->isError ? "error" : "plain", nullptr};
    gtk_widget_set_css_classes(box, const_cast<const char**>(classes));
    gtk_label_set_text(widget<GtkLabel>("message-title"), message->title.c_str());
    gtk_label_set_text(widget<GtkLabel>("message-text"), message->text.c_str());
    gtk_label_set_text(widget<GtkLabel>("message-details"), message->details.c_str());
    gtk_widget_set_visible(widget<GtkWidget>("message-text"), !message->text.empty());
    gtk_widget_set_visible(widget<GtkWidget>("message-more"), !message->details.empty());
    auto* const buttons = widget<GtkBox>("message-buttons");
    removeChildren(buttons);
    for (const Remedy remedy : message->remedies) {
        GtkWidget* const button = gtk_button_new_with_label(labelOf(remedy));
        on(button, "clicked", [this, remedy] { session_.apply(remedy); });
        gtk_box_append(buttons, button);
    }
    shownMessage_ = std::move(message);
}

const char* MainWindow::pageName() const {
    switch (session_.page()) {
    case Page::NoPhone:
        return "no-phone";
    case Page::Reading:
        return "reading";
    case Page::Problem:
        return "problem";
    case Page::Gone:
        return "gone";
    case Page::Empty:
        return "empty";
    case Page::List:
        return list_.findsNothing() ? "nothing-found" : "list";
    }
    return "no-phone";
}

void MainWindow::showPage() {
    const Explanation problem = session_.problem();
    auto* const problemPage = widget<AdwStatusPage>("problem");
    adw_status_page_set_title(problemPage, problem.title.c_str());
    adw_status_page_set_description(problemPage, problem.advice.c_str());
    adw_status_page_set_icon_name(problemPage, session_.canPair() ? "phone-apple-iphone-symbolic"
                                                                  : "dialog-warning-symbolic");
    adw_status_page_set_title(
        widget<AdwStatusPage>("gone"),
        fmt::format(fmt::runtime(_("“{}” Is Unplugged")), session_.phoneName()).c_str());
    gtk_widget_set_visible(widget<GtkWidget>("pair"), session_.canPair());
    showFindings();
    gtk_widget_set_visible(widget<GtkWidget>("findings"), !shownFindings_.empty());
    showOnly(widget<GtkStack>("pages"), pageName());
}

/// What is wrong comes first.
void MainWindow::showFindings() {
    engine::Findings findings = session_.findings();
    std::stable_partition(findings.begin(), findings.end(),
                          [](const engine::Finding& finding) { return !finding.good; });
    if (areSame(shownFindings_, findings)) {
        return;
    }
    shownFindings_ = std::move(findings);
    auto* const list = widget<GtkListBox>("findings");
    removeRows(list);
    auto* const computer = widget<AdwExpanderRow>("computer");
    for (GtkWidget* const row : findingRows_) {
        adw_expander_row_remove(computer, row);
    }
    findingRows_.clear();
    for (const engine::Finding& finding : shownFindings_) {
        gtk_list_box_append(list, newFindingRow(finding));
        findingRows_.push_back(newFindingRow(finding));
        adw_expander_row_add_row(computer, findingRows_.back());
    }
}

void MainWindow::showBottom() {
    const PhoneBook* const book = session_.book();
    const Page page = session_.page();
    const bool isShown = session_.isBusy() || page == Page::List || page == Page::Empty;
    auto* const pages = widget<GtkStack>("bottom");
    gtk_widget_set_visible(GTK_WIDGET(pages), isShown);
    if (session_.isBusy()) {
        if (session_.isBeingCancelled()) {
            gtk_label_set_text(widget<GtkLabel>("work-text"), _("Cancelling…"));
        } else if (std::string(gtk_stack_get_visible_child_name(pages)) != "work") {
            gtk_progress_bar_set_fraction(widget<GtkProgressBar>("work-bar"), 0);
            showProgress({});
        }
        showPause();
        showOnly(pages, "work");
        return;
    }
    showOnly(pages, "space");
    if (book != nullptr) {
        showSpace(*book);
    }
}

void MainWindow::showPause() {
    const bool isPaused = session_.isPaused();
    auto* const button = widget<GtkWidget>("pause");
    const char* const deed = isPaused ? _("Continue") : _("Pause");
    gtk_widget_set_visible(button, session_.canPause());
    gtk_button_set_icon_name(GTK_BUTTON(button), isPaused ? "media-playback-start-symbolic"
                                                          : "media-playback-pause-symbolic");
    gtk_widget_set_tooltip_text(button, deed);
    gtk_accessible_update_property(GTK_ACCESSIBLE(button), GTK_ACCESSIBLE_PROPERTY_LABEL, deed, -1);
}

void MainWindow::showSpace(const PhoneBook& book) {
    const EditSum sum = book.sum();
    const std::string sumLine = !book.fits() ? _("Too much for the phone") : sumText(sum);
    const size_t count = book.reading() ? book.reading()->ringtones.size() : 0;
    gtk_label_set_text(
        widget<GtkLabel>("sum"),
        sumLine.empty()
            ? fmt::format(fmt::runtime(ngettext_("{} ringtone", "{} ringtones", count)), count)
                  .c_str()
            : sumLine.c_str());
    const bool knowsSpace = book.reading() && book.reading()->facts.freeBytes &&
                            book.reading()->totalBytes.value_or(0) > 0;
    for (const char* const part : {"space", "space-text"}) {
        gtk_widget_set_visible(widget<GtkWidget>(part), knowsSpace);
    }
    if (knowsSpace) {
        const auto total = static_cast<double>(*book.reading()->totalBytes);
        const uint64_t free = *book.reading()->facts.freeBytes;
        const uint64_t left = free - std::min(free, sum.addedBytes);
        gtk_level_bar_set_value(widget<GtkLevelBar>("space"),
                                1 - static_cast<double>(left) / total);
        gtk_label_set_text(
            widget<GtkLabel>("space-text"),
            fmt::format(fmt::runtime(_("{} free")), engine::formatBytes(left)).c_str());
    }
}

void MainWindow::showProgress(const WorkProgress& progress) {
    if (session_.isBeingCancelled()) {
        return;
    }
    const bool willPause = session_.isPaused() && progress.stage != WorkProgress::Stage::Paused;
    gtk_label_set_text(widget<GtkLabel>("work-text"),
                       willPause ? _("Pauses after this step…") : progressText(progress).c_str());
    auto* const bar = widget<GtkProgressBar>("work-bar");
    if (const auto fraction = progress.fraction()) {
        gtk_progress_bar_set_fraction(bar, *fraction);
    } else if (progress.stage == WorkProgress::Stage::Paused) {
        gtk_progress_bar_set_fraction(bar, gtk_progress_bar_get_fraction(bar)); // pulses no more
    } else {
        gtk_progress_bar_pulse(bar);
    }
}

void MainWindow::showSync(size_t changes) {
    if (shownChanges_ == changes) {
        return;
    }
    shownChanges_ = changes;
    gtk_button_set_label(widget<GtkButton>("sync"),
                         changes == 0 ? _("_Sync")
                                      : fmt::format(fmt::runtime(_("_Sync {}")), changes).c_str());
    gtk_accessible_update_property(
        GTK_ACCESSIBLE(widget<GtkButton>("sync")), GTK_ACCESSIBLE_PROPERTY_LABEL,
        changes == 0 ? _("Sync") : fmt::format(fmt::runtime(_("Sync {}")), changes).c_str(), -1);
}

void MainWindow::showActions() {
    const PhoneBook* const book = session_.book();
    const Page page = session_.page();
    const bool isUsable = page == Page::List || page == Page::Empty;
    const size_t changes = book == nullptr ? 0 : book->sum().changes();
    showSync(changes);
    gtk_widget_set_visible(widget<GtkWidget>("sync"), isUsable);
    gtk_widget_set_visible(widget<GtkWidget>("add"), isUsable);
    gtk_widget_set_visible(widget<GtkWidget>("search-toggle"), page == Page::List);
    enable("sync", session_.canSync());
    enable("add", isUsable);
    enable("paste", isUsable);
    enable("remove", page == Page::List);
    enable("search", page == Page::List);
    enable("pair", session_.canPair());
    enable("undo-sync", session_.canUndo());
    enable("mirror", session_.canMirror());
    enable("history", book != nullptr && book->reading() && !book->reading()->history.empty());
    enable("pause", session_.canPause());
    enable("cancel", session_.isBusy() && !session_.isBeingCancelled());
}

void MainWindow::showToast(const Toast& toast) {
    AdwToast* const shown =
        adw_toast_new(taken(g_markup_escape_text(toast.text.c_str(), -1)).c_str());
    if (toast.undo.empty()) {
        // At once; an offer comes back after it.
        adw_toast_set_priority(shown, ADW_TOAST_PRIORITY_HIGH);
    } else {
        constexpr guint kSecondsToDecide = 15;
        adw_toast_set_timeout(shown, kSecondsToDecide);
        adw_toast_set_button_label(shown, toast.undo.c_str());
        on(shown, "button-clicked", toast.onUndo);
        withdrawOffer();
        offer_ = keep(shown);
    }
    adw_toast_overlay_add_toast(widget<AdwToastOverlay>("toasts"), shown);
}

void MainWindow::withdrawOffer() {
    if (offer_) {
        adw_toast_dismiss(offer_.get());
        offer_ = {};
    }
}

} // namespace krl::desktop
