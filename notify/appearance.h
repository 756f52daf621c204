// What a notice looks like.
#pragma once

#include "arguments.h"

#include <pango/pangocairo.h>

#include <memory>

namespace Vard {

/// A notice's texts laid out below each other, the title bold.
class Appearance {
public:
    /// Lays the notice out in at most that many pixels; text that does not fit ends in an ellipsis.
    Appearance(const Notice& notice, int largestWidth, int largestHeight);

    /// Size in pixels, at least 1 each.
    [[nodiscard]] int width() const { return width_; }
    [[nodiscard]] int height() const { return height_; }
    /// Draws it at the origin.
    void draw(cairo_t* cairo) const;

private:
    struct Release {
        void operator()(void* object) const { g_object_unref(object); }
    };
    using LayoutPtr = std::unique_ptr<PangoLayout, Release>;

    static LayoutPtr layOut(const std::string& text, const char* font, int width, int height);
    void drawText(cairo_t* cairo, PangoLayout* layout, int y) const;

    uint8_t level_;
    int width_;
    int height_ = 0;
    LayoutPtr title_;
    LayoutPtr text_;
    int textTop_ = 0;
};

} // namespace Vard
