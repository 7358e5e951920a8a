// The waveform as it is drawn, pixel by pixel, held against the song's samples. Needs no screen.
#include "desktop/editor/Drawing.h"

#include <gtest/gtest.h>

#include <cairo.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <vector>

namespace krl::desktop {
namespace {

constexpr int kRate = 44100;
constexpr int kWidth = 600;
constexpr int kHeight = 200;
constexpr GdkRGBA kRed{1, 0, 0, 1};
constexpr GdkRGBA kBlue{0, 0, 1, 1};

/// Four seconds whose loudness goes up and down.
std::vector<float> someSong() {
    std::vector<float> samples(4 * kRate);
    for (size_t i = 0; i < samples.size(); ++i) {
        const double time = static_cast<double>(i) / kRate;
        samples[i] =
            static_cast<float>((0.45 + 0.4 * std::sin(2 * time)) * std::sin(2 * M_PI * 440 * time));
    }
    return samples;
}

audio::Peaks peaksOf(const std::vector<float>& samples) {
    constexpr size_t kFrames = 441;
    audio::Peaks peaks{{}, 4, 0.01};
    for (size_t from = 0; from < samples.size(); from += kFrames) {
        const auto begin = samples.begin() + static_cast<ptrdiff_t>(from);
        const auto [low, high] = std::minmax_element(begin, begin + kFrames);
        peaks.peaks.push_back(
            {static_cast<int16_t>(*low * 32767), static_cast<int16_t>(*high * 32767)});
    }
    return peaks;
}

/// What was drawn, as a picture.
class Picture {
public:
    explicit Picture(const std::vector<Column>& columns, const Ink& ink)
        : surface_(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, kWidth, kHeight)) {
        gtk_init_check(); // without a screen too there are nodes then
        GtkSnapshot* const snapshot = gtk_snapshot_new();
        drawColumns(snapshot, columns, kHeight, ink);
        GskRenderNode* const node = gtk_snapshot_free_to_node(snapshot);
        cairo_t* const context = cairo_create(surface_.get());
        gsk_render_node_draw(node, context);
        cairo_destroy(context);
        gsk_render_node_unref(node);
        cairo_surface_flush(surface_.get());
    }

    /// As 0xAARRGGBB.
    uint32_t at(int x, int y) const {
        const unsigned char* const row =
            cairo_image_surface_get_data(surface_.get()) +
            static_cast<ptrdiff_t>(y) * cairo_image_surface_get_stride(surface_.get());
        return reinterpret_cast<const uint32_t*>(row)[x];
    }

    /// First and last row that is wholly drawn, and the pixels that are not empty in between.
    struct Extent {
        int top = kHeight;
        int bottom = -1;
        int count = 0;
    };

    Extent extent(int x) const {
        Extent extent;
        for (int y = 0; y < kHeight; ++y) {
            if (at(x, y) != 0) {
                extent.top = std::min(extent.top, y);
                extent.bottom = y;
                ++extent.count;
            }
        }
        return extent;
    }

private:
    struct Destroy {
        void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
    };

    std::unique_ptr<cairo_surface_t, Destroy> surface_;
};

/// The first pixel of a column.
int leftOf(size_t column) {
    return static_cast<int>(static_cast<float>(column) * kColumnStep);
}

constexpr auto kColumns = static_cast<size_t>(kWidth / kColumnStep);

} // namespace

TEST(DrawnWaveforms, AreAsHighAsTheSong) {
    const std::vector<float> samples = someSong();
    std::vector<Column> columns(kColumns);
    fillColumns(peaksOf(samples), View(4), 1, columns);
    const Picture picture(columns, {kRed, kBlue, 0, kWidth});
    const size_t each = samples.size() / kColumns;
    for (size_t i = 0; i < kColumns; ++i) {
        const auto begin = samples.begin() + static_cast<ptrdiff_t>(i * each);
        const auto [low, high] = std::minmax_element(begin, begin + static_cast<ptrdiff_t>(each));
        const auto extent = picture.extent(leftOf(i));
        // A pixel that is covered in part counts as drawn.
        EXPECT_NEAR(extent.top, kHeight / 2.0 * (1 - *high), 1.01) << i;
        EXPECT_NEAR(extent.bottom + 1, kHeight / 2.0 * (1 - *low), 1.01) << i;
        EXPECT_EQ(extent.count, extent.bottom - extent.top + 1) << i;
        EXPECT_EQ(picture.extent(leftOf(i) + 2).count, 0) << "a gap";
    }
}

TEST(DrawnWaveforms, ShowWhatIsChosenInAnotherColour) {
    const std::vector<Column> columns(kColumns, Column{-0.5F, 0.5F});
    const Picture picture(columns, {kRed, kBlue, 150, 300});
    for (size_t i = 0; i < kColumns; ++i) {
        const auto x = leftOf(i);
        EXPECT_EQ(picture.at(x, kHeight / 2), x >= 150 && x < 300 ? 0xFFFF0000U : 0xFF0000FFU) << x;
    }
}

TEST(DrawnWaveforms, ShowSilenceAndWhatIsTooLoudWithinTheHeight) {
    const std::vector<Column> columns{{0, 0}, {-3, 3}, {1, 1}, {-1, -1}};
    const Picture picture(columns, {kRed, kBlue, 0, 0});
    EXPECT_GE(picture.extent(0).count, 1);
    EXPECT_LE(picture.extent(0).count, 2);
    EXPECT_EQ(picture.extent(3).count, kHeight);
    EXPECT_EQ(picture.extent(6).top, 0);
    EXPECT_EQ(picture.extent(9).bottom, kHeight - 1);
}

} // namespace krl::desktop
