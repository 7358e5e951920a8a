#pragma once

#include "desktop/session/Session.h"

#include <adwaita.h>

namespace krl::desktop {

/// Opens a window over another one with the last jobs on the current phone, each of which can be
/// gone back behind. It owns itself and goes when it is closed, at the latest with the other one.
void openHistory(GtkWindow* over, Session& session);

} // namespace krl::desktop
