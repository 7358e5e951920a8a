#include "desktop/toolkit/Signals.h"

#include <glib-unix.h>

#include <utility>

namespace krl::desktop {
namespace {

using Handler = std::function<void(const Emission&)>;

void marshal(GClosure* closure, GValue* answer, guint /*count*/, const GValue* parameters,
             gpointer /*hint*/, gpointer /*data*/) {
    (*static_cast<const Handler*>(closure->data))({parameters, answer});
}

void forget(gpointer handler, GClosure* /*closure*/) {
    delete static_cast<Handler*>(handler);
}

} // namespace

void onEmission(gpointer object, const char* signal, Handler handler) {
    auto* const kept = new Handler(std::move(handler));
    GClosure* const closure = g_closure_new_simple(sizeof(GClosure), kept);
    g_closure_set_marshal(closure, marshal);
    g_closure_add_finalize_notifier(closure, kept, forget);
    g_signal_connect_closure(object, signal, closure, FALSE);
}

void on(gpointer object, const char* signal, std::function<void()> handler) {
    onEmission(object, signal,
               [handler = std::move(handler)](const Emission& /*emission*/) { handler(); });
}

void onceIdle(std::function<void()> function) {
    using Function = std::function<void()>;
    g_idle_add_full(
        G_PRIORITY_DEFAULT_IDLE,
        [](gpointer data) -> gboolean {
            (*static_cast<Function*>(data))();
            return G_SOURCE_REMOVE;
        },
        new Function(std::move(function)),
        [](gpointer data) { delete static_cast<Function*>(data); });
}

DescriptorWatch::DescriptorWatch(int descriptor, std::function<void()> function)
    : function_(std::move(function)), source_(g_unix_fd_add(
                                          descriptor, G_IO_IN,
                                          [](gint, GIOCondition, gpointer self) -> gboolean {
                                              static_cast<DescriptorWatch*>(self)->function_();
                                              return G_SOURCE_CONTINUE;
                                          },
                                          this)) {}

DescriptorWatch::~DescriptorWatch() {
    g_source_remove(source_);
}

} // namespace krl::desktop
