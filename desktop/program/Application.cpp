#include "desktop/program/Application.h"

#include "desktop/session/Translation.h"
#include "desktop/toolkit/Resources.h"

#include <utility>

namespace krl::desktop {
namespace {

constexpr char kId[] = "com.korvane.Vesk";

/// The keys of what the window does. Those that text fields have uses for are the window's own.
struct Accelerator {
    const char* action;
    const char* keys;
};

constexpr Accelerator kAccelerators[] = {
    {"win.add", "<Control>o"},
    {"win.search", "<Control>f"},
    {"win.sync", "<Control>s"},
    {"win.pause", "<Control>p"},
    {"win.look-again", "F5"},
    {"win.history", "<Control>h"},
    {"win.undo-sync", "<Control><Shift>z"},
    {"win.mirror", "<Control>m"},
    {"win.preferences", "<Control>comma"},
    {"win.show-help-overlay", "<Control>question"},
    {"app.quit", "<Control>q"},
};

} // namespace

Application::Application()
    : application_(adopt(adw_application_new(kId, G_APPLICATION_HANDLES_OPEN))) {
    addOptions();
    on(application_.get(), "startup", [this] { startUp(); });
    on(application_.get(), "activate", [this] { showWindow(); });
    onEmission(application_.get(), "open", [this](const Emission& emission) { open(emission); });
}

Application::~Application() = default;

void Application::addOptions() {
    g_application_add_main_option(G_APPLICATION(application_.get()), "sink", 0, G_OPTION_FLAG_NONE,
                                  G_OPTION_ARG_STRING, _("Where sound goes, in GStreamer's words"),
                                  _("SINK"));
    onEmission(application_.get(), "handle-local-options", [this](const Emission& emission) {
        auto* const options =
            static_cast<GVariantDict*>(g_value_get_boxed(emission.parameters + 1));
        const char* sink = nullptr;
        if (g_variant_dict_lookup(options, "sink", "&s", &sink) != FALSE) {
            sink_ = sink;
        }
        g_value_set_int(emission.answer, -1); // go on
    });
}

int Application::run(int argc, char** argv) {
    const int status = g_application_run(G_APPLICATION(application_.get()), argc, argv);
    // The window before what it shows.
    window_.reset();
    news_.reset();
    letters_.reset();
    session_.reset();
    phones_.reset();
    return status;
}

void Application::startUp() {
    mailbox_ = std::make_unique<Mailbox>();
    std::optional<engine::Failure> noPhones;
    try {
        phones_ = std::make_unique<PhoneDesk>(*mailbox_);
    } catch (const engine::Failure& failure) {
        noPhones = failure;
    }
    session_ = std::make_unique<Session>(*mailbox_, phones_.get(), std::move(noPhones), sink_);
    letters_ =
        std::make_unique<DescriptorWatch>(mailbox_->descriptor(), [this] { mailbox_->deliver(); });
    if (phones_ != nullptr) {
        news_ = std::make_unique<DescriptorWatch>(phones_->descriptor(),
                                                  [this] { session_->takeNews(); });
    }
    gtk_window_set_default_icon_name(kId);
    loadStyle();
    addActions();
}

void Application::loadStyle() {
    const auto style = adopt(gtk_css_provider_new());
    gtk_css_provider_load_from_resource(style.get(), KRL_RESOURCE("style.css"));
    gtk_style_context_add_provider_for_display(gdk_display_get_default(),
                                               GTK_STYLE_PROVIDER(style.get()),
                                               GTK_STYLE_PROVIDER_PRIORITY_APPLICATION);
}

void Application::addActions() {
    const auto add = [this](const char* name, std::function<void()> function) {
        const auto action = adopt(g_simple_action_new(name, nullptr));
        on(action.get(), "activate", std::move(function));
        g_action_map_add_action(G_ACTION_MAP(application_.get()), G_ACTION(action.get()));
    };
    add("about", [this] { showAbout(); });
    add("quit", [this] {
        if (window_ != nullptr) {
            window_->close();
        }
    });
    for (const Accelerator& accelerator : kAccelerators) {
        const char* const keys[] = {accelerator.keys, nullptr};
        gtk_application_set_accels_for_action(GTK_APPLICATION(application_.get()),
                                              accelerator.action, keys);
    }
}

void Application::showWindow() {
    if (window_ == nullptr) {
        window_ = std::make_unique<MainWindow>(application_.get(), *session_);
    }
    window_->present();
}

void Application::open(const Emission& emission) {
    auto** const files = static_cast<GFile**>(g_value_get_pointer(emission.parameters + 1));
    const int count = g_value_get_int(emission.parameters + 2);
    showWindow();
    window_->add({files, files + count});
}

void Application::showAbout() {
    adw_show_about_window(
        gtk_application_get_active_window(GTK_APPLICATION(application_.get())), "application-name",
        _("Ringtones"), "application-icon", kId, "version", VESK_VERSION, "comments",
        _("Custom ringtones on early iPhones, firmware 1.0 and 1.1"), "developer-name",
        "The KRLVesk authors", "license-type", GTK_LICENSE_MIT_X11, nullptr);
}

} // namespace krl::desktop
