#include "desktop/editor/Drawing.h"

#include <algorithm>

namespace krl::desktop {
namespace {

/// From the top of a column to its bottom.
graphene_rect_t placeOf(const Column& column, float left, float height) {
    const float middle = height / 2;
    const float top = middle - std::clamp(column.high, -1.0F, 1.0F) * middle;
    const float bottom = middle - std::clamp(column.low, -1.0F, 1.0F) * middle;
    const float tall = std::max(bottom - top, 1.0F);
    const float from = std::clamp((top + bottom - tall) / 2, 0.0F, height - tall);
    return {{left, from}, {kColumnWidth, tall}};
}

} // namespace

void drawColumns(GtkSnapshot* snapshot, std::span<const Column> columns, float height,
                 const Ink& ink) {
    for (size_t i = 0; i < columns.size(); ++i) {
        const float left = static_cast<float>(i) * kColumnStep;
        const graphene_rect_t place = placeOf(columns[i], left, height);
        const float middle = left + kColumnWidth / 2;
        const bool isChosen = middle >= ink.from && middle < ink.to;
        gtk_snapshot_append_color(snapshot, isChosen ? &ink.chosen : &ink.other, &place);
    }
}

} // namespace krl::desktop
