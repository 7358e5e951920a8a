#pragma once

#include "desktop/bridge/Mailbox.h"
#include "desktop/bridge/PhoneDesk.h"
#include "desktop/pages/MainWindow.h"
#include "desktop/session/Session.h"
#include "desktop/toolkit/Owned.h"
#include "desktop/toolkit/Signals.h"

#include <adwaita.h>

#include <memory>
#include <optional>
#include <string>

namespace krl::desktop {

/// The program: one for a person, with one window.
class Application {
public:
    Application();
    ~Application();
    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;

    int run(int argc, char** argv);

private:
    void addOptions();
    void startUp();
    void addActions();
    void loadStyle();
    void showWindow();
    void open(const Emission& emission);
    void showAbout();

    Owned<AdwApplication> application_;
    std::string sink_; ///< where sound goes; empty: where the desktop's goes

    // From start-up on; each stands on those before it.
    std::unique_ptr<Mailbox> mailbox_;
    std::unique_ptr<PhoneDesk> phones_;
    std::unique_ptr<Session> session_;
    std::unique_ptr<DescriptorWatch> letters_;
    std::unique_ptr<DescriptorWatch> news_;
    std::unique_ptr<MainWindow> window_;
};

} // namespace krl::desktop
