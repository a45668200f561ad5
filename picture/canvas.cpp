// Draws rectangles, images and texts with Cairo and Pango.
// SPDX-License-Identifier: MIT
#include "picture/canvas.h"

#include <bit>
#include <cstring>
#include <new>
#include <stdexcept>

#include <cairo-svg.h>
#include <pango/pangocairo.h>

namespace tarn
{

namespace
{

constexpr const char* kFontFamily = "DejaVu Sans";

/// Appends bytes to a string.
cairo_status_t append(void* bytes, const unsigned char* data, unsigned length)
{
    try {
        static_cast<std::string*>(bytes)->append(reinterpret_cast<const char*>(data), length);
    } catch (const std::bad_alloc&) {
        return CAIRO_STATUS_NO_MEMORY;
    }
    return CAIRO_STATUS_SUCCESS;
}

cairo_surface_t* surfaceFor(PictureFormat format, PictureSize size, std::string& bytes)
{
    if (format == PictureFormat::Svg) {
        cairo_surface_t* const svg = cairo_svg_surface_create_for_stream(append, &bytes, size.width, size.height);
        cairo_svg_surface_set_document_unit(svg, CAIRO_SVG_UNIT_PX);
        return svg;
    }
    return cairo_image_surface_create(CAIRO_FORMAT_RGB24, size.width, size.height);
}

double component(std::uint32_t colour, int shift) noexcept
{
    return static_cast<double>(colour >> shift & 0xffU) / 255.0;
}

} // namespace

Canvas::Canvas(PictureFormat pictureFormat, PictureSize size)
    : format(pictureFormat),
      surface(surfaceFor(pictureFormat, size, bytes), cairo_surface_destroy),
      context(cairo_create(surface.get()), cairo_destroy),
      layout(pango_cairo_create_layout(context.get()), g_object_unref)
{
    check(cairo_status(context.get()));
    // The same pixels on every screen: grey edges, letters at exact places.
    PangoContext* const texts = pango_layout_get_context(layout.get());
    cairo_font_options_t* const options = cairo_font_options_create();
    cairo_font_options_set_antialias(options, CAIRO_ANTIALIAS_GRAY);
    cairo_font_options_set_hint_style(options, CAIRO_HINT_STYLE_NONE);
    cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_OFF);
    pango_cairo_context_set_font_options(texts, options);
    cairo_font_options_destroy(options);
    pango_context_set_round_glyph_positions(texts, FALSE);
    pango_layout_set_single_paragraph_mode(layout.get(), TRUE);
    pango_layout_set_ellipsize(layout.get(), PANGO_ELLIPSIZE_END);
}

void Canvas::fill(const PixelArea& area, std::uint32_t colour, double opacity)
{
    setColour(colour, opacity);
    cairo_rectangle(context.get(), area.x, area.y, area.width, area.height);
    cairo_fill(context.get());
}

void Canvas::outline(const PixelArea& area, std::uint32_t colour)
{
    setColour(colour);
    cairo_set_line_width(context.get(), 1.0);
    cairo_rectangle(context.get(), area.x - 0.5, area.y - 0.5, area.width + 1.0, area.height + 1.0);
    cairo_stroke(context.get());
}

void Canvas::draw(const PixelImage& image, int x, int y)
{
    const Surface raster(cairo_image_surface_create(CAIRO_FORMAT_RGB24, image.width, image.height),
                         cairo_surface_destroy);
    check(cairo_surface_status(raster.get()));
    cairo_surface_flush(raster.get());
    unsigned char* const data = cairo_image_surface_get_data(raster.get());
    const auto width = static_cast<std::size_t>(image.width);
    const auto stride = static_cast<std::size_t>(cairo_image_surface_get_stride(raster.get()));
    for (std::size_t row = 0; row < static_cast<std::size_t>(image.height); ++row)
        std::memcpy(data + row * stride, image.pixels.data() + row * width, width * sizeof(std::uint32_t));
    cairo_surface_mark_dirty(raster.get());

    cairo_set_source_surface(context.get(), raster.get(), x, y);
    cairo_pattern_set_filter(cairo_get_source(context.get()), CAIRO_FILTER_NEAREST);
    cairo_rectangle(context.get(), x, y, image.width, image.height);
    cairo_fill(context.get());
}

void Canvas::drawBand(int x, double middle, const std::vector<double>& heights, std::uint32_t colour)
{
    setColour(colour);
    const std::size_t count = heights.size();
    for (std::size_t i = 0; i < count; ++i)
        cairo_line_to(context.get(), x + static_cast<double>(i) + 0.5, middle - heights[i]);
    for (std::size_t left = count; left > 0; --left)
        cairo_line_to(context.get(), x + static_cast<double>(left) - 0.5, middle + heights[left - 1]);
    cairo_close_path(context.get());
    cairo_fill(context.get());
}

void Canvas::setText(const std::string& text, const TextStyle& style)
{
    PangoFontDescription* const font = pango_font_description_from_string(kFontFamily);
    pango_font_description_set_weight(font, style.isBold ? PANGO_WEIGHT_BOLD : PANGO_WEIGHT_NORMAL);
    pango_font_description_set_absolute_size(font, style.size * PANGO_SCALE);
    pango_layout_set_font_description(layout.get(), font);
    pango_font_description_free(font);
    pango_layout_set_width(layout.get(), style.maxWidth < 0.0 ? -1 : pango_units_from_double(style.maxWidth));
    pango_layout_set_text(layout.get(), text.data(), static_cast<int>(text.size()));
}

void Canvas::write(const std::string& text, double x, double baseline, const TextStyle& style)
{
    const double width = style.anchor == TextAnchor::Left ? 0.0 : widthOf(text, style);
    setText(text, style);
    setColour(style.colour);
    cairo_move_to(context.get(), x - (style.anchor == TextAnchor::Middle ? 0.5 * width : width), baseline);
    pango_cairo_show_layout_line(context.get(), pango_layout_get_line_readonly(layout.get(), 0));
    cairo_new_path(context.get());
}

double Canvas::widthOf(const std::string& text, const TextStyle& style)
{
    setText(text, style);
    PangoRectangle extents;
    pango_layout_line_get_extents(pango_layout_get_line_readonly(layout.get(), 0), nullptr, &extents);
    return pango_units_to_double(extents.width);
}

std::string Canvas::finish()
{
    check(cairo_status(context.get()));
    layout.reset();
    context.reset();
    if (format == PictureFormat::Png) check(cairo_surface_write_to_png_stream(surface.get(), append, &bytes));
    cairo_surface_finish(surface.get());
    check(cairo_surface_status(surface.get()));
    return std::move(bytes);
}

void Canvas::setColour(std::uint32_t colour, double opacity)
{
    cairo_set_source_rgba(context.get(), component(colour, 16), component(colour, 8), component(colour, 0), opacity);
}

void Canvas::check(cairo_status_t status) const
{
    if (status == CAIRO_STATUS_NO_MEMORY) throw std::bad_alloc();
    if (status != CAIRO_STATUS_SUCCESS) throw std::runtime_error(cairo_status_to_string(status));
}

} // namespace tarn
