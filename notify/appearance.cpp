// What a notice looks like.
#include "appearance.h"

#include <algorithm>
#include <array>

namespace Vard {

namespace {

// Pixels.
constexpr int padding = 14;
constexpr int gap = 6;
constexpr int stripe = 5;

struct Color {
    double red;
    double green;
    double blue;
};

constexpr Color background{0.98, 0.98, 0.97};
constexpr Color border{0.62, 0.64, 0.66};
constexpr Color ink{0.13, 0.14, 0.15};
constexpr std::array<Color, 3> stripes{{{0.58, 0.61, 0.65}, {0.18, 0.44, 0.71}, {0.77, 0.19, 0.15}}};

void use(cairo_t* cairo, const Color& color) { cairo_set_source_rgb(cairo, color.red, color.green, color.blue); }

int heightOf(PangoLayout* layout) {
    int height = 0;
    pango_layout_get_pixel_size(layout, nullptr, &height);
    return height;
}

} // namespace

Appearance::LayoutPtr Appearance::layOut(const std::string& text, const char* font, int width, int height) {
    const std::unique_ptr<PangoContext, Release> context(
        pango_font_map_create_context(pango_cairo_font_map_get_default()));
    LayoutPtr layout(pango_layout_new(context.get()));
    const std::unique_ptr<PangoFontDescription, decltype(&pango_font_description_free)> description(
        pango_font_description_from_string(font), &pango_font_description_free);
    pango_layout_set_font_description(layout.get(), description.get());
    pango_layout_set_text(layout.get(), text.data(), static_cast<int>(text.size()));
    pango_layout_set_wrap(layout.get(), PANGO_WRAP_WORD_CHAR);
    pango_layout_set_ellipsize(layout.get(), PANGO_ELLIPSIZE_END);
    pango_layout_set_width(layout.get(), std::max(width, 1) * PANGO_SCALE);
    pango_layout_set_height(layout.get(), std::max(height, 1) * PANGO_SCALE);
    return layout;
}

Appearance::Appearance(const Notice& notice, int largestWidth, int largestHeight)
    : level_(notice.level), width_(std::max(largestWidth, 1)) {
    const int textWidth = width_ - stripe - 2 * padding;
    title_ = layOut(notice.title, "Sans Bold 11", textWidth, largestHeight / 3);
    height_ = padding + heightOf(title_.get()) + padding;
    if (!notice.text.empty()) {
        textTop_ = height_ - padding + gap;
        text_ = layOut(notice.text, "Sans 11", textWidth, largestHeight - textTop_ - padding);
        height_ = textTop_ + heightOf(text_.get()) + padding;
    }
    height_ = std::clamp(height_, 1, std::max(largestHeight, 1));
}

void Appearance::drawText(cairo_t* cairo, PangoLayout* layout, int y) const {
    use(cairo, ink);
    cairo_move_to(cairo, stripe + padding, y);
    pango_cairo_update_layout(cairo, layout);
    pango_cairo_show_layout(cairo, layout);
}

void Appearance::draw(cairo_t* cairo) const {
    use(cairo, background);
    cairo_paint(cairo);
    use(cairo, border);
    cairo_set_line_width(cairo, 1);
    cairo_rectangle(cairo, 0.5, 0.5, width_ - 1, height_ - 1); // a line lies between the pixels' corners
    cairo_stroke(cairo);
    use(cairo, stripes.at(std::min<size_t>(level_, stripes.size() - 1)));
    cairo_rectangle(cairo, 0, 0, stripe, height_);
    cairo_fill(cairo);
    drawText(cairo, title_.get(), padding);
    if (text_) {
        drawText(cairo, text_.get(), textTop_);
    }
}

} // namespace Vard
