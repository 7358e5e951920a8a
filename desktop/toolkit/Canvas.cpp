#include "desktop/toolkit/Canvas.h"

#include <utility>

#define VESK_TYPE_CANVAS (vesk_canvas_get_type())
G_DECLARE_FINAL_TYPE(VeskCanvas, vesk_canvas, VESK, CANVAS, GtkWidget)

struct _VeskCanvas {
    GtkWidget parent;
    krl::desktop::CanvasFunctions* functions;
};

G_DEFINE_FINAL_TYPE(VeskCanvas, vesk_canvas, GTK_TYPE_WIDGET)

static void vesk_canvas_init(VeskCanvas* self) {
    self->functions = new krl::desktop::CanvasFunctions;
}

static void vesk_canvas_dispose(GObject* object) {
    while (GtkWidget* const child = gtk_widget_get_first_child(GTK_WIDGET(object))) {
        gtk_widget_unparent(child);
    }
    G_OBJECT_CLASS(vesk_canvas_parent_class)->dispose(object);
}

static void vesk_canvas_finalize(GObject* object) {
    delete VESK_CANVAS(object)->functions;
    G_OBJECT_CLASS(vesk_canvas_parent_class)->finalize(object);
}

static void vesk_canvas_snapshot(GtkWidget* widget, GtkSnapshot* snapshot) {
    VESK_CANVAS(widget)->functions->draw(snapshot);
    GTK_WIDGET_CLASS(vesk_canvas_parent_class)->snapshot(widget, snapshot);
}

static void vesk_canvas_size_allocate(GtkWidget* widget, int /*width*/, int /*height*/,
                                      int /*baseline*/) {
    VESK_CANVAS(widget)->functions->layOut();
}

static void vesk_canvas_class_init(VeskCanvasClass* type) {
    G_OBJECT_CLASS(type)->dispose = vesk_canvas_dispose;
    G_OBJECT_CLASS(type)->finalize = vesk_canvas_finalize;
    GTK_WIDGET_CLASS(type)->snapshot = vesk_canvas_snapshot;
    GTK_WIDGET_CLASS(type)->size_allocate = vesk_canvas_size_allocate;
}

namespace krl::desktop {

GtkWidget* newCanvas(const char* cssName, GtkAccessibleRole role, CanvasFunctions functions) {
    auto* const canvas = static_cast<GtkWidget*>(
        g_object_new(VESK_TYPE_CANVAS, "css-name", cssName, "accessible-role", role, nullptr));
    setFunctions(canvas, std::move(functions));
    return canvas;
}

void setFunctions(GtkWidget* canvas, CanvasFunctions functions) {
    *VESK_CANVAS(canvas)->functions = std::move(functions);
}

} // namespace krl::desktop
