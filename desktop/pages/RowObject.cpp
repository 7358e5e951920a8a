#include "desktop/pages/RowObject.h"

struct _VeskRow {
    GObject parent;
    krl::desktop::Row* row;
};

G_DEFINE_FINAL_TYPE(VeskRow, vesk_row, G_TYPE_OBJECT)

static void vesk_row_init(VeskRow* self) {
    self->row = new krl::desktop::Row;
}

static void vesk_row_finalize(GObject* object) {
    delete VESK_ROW(object)->row;
    G_OBJECT_CLASS(vesk_row_parent_class)->finalize(object);
}

static void vesk_row_class_init(VeskRowClass* type) {
    G_OBJECT_CLASS(type)->finalize = vesk_row_finalize;
    g_signal_new("changed", VESK_TYPE_ROW, G_SIGNAL_RUN_FIRST, 0, nullptr, nullptr, nullptr,
                 G_TYPE_NONE, 0);
}

namespace krl::desktop {

VeskRow* newRowObject(const Row& row) {
    auto* const object = VESK_ROW(g_object_new(VESK_TYPE_ROW, nullptr));
    *object->row = row;
    return object;
}

const Row& rowOf(VeskRow* object) {
    return *object->row;
}

void setRow(VeskRow* object, const Row& row) {
    if (!(*object->row == row)) {
        *object->row = row;
        g_signal_emit_by_name(object, "changed");
    }
}

} // namespace krl::desktop
